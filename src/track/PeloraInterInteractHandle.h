#pragma once

#include <functional>
#include <memory>
#include <string>

namespace pelora::ui {
class NavigationController;
}
class PeloraTrackEvent;

// Opens a click's destination: a deep link, a landing page in the external browser, or a
// landing page in an in-app browser over the tracker's root view controller. It knows
// nothing about ads; the tracker decides which operation to call.
class PeloraInterInteractHandle : public std::enable_shared_from_this<PeloraInterInteractHandle> {
  public:
    PeloraInterInteractHandle() = default;

    std::shared_ptr<PeloraTrackEvent> eventTrack() const { return eventTrack_.lock(); }
    void setEventTrack(std::weak_ptr<PeloraTrackEvent> tracker) {
        eventTrack_ = std::move(tracker);
    }

    // Opens the page outside the app. If that fails (a malformed text included), opens
    // formatUrl(url) once more, without looking at the outcome.
    void openSafari(const std::string& url);
    // Presents an in-app browser over the tracker's adRootVC, over full screen. Nothing is
    // shown when the tracker or its root view controller is gone.
    void openWebView(const std::string& url);
    void pushWebView(const std::string& url,
                     const std::shared_ptr<pelora::ui::NavigationController>& nav);
    // Asks the platform to open the deep link; the completion gets its success flag as is.
    void openDeepLink(const std::string& url, std::function<void(bool success)> completionHandler);

    // Keeps the text up to the first "?", drops every further "?", and URL-encodes the rest.
    std::string formatUrl(const std::string& url) const;

  private:
    std::string urlForPage(const std::string& text) const;

    std::weak_ptr<PeloraTrackEvent> eventTrack_;
};
