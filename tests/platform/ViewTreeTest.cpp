#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "pelora/ui/UI.h"

using namespace pelora::ui;
using pelora::platform::makeRect;

namespace {

template <class T = View>
std::shared_ptr<T> make(double x, double y, double w, double h) {
    return std::make_shared<T>(makeRect(x, y, w, h));
}

struct Tree {
    std::shared_ptr<Window> window = make<Window>(0, 0, 320, 480);
    std::shared_ptr<View> container = make(20, 40, 200, 100);
    std::shared_ptr<View> child = make(10, 10, 50, 50);
    Tree() {
        window->addSubview(container);
        container->addSubview(child);
    }
};

}  // namespace

TEST(ViewHierarchy, SubviewOrderAndMoves) {
    auto root = make(0, 0, 100, 100);
    auto a = make(0, 0, 10, 10), b = make(0, 0, 10, 10), c = make(0, 0, 10, 10);
    root->addSubview(a);
    root->addSubview(b);
    root->insertSubview(c, 0);
    EXPECT_EQ(root->subviews(), (std::vector<std::shared_ptr<View>>{c, a, b}));
    root->bringSubviewToFront(c);
    EXPECT_EQ(root->subviews(), (std::vector<std::shared_ptr<View>>{a, b, c}));
    root->sendSubviewToBack(b);
    EXPECT_EQ(root->subviews(), (std::vector<std::shared_ptr<View>>{b, a, c}));

    // Adding to another parent moves the view; the old parent forgets it.
    auto other = make(0, 0, 10, 10);
    other->addSubview(a);
    EXPECT_EQ(root->subviews(), (std::vector<std::shared_ptr<View>>{b, c}));
    EXPECT_EQ(a->superview(), other);

    // Cycles are refused.
    a->addSubview(other);
    EXPECT_EQ(other->superview(), nullptr);
    EXPECT_TRUE(a->subviews().empty());

    c->removeFromSuperview();
    EXPECT_EQ(c->superview(), nullptr);
    EXPECT_EQ(root->subviews(), (std::vector<std::shared_ptr<View>>{b}));
}

TEST(ViewHierarchy, WindowFollowsTheTreeAndSuperviewIsWeak) {
    struct Probe : View {
        int windowMoves = 0;
        void didMoveToWindow() override { ++windowMoves; }
    };
    Tree t;
    auto probe = std::make_shared<Probe>();
    auto holder = make(0, 0, 10, 10);
    holder->addSubview(probe);
    EXPECT_EQ(probe->window(), nullptr);
    EXPECT_EQ(probe->windowMoves, 0);
    t.child->addSubview(holder);
    EXPECT_EQ(probe->window(), t.window);
    EXPECT_EQ(probe->windowMoves, 1);
    holder->removeFromSuperview();
    EXPECT_EQ(probe->window(), nullptr);
    EXPECT_EQ(probe->windowMoves, 2);

    std::weak_ptr<View> weakParent;
    {
        auto parent = make(0, 0, 1, 1);
        parent->addSubview(holder);
        weakParent = parent;
    }
    EXPECT_TRUE(weakParent.expired());
    EXPECT_EQ(holder->superview(), nullptr);
}

TEST(ViewGeometry, ConvertsPointsBetweenViews) {
    Tree t;
    auto sibling = make(100, 0, 50, 50);
    t.container->addSubview(sibling);
    EXPECT_EQ(t.child->bounds(), makeRect(0, 0, 50, 50));
    EXPECT_EQ(t.child->convertPointToView({5, 5}, nullptr), (Point{35, 55}));
    EXPECT_EQ(t.child->convertPointToView({5, 5}, t.container.get()), (Point{15, 15}));
    EXPECT_EQ(t.child->convertPointToView({5, 5}, sibling.get()), (Point{-85, 15}));
    EXPECT_EQ(t.container->convertPointFromView({35, 55}, nullptr), (Point{15, 15}));
    EXPECT_EQ(t.container->convertPointFromView({0, 0}, sibling.get()), (Point{100, 0}));
}

TEST(ViewHitTesting, SkipsHiddenTransparentAndNonInteractiveViews) {
    Tree t;
    auto under = make(0, 0, 100, 100);
    auto over = make(0, 0, 100, 100);
    t.container->insertSubview(under, 0);
    t.container->addSubview(over);
    // Window coordinates (35, 55) are (15, 15) in the container: child, under and over all
    // contain it; the last subview wins.
    EXPECT_EQ(t.window->hitTest({35, 55}), over);

    over->setHidden(true);
    EXPECT_EQ(t.window->hitTest({35, 55}), t.child);
    over->setHidden(false);
    over->setAlpha(0.009);
    EXPECT_EQ(t.window->hitTest({35, 55}), t.child);
    over->setAlpha(0.01);
    EXPECT_EQ(t.window->hitTest({35, 55}), over);
    over->setUserInteractionEnabled(false);
    EXPECT_EQ(t.window->hitTest({35, 55}), t.child);

    // A non-interactive view hides its whole subtree.
    t.container->setUserInteractionEnabled(false);
    EXPECT_EQ(t.window->hitTest({35, 55}), t.window);

    // Points outside a view's bounds reach none of its subviews, even ones that stick out.
    t.container->setUserInteractionEnabled(true);
    auto stickingOut = make(190, 0, 50, 50);
    t.container->addSubview(stickingOut);
    EXPECT_EQ(t.window->hitTest({225, 45}), t.window);
    EXPECT_EQ(t.window->hitTest({215, 45}), stickingOut);
    EXPECT_EQ(t.window->hitTest({-1, 10}), nullptr);
}

TEST(ViewHitTesting, ImageViewsAndLabelsTakeNoTouchesByDefault) {
    EXPECT_FALSE(ImageView().userInteractionEnabled());
    EXPECT_FALSE(Label().userInteractionEnabled());
    EXPECT_TRUE(Button().userInteractionEnabled());
    EXPECT_TRUE(View().userInteractionEnabled());
    Tree t;
    auto image = make<ImageView>(0, 0, 50, 50);
    t.child->addSubview(image);
    EXPECT_EQ(t.window->hitTest({35, 55}), t.child);
}

TEST(ViewTapDelivery, ReachesTheNearestRecognizerWithLocationInAnyView) {
    Tree t;
    std::vector<std::string> log;
    Point inContainer, inChild, inWindow;
    auto tap = std::make_shared<TapGestureRecognizer>([&](TapGestureRecognizer& r) {
        log.push_back("container");
        EXPECT_EQ(r.state(), GestureRecognizerState::Recognized);
        inContainer = r.locationInView(r.view().get());
        inChild = r.locationInView(t.child.get());
        inWindow = r.locationInView(nullptr);
    });
    t.container->addGestureRecognizer(tap);
    EXPECT_EQ(tap->view(), t.container);

    // The tap lands on the child, which has no recognizer: it goes up to the container.
    EXPECT_TRUE(t.window->sendTap({35, 55}));
    EXPECT_EQ(log, std::vector<std::string>{"container"});
    EXPECT_EQ(inContainer, (Point{15, 15}));
    EXPECT_EQ(inChild, (Point{5, 5}));
    EXPECT_EQ(inWindow, (Point{35, 55}));
    EXPECT_EQ(tap->state(), GestureRecognizerState::Possible);

    // A recognizer on the child takes the tap; the container's gets nothing.
    auto childTap = std::make_shared<TapGestureRecognizer>(
        [&](TapGestureRecognizer&) { log.push_back("child"); });
    t.child->addGestureRecognizer(childTap);
    t.window->sendTap({35, 55});
    EXPECT_EQ(log, (std::vector<std::string>{"container", "child"}));

    // A disabled recognizer is passed over; so is a touch that moved too far.
    childTap->setEnabled(false);
    t.window->sendTap({35, 55});
    EXPECT_EQ(log.back(), "container");
    EXPECT_EQ(log.size(), 3u);
    EXPECT_TRUE(t.window->touchDown({35, 55}));
    EXPECT_FALSE(t.window->touchUp({35 + Window::kTapSlop + 1, 55}));
    EXPECT_EQ(log.size(), 3u);

    // Nothing under the point wants taps.
    t.container->removeGestureRecognizer(tap);
    EXPECT_EQ(tap->view(), nullptr);
    EXPECT_FALSE(t.window->sendTap({35, 55}));
    EXPECT_FALSE(t.window->sendTap({300, 470}));
}

TEST(ViewTapDelivery, RecognizerForgetsADeadViewAndMovesBetweenViews) {
    auto tap = std::make_shared<TapGestureRecognizer>();
    auto a = make(0, 0, 10, 10);
    {
        auto b = make(0, 0, 10, 10);
        b->addGestureRecognizer(tap);
        a->addGestureRecognizer(tap);  // moves
        EXPECT_TRUE(b->gestureRecognizers().empty());
        EXPECT_EQ(tap->view(), a);
        b->addGestureRecognizer(tap);
    }
    EXPECT_EQ(tap->view(), nullptr);
    EXPECT_TRUE(a->gestureRecognizers().empty());
}

TEST(ViewTapDelivery, ButtonsFireTouchUpInsideOnlyWhenReleasedInside) {
    Tree t;
    auto button = make<Button>(0, 0, 40, 20);
    t.child->addSubview(button);
    std::vector<std::string> events;
    button->addTarget([&](Button&) { events.push_back("down"); }, ControlEvent::TouchDown);
    button->addTarget([&](Button&) { events.push_back("inside"); }, ControlEvent::TouchUpInside);
    button->addTarget([&](Button&) { events.push_back("outside"); }, ControlEvent::TouchUpOutside);
    // An ancestor's recognizer does not steal the button's tap.
    int containerTaps = 0;
    t.container->addGestureRecognizer(
        std::make_shared<TapGestureRecognizer>([&](TapGestureRecognizer&) { ++containerTaps; }));

    EXPECT_TRUE(t.window->sendTap({35, 55}));
    EXPECT_EQ(events, (std::vector<std::string>{"down", "inside"}));
    EXPECT_EQ(containerTaps, 0);

    t.window->touchDown({35, 55});
    EXPECT_TRUE(button->highlighted());
    EXPECT_EQ(button->state(), ControlState::Highlighted);
    EXPECT_FALSE(t.window->touchUp({200, 300}));
    EXPECT_FALSE(button->highlighted());
    EXPECT_EQ(events.back(), "outside");

    // A disabled button passes the tap on to its ancestors.
    button->setEnabled(false);
    events.clear();
    EXPECT_TRUE(t.window->sendTap({35, 55}));
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(containerTaps, 1);
}

TEST(ViewTapDelivery, ActionMayRemoveItsOwnView) {
    Tree t;
    auto button = make<Button>(0, 0, 40, 20);
    t.child->addSubview(button);
    std::weak_ptr<Button> weak = button;
    int fired = 0;
    button->addTarget(
        [&](Button& b) {
            ++fired;
            b.removeFromSuperview();
        },
        ControlEvent::TouchUpInside);
    button.reset();
    EXPECT_TRUE(t.window->sendTap({35, 55}));
    EXPECT_EQ(fired, 1);
    EXPECT_TRUE(weak.expired());
}

TEST(ViewControls, ButtonValuesPerStateFallBackToNormal) {
    Button b;
    b.setTitle("Skip", ControlState::Normal);
    b.setTitle("Skipping", ControlState::Highlighted);
    b.setTitleColor(Color::white(), ControlState::Normal);
    auto image = std::make_shared<pelora::platform::Image>();
    b.setImage(image, ControlState::Selected);
    EXPECT_EQ(b.currentTitle(), "Skip");
    EXPECT_EQ(b.currentImage(), nullptr);
    b.setSelected(true);
    EXPECT_EQ(b.currentTitle(), "Skip");
    EXPECT_EQ(b.currentImage(), image);
    EXPECT_EQ(b.titleColorForState(ControlState::Disabled), Color::white());
    EXPECT_EQ(b.titleForState(ControlState::Highlighted), "Skipping");
}

TEST(ViewDiagnostics, DescribeTreeShowsStateAndNesting) {
    Tree t;
    auto label = make<Label>(0, 0, 30, 10);
    label->setText("5s");
    auto button = make<Button>(0, 10, 30, 10);
    button->setTitle("Skip", ControlState::Normal);
    t.child->addSubview(label);
    t.child->addSubview(button);
    t.container->setAlpha(0.5);
    t.child->setHidden(true);
    t.child->setAccessibilityIdentifier("imageV");
    EXPECT_EQ(t.window->describeTree(),
              "Window frame=(0,0,320,480)\n"
              "  View frame=(20,40,200,100) alpha=0.5\n"
              "    View frame=(10,10,50,50) hidden id=imageV\n"
              "      Label frame=(0,0,30,10) noninteractive text=\"5s\"\n"
              "      Button frame=(0,10,30,10) title=\"Skip\"\n");
}

TEST(ViewState, AssociatedObjectsAndOutletsAndLookups) {
    static const char kKey = 0;
    Tree t;
    auto value = std::make_shared<int>(7);
    t.child->setAssociatedObject(&kKey, value);
    EXPECT_EQ(t.child->associatedObject(&kKey), value);
    t.child->setAssociatedObject(&kKey, nullptr);
    EXPECT_EQ(t.child->associatedObject(&kKey), nullptr);

    t.child->setTag(42);
    t.child->setAccessibilityIdentifier("countL");
    EXPECT_EQ(t.window->viewWithTag(42), t.child);
    EXPECT_EQ(t.window->viewWithAccessibilityIdentifier("countL"), t.child);
    t.window->setOutlet("countL", t.child);
    EXPECT_EQ(t.window->outlet("countL"), t.child);
    EXPECT_EQ(t.window->outlet("missing"), nullptr);
}

TEST(ViewControllerPresentation, PresentsOverTheWindowAndDismisses) {
    auto window = make<Window>(0, 0, 320, 480);
    auto root = std::make_shared<ViewController>();
    window->setRootViewController(root);
    EXPECT_EQ(window->subviews().front(), root->view());
    EXPECT_EQ(root->view()->frame(), window->bounds());

    auto page = std::make_shared<BrowserViewController>("https://example.com/p");
    page->setModalPresentationStyle(ModalPresentationStyle::OverFullScreen);
    bool presented = false;
    root->presentViewController(page, true, [&] { presented = true; });
    EXPECT_TRUE(presented);
    EXPECT_EQ(root->presentedViewController(), page);
    EXPECT_EQ(page->presentingViewController(), root);
    EXPECT_TRUE(page->lastTransitionAnimated());
    EXPECT_EQ(static_cast<int>(page->modalPresentationStyle()), 5);
    // The page is on top: taps reach it, not the root's views.
    EXPECT_EQ(window->subviews().back(), page->view());
    EXPECT_EQ(page->view()->frame(), window->bounds());
    EXPECT_EQ(window->hitTest({10, 10}), page->view());

    // One presentation at a time.
    auto second = std::make_shared<ViewController>();
    bool secondShown = false;
    root->presentViewController(second, false, [&] { secondShown = true; });
    EXPECT_FALSE(secondShown);
    EXPECT_EQ(root->presentedViewController(), page);

    // Dismissing from the presented side asks the presenter.
    bool dismissed = false;
    page->dismissViewControllerAnimated(false, [&] { dismissed = true; });
    EXPECT_TRUE(dismissed);
    EXPECT_EQ(root->presentedViewController(), nullptr);
    EXPECT_EQ(page->presentingViewController(), nullptr);
    EXPECT_EQ(page->view()->superview(), nullptr);
}

TEST(ViewControllerPresentation, NavigationStackPushAndPop) {
    struct Counting : ViewController {
        int loads = 0;
        void viewDidLoad() override { ++loads; }
    };
    auto first = std::make_shared<Counting>();
    auto nav = NavigationController::initWithRootViewController(first);
    EXPECT_EQ(first->navigationController(), nav);
    EXPECT_EQ(first->loads, 0);  // views load lazily
    auto container = nav->view();
    EXPECT_EQ(first->loads, 1);
    EXPECT_EQ(container->subviews(), std::vector<std::shared_ptr<View>>{first->view()});

    auto page = std::make_shared<BrowserViewController>("https://example.com");
    nav->pushViewController(page, true);
    EXPECT_EQ(nav->topViewController(), page);
    EXPECT_EQ(container->subviews(), std::vector<std::shared_ptr<View>>{page->view()});
    EXPECT_EQ(nav->popViewControllerAnimated(true), page);
    EXPECT_EQ(page->navigationController(), nullptr);
    EXPECT_EQ(nav->popViewControllerAnimated(true), nullptr);  // the root stays
    EXPECT_EQ(nav->viewControllers().size(), 1u);
}

namespace {

TEST(ViewGeometry, AutoresizingSharesASizeChangeAmongTheFlexibleParts) {
    auto root = std::make_shared<View>(makeRect(0, 0, 375, 667));
    auto fill = std::make_shared<View>(makeRect(0, 0, 375, 667));
    fill->setAutoresizingMask(AutoresizingFlexibleWidth | AutoresizingFlexibleHeight);
    auto corner = std::make_shared<View>(makeRect(323, 44, 36, 36));
    corner->setAutoresizingMask(AutoresizingFlexibleLeftMargin | AutoresizingFlexibleBottomMargin);
    auto centred = std::make_shared<View>(makeRect(155, 300, 64, 64));
    centred->setAutoresizingMask(45);  // every margin flexible
    auto fixed = std::make_shared<View>(makeRect(10, 10, 20, 20));
    for (auto& v : {fill, corner, centred, fixed}) root->addSubview(v);

    root->setFrame(makeRect(0, 0, 750, 1334));
    EXPECT_EQ(fill->frame(), makeRect(0, 0, 750, 1334));
    EXPECT_EQ(corner->frame(), makeRect(698, 44, 36, 36));  // keeps its right margin
    // The margins (155 and 156 points) take the 375 new points in proportion to their lengths.
    EXPECT_DOUBLE_EQ(centred->frame().origin.x, 155 + 375.0 * 155 / 311);
    EXPECT_EQ(centred->frame().size, (pelora::platform::Size{64, 64}));
    EXPECT_EQ(fixed->frame(), makeRect(10, 10, 20, 20));
}

TEST(ViewControllerPresentation, NavigationPassesAppearanceToItsTopController) {
    struct Watching : ViewController {
        std::vector<std::string> seen;
        void viewWillAppear(bool) override { seen.push_back("willAppear"); }
        void viewWillDisappear(bool) override { seen.push_back("willDisappear"); }
    };
    auto window = std::make_shared<Window>(makeRect(0, 0, 375, 667));
    auto root = std::make_shared<ViewController>();
    window->setRootViewController(root);
    auto page = std::make_shared<Watching>();
    auto nav = NavigationController::initWithRootViewController(page);
    root->presentViewController(nav, true, nullptr);
    nav->dismissViewControllerAnimated(true, nullptr);
    EXPECT_EQ(page->seen, (std::vector<std::string>{"willAppear", "willDisappear"}));
}

}  // namespace
