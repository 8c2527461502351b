#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/ui/View.h"

namespace pelora::ui {

// Values as the phone platform numbers them.
enum class ModalPresentationStyle : int {
    FullScreen = 0,
    PageSheet = 1,
    FormSheet = 2,
    CurrentContext = 3,
    Custom = 4,
    OverFullScreen = 5,
    OverCurrentContext = 6,
    Popover = 7,
    None = -1,
    Automatic = -2,
};

class NavigationController;

// Owns one screen's root view, created on first use. Presentation puts the presented
// controller's view on top of the presenting controller's window (filling it), so taps reach
// it through Window::sendTap. There is no animation: "animated" is recorded and completions
// run before the call returns.
class PELORA_EXPORT ViewController : public std::enable_shared_from_this<ViewController> {
  public:
    ViewController() = default;
    virtual ~ViewController();
    ViewController(const ViewController&) = delete;
    ViewController& operator=(const ViewController&) = delete;

    virtual std::string className() const { return "ViewController"; }

    // Creates the view on first use (loadView, then viewDidLoad).
    std::shared_ptr<View> view();
    bool isViewLoaded() const { return view_ != nullptr; }
    void setView(std::shared_ptr<View> view);

    // Makes the root view; the default is a plain view the size of the main screen (when
    // platform services are installed) or empty.
    virtual void loadView();
    virtual void viewDidLoad() {}
    virtual void viewWillAppear(bool /*animated*/) {}
    virtual void viewDidAppear(bool /*animated*/) {}
    virtual void viewWillDisappear(bool /*animated*/) {}
    virtual void viewDidDisappear(bool /*animated*/) {}

    const std::optional<std::string>& title() const { return title_; }
    void setTitle(std::optional<std::string> title) { title_ = std::move(title); }

    ModalPresentationStyle modalPresentationStyle() const { return modalPresentationStyle_; }
    void setModalPresentationStyle(ModalPresentationStyle style) {
        modalPresentationStyle_ = style;
    }

    // A controller presents at most one other controller at a time: presenting while one is
    // shown, or presenting a controller that is already presented, does nothing (and the
    // completion is not called).
    void presentViewController(const std::shared_ptr<ViewController>& controller, bool animated,
                               std::function<void()> completion);
    // Called on the presenting controller, dismisses what it presents; called on a presented
    // controller that presents nothing, asks its presenter to dismiss it.
    void dismissViewControllerAnimated(bool animated, std::function<void()> completion);
    std::shared_ptr<ViewController> presentedViewController() const { return presented_; }
    std::shared_ptr<ViewController> presentingViewController() const { return presenting_.lock(); }
    // Whether the last presentation or dismissal asked for animation (for tests and renderers).
    bool lastTransitionAnimated() const { return lastTransitionAnimated_; }

    // The navigation controller whose stack holds this controller, or null.
    std::shared_ptr<NavigationController> navigationController() const {
        return navigationController_.lock();
    }

  private:
    friend class NavigationController;

    std::shared_ptr<View> view_;
    std::optional<std::string> title_;
    ModalPresentationStyle modalPresentationStyle_ = ModalPresentationStyle::FullScreen;
    std::shared_ptr<ViewController> presented_;
    std::weak_ptr<ViewController> presenting_;
    std::weak_ptr<NavigationController> navigationController_;
    bool lastTransitionAnimated_ = false;
};

// A stack of controllers; the top one's view fills the navigation controller's view.
class PELORA_EXPORT NavigationController : public ViewController {
  public:
    NavigationController() = default;
    // Use initWithRootViewController: the stack needs shared_from_this.
    static std::shared_ptr<NavigationController> initWithRootViewController(
        std::shared_ptr<ViewController> root);

    std::string className() const override { return "NavigationController"; }

    void pushViewController(const std::shared_ptr<ViewController>& controller, bool animated);
    // Pops the top controller unless it is the root; returns it (or null).
    std::shared_ptr<ViewController> popViewControllerAnimated(bool animated);
    void popToRootViewControllerAnimated(bool animated);
    const std::vector<std::shared_ptr<ViewController>>& viewControllers() const { return stack_; }
    void setViewControllers(std::vector<std::shared_ptr<ViewController>> controllers);
    std::shared_ptr<ViewController> topViewController() const;

    bool navigationBarHidden() const { return navigationBarHidden_; }
    void setNavigationBarHidden(bool hidden) { navigationBarHidden_ = hidden; }

    void loadView() override;
    // Appearance goes on to the top controller, as a phone's navigation container does.
    void viewWillAppear(bool animated) override;
    void viewDidAppear(bool animated) override;
    void viewWillDisappear(bool animated) override;
    void viewDidDisappear(bool animated) override;
    bool lastPushAnimated() const { return lastPushAnimated_; }

  private:
    void showTop();

    bool lastPushAnimated_ = false;

    std::vector<std::shared_ptr<ViewController>> stack_;
    bool navigationBarHidden_ = false;
};

// The in-app browser page for one URL. Loading and drawing the page is a renderer's job;
// here it records what it was asked to show.
class PELORA_EXPORT BrowserViewController : public ViewController {
  public:
    explicit BrowserViewController(std::string url) : url_(std::move(url)) {}
    std::string className() const override { return "BrowserViewController"; }
    const std::string& url() const { return url_; }

  private:
    std::string url_;
};

}  // namespace pelora::ui
