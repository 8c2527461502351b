// The view tree's own rules. Presenting pages, outlets and taps on the SDK's views are also
// exercised end to end by the splash, reward and track tests: among them a button whose action
// releases its last owner (SplashAdViewTest, a host closing the splash from its skip callback)
// and a tap measured in another view than the one tapped (TrackEventTest).
#include <gtest/gtest.h>

#include "pelora/ui/UI.h"

namespace {

using namespace pelora::ui;
using pelora::platform::makeRect;
using Views = std::vector<std::shared_ptr<View>>;

template <class T = View>
std::shared_ptr<T> make(double x = 0, double y = 0, double w = 10, double h = 10) {
    return std::make_shared<T>(makeRect(x, y, w, h));
}

// A window with a container at (20, 40) holding a child at (10, 10): window point (35, 55) is
// (15, 15) in the container and (5, 5) in the child.
struct Tree {
    std::shared_ptr<Window> window = make<Window>(0, 0, 320, 480);
    std::shared_ptr<View> container = make(20, 40, 200, 100);
    std::shared_ptr<View> child = make(10, 10, 50, 50);
    Tree() {
        window->addSubview(container);
        container->addSubview(child);
    }
};

// Drawing order follows the subviews' order: the renderer's tests bring a view to the front.
TEST(ViewHierarchy, InsertsMovesRefusesCyclesAndTheWindowFollowsTheTree) {
    auto root = make(), a = make(), b = make(), c = make();
    root->addSubview(a);
    root->addSubview(b);
    root->insertSubview(c, 0);
    EXPECT_EQ(root->subviews(), (Views{c, a, b}));
    auto probe = make();
    c->addSubview(probe);
    Tree t;
    t.child->addSubview(c);  // moves: the old parent forgets it
    EXPECT_EQ(root->subviews(), (Views{a, b}));
    EXPECT_EQ(probe->window(), t.window);
    probe->addSubview(t.container);  // a cycle: refused
    EXPECT_EQ(t.container->superview(), t.window);
    c->removeFromSuperview();
    EXPECT_EQ(probe->window(), nullptr);
    root.reset();  // a superview is held weakly
    EXPECT_EQ(b->superview(), nullptr);
}

TEST(ViewGeometry, ConvertsPointsBetweenViewsAndAutoresizesSubviews) {
    Tree t;
    auto sibling = make(100, 0, 50, 50);
    t.container->addSubview(sibling);
    EXPECT_EQ(t.child->convertPointToView({5, 5}, nullptr), (Point{35, 55}));
    EXPECT_EQ(t.child->convertPointToView({5, 5}, sibling.get()), (Point{-85, 15}));

    auto root = make(0, 0, 375, 667), fill = make(0, 0, 375, 667), corner = make(323, 44, 36, 36);
    auto centred = make(155, 300, 64, 64), fixed = make(10, 10, 20, 20);
    fill->setAutoresizingMask(AutoresizingFlexibleWidth | AutoresizingFlexibleHeight);
    corner->setAutoresizingMask(AutoresizingFlexibleLeftMargin | AutoresizingFlexibleBottomMargin);
    centred->setAutoresizingMask(45);  // every margin flexible
    for (auto& v : {fill, corner, centred, fixed}) root->addSubview(v);
    root->setFrame(makeRect(0, 0, 750, 1334));
    EXPECT_EQ(fill->frame(), makeRect(0, 0, 750, 1334));
    EXPECT_EQ(corner->frame(), makeRect(698, 44, 36, 36));  // keeps its right margin
    // The margins (155 and 156 points) take the 375 new points in proportion to their lengths.
    EXPECT_DOUBLE_EQ(centred->frame().origin.x, 155 + 375.0 * 155 / 311);
    EXPECT_EQ(centred->frame().size, (pelora::platform::Size{64, 64}));
    EXPECT_EQ(fixed->frame(), makeRect(10, 10, 20, 20));
}

TEST(ViewHitTesting, SkipsHiddenTransparentAndNonInteractiveViews) {
    Tree t;
    auto under = make(0, 0, 100, 100), over = make(0, 0, 100, 100), out = make(190, 0, 50, 50);
    t.container->insertSubview(under, 0);
    t.container->addSubview(over);
    t.container->addSubview(out);
    // Image views and labels take no touches unless told to.
    t.container->addSubview(make<ImageView>(0, 0, 100, 100));
    t.container->addSubview(make<Label>(0, 0, 100, 100));
    auto hit = [&] { return t.window->hitTest({35, 55}); };
    EXPECT_EQ(hit(), over);  // the last interactive subview wins
    over->setHidden(true);
    EXPECT_EQ(hit(), t.child);
    over->setHidden(false);
    over->setAlpha(0.009);
    EXPECT_EQ(hit(), t.child);
    over->setAlpha(0.01);
    EXPECT_EQ(hit(), over);
    over->setUserInteractionEnabled(false);
    EXPECT_EQ(hit(), t.child);
    t.container->setUserInteractionEnabled(false);  // hides its whole subtree
    EXPECT_EQ(hit(), t.window);
    t.container->setUserInteractionEnabled(true);
    // Outside a view's bounds none of its subviews is reached, even one that sticks out.
    EXPECT_EQ(t.window->hitTest({215, 45}), out);
    EXPECT_EQ(t.window->hitTest({225, 45}), t.window);
    EXPECT_EQ(t.window->hitTest({-1, 10}), nullptr);
}

TEST(ViewTapDelivery, ReachesTheNearestEnabledRecognizerWithItsLocationInAnyView) {
    Tree t;
    std::vector<std::string> log;
    auto tap = std::make_shared<TapGestureRecognizer>([&](TapGestureRecognizer& r) {
        EXPECT_EQ(r.state(), GestureRecognizerState::Recognized);
        EXPECT_EQ(r.locationInView(r.view().get()), (Point{15, 15}));
        EXPECT_EQ(r.locationInView(nullptr), (Point{35, 55}));
        log.push_back("container");
    });
    auto childTap = std::make_shared<TapGestureRecognizer>(
        [&](TapGestureRecognizer&) { log.push_back("child"); });
    t.container->addGestureRecognizer(tap);
    EXPECT_TRUE(t.window->sendTap({35, 55}));  // the child has none: it goes up
    t.child->addGestureRecognizer(childTap);
    t.window->sendTap({35, 55});
    childTap->setEnabled(false);
    t.window->sendTap({35, 55});
    EXPECT_TRUE(t.window->touchDown({35, 55}));
    EXPECT_FALSE(t.window->touchUp({35 + Window::kTapSlop + 1, 55}));  // moved too far
    EXPECT_EQ(log, (std::vector<std::string>{"container", "child", "container"}));
    make()->addGestureRecognizer(tap);  // moves to a view that is gone at once
    EXPECT_TRUE(t.container->gestureRecognizers().empty());
    EXPECT_EQ(tap->view(), nullptr);
}

TEST(ViewTapDelivery, ButtonsFireTouchUpInsideOnlyWhenReleasedInsideAndWhenEnabled) {
    Tree t;
    auto button = make<Button>(0, 0, 40, 20);
    t.child->addSubview(button);
    std::vector<std::string> events;
    for (auto [event, name] : {std::pair{ControlEvent::TouchDown, "down"},
                               {ControlEvent::TouchUpInside, "inside"},
                               {ControlEvent::TouchUpOutside, "outside"}})
        button->addTarget([&events, name](Button&) { events.push_back(name); }, event);
    t.container->addGestureRecognizer(std::make_shared<TapGestureRecognizer>(
        [&](TapGestureRecognizer&) { events.push_back("container"); }));
    EXPECT_TRUE(t.window->sendTap({35, 55}));  // the ancestor's recognizer does not steal it
    t.window->touchDown({35, 55});
    EXPECT_EQ(button->state(), ControlState::Highlighted);
    EXPECT_FALSE(t.window->touchUp({200, 300}));
    EXPECT_FALSE(button->highlighted());
    button->setEnabled(false);  // passes the tap on to its ancestors
    EXPECT_TRUE(t.window->sendTap({35, 55}));
    EXPECT_EQ(events, (std::vector<std::string>{"down", "inside", "down", "outside", "container"}));
}

// Presenting and dismissing pages, and their appearance, are the reward and track tests'.
TEST(ViewControllerPresentation, PresentsOneAtATimeOnTopOfTheWindow) {
    auto window = make<Window>(0, 0, 320, 480);
    auto root = std::make_shared<ViewController>(), first = std::make_shared<ViewController>();
    window->setRootViewController(root);
    root->presentViewController(first, false, nullptr);
    root->presentViewController(std::make_shared<ViewController>(), false, nullptr);
    EXPECT_EQ(root->presentedViewController(), first);
    EXPECT_EQ(window->subviews().back(), first->view());
}

}  // namespace
