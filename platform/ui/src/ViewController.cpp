#include "pelora/ui/ViewController.h"

#include <algorithm>

#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"
#include "pelora/ui/Window.h"

namespace pelora::ui {

ViewController::~ViewController() = default;

std::shared_ptr<View> ViewController::view() {
    if (!view_) {
        loadView();
        if (!view_) view_ = std::make_shared<View>();
        viewDidLoad();
    }
    return view_;
}

void ViewController::setView(std::shared_ptr<View> view) {
    view_ = std::move(view);
}

void ViewController::loadView() {
    Rect frame;
    if (platform::hasServices() && platform::services().device)
        frame = platform::services().device->screenBounds();
    view_ = std::make_shared<View>(frame);
}

void ViewController::presentViewController(const std::shared_ptr<ViewController>& controller,
                                           bool animated, std::function<void()> completion) {
    if (!controller || controller.get() == this || presented_ ||
        controller->presentingViewController()) {
        platform::log(platform::LogLevel::Warning,
                      "ui: presentation refused: " + className() + " is already presenting or " +
                          (controller ? controller->className() : std::string("nothing")) +
                          " is already presented");
        return;
    }
    presented_ = controller;
    controller->presenting_ = weak_from_this();
    lastTransitionAnimated_ = animated;
    controller->lastTransitionAnimated_ = animated;

    auto presentedView = controller->view();
    if (auto window = view()->window()) {
        presentedView->setFrame(window->bounds());
        window->addSubview(presentedView);
    }
    controller->viewWillAppear(animated);
    controller->viewDidAppear(animated);
    if (completion) completion();
}

void ViewController::dismissViewControllerAnimated(bool animated,
                                                   std::function<void()> completion) {
    std::shared_ptr<ViewController> presenter =
        presented_ ? shared_from_this() : presentingViewController();
    if (!presenter) return;
    auto dismissed = presenter->presented_;
    // Everything stacked on top of the dismissed controller goes with it, topmost first.
    std::vector<std::shared_ptr<ViewController>> chain;
    for (auto c = dismissed; c; c = c->presented_) chain.push_back(c);
    std::reverse(chain.begin(), chain.end());
    for (auto& c : chain) {
        c->viewWillDisappear(animated);
        if (c->isViewLoaded()) c->view_->removeFromSuperview();
        c->viewDidDisappear(animated);
    }
    for (auto& c : chain) {
        c->presenting_.reset();
        c->presented_.reset();
    }
    presenter->presented_.reset();
    presenter->lastTransitionAnimated_ = animated;
    if (completion) completion();
}

std::shared_ptr<NavigationController> NavigationController::initWithRootViewController(
    std::shared_ptr<ViewController> root) {
    auto nav = std::make_shared<NavigationController>();
    if (root) nav->setViewControllers({std::move(root)});
    return nav;
}

void NavigationController::loadView() {
    ViewController::loadView();
    showTop();
}

void NavigationController::viewWillAppear(bool animated) {
    if (auto top = topViewController()) top->viewWillAppear(animated);
}
void NavigationController::viewDidAppear(bool animated) {
    if (auto top = topViewController()) top->viewDidAppear(animated);
}
void NavigationController::viewWillDisappear(bool animated) {
    if (auto top = topViewController()) top->viewWillDisappear(animated);
}
void NavigationController::viewDidDisappear(bool animated) {
    if (auto top = topViewController()) top->viewDidDisappear(animated);
}

void NavigationController::showTop() {
    if (!isViewLoaded()) return;
    auto container = view();
    auto top = topViewController();
    for (auto& c : stack_) {
        if (c == top || !c->isViewLoaded()) continue;
        auto v = c->view();
        if (v->superview() == container) v->removeFromSuperview();
    }
    if (top) {
        auto v = top->view();
        v->setFrame(container->bounds());
        container->addSubview(v);
    }
}

void NavigationController::pushViewController(const std::shared_ptr<ViewController>& controller,
                                              bool animated) {
    if (!controller || std::find(stack_.begin(), stack_.end(), controller) != stack_.end()) return;
    controller->navigationController_ =
        std::static_pointer_cast<NavigationController>(shared_from_this());
    stack_.push_back(controller);
    lastPushAnimated_ = animated;
    showTop();
}

std::shared_ptr<ViewController> NavigationController::popViewControllerAnimated(bool animated) {
    if (stack_.size() <= 1) return nullptr;
    auto top = stack_.back();
    stack_.pop_back();
    if (top->isViewLoaded()) top->view()->removeFromSuperview();
    top->navigationController_.reset();
    lastPushAnimated_ = animated;
    showTop();
    return top;
}

void NavigationController::popToRootViewControllerAnimated(bool animated) {
    while (stack_.size() > 1) popViewControllerAnimated(animated);
}

void NavigationController::setViewControllers(
    std::vector<std::shared_ptr<ViewController>> controllers) {
    for (auto& c : stack_) {
        if (c->isViewLoaded()) c->view()->removeFromSuperview();
        c->navigationController_.reset();
    }
    stack_.clear();
    for (auto& c : controllers) {
        if (!c || std::find(stack_.begin(), stack_.end(), c) != stack_.end()) continue;
        c->navigationController_ =
            std::static_pointer_cast<NavigationController>(shared_from_this());
        stack_.push_back(c);
    }
    showTop();
}

std::shared_ptr<ViewController> NavigationController::topViewController() const {
    return stack_.empty() ? nullptr : stack_.back();
}

}  // namespace pelora::ui
