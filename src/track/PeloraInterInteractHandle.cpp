#include "track/PeloraInterInteractHandle.h"

#include "pelora/platform/Services.h"
#include "pelora/platform/UrlOpener.h"
#include "pelora/ui/ViewController.h"
#include "support/PeloraTool.h"
#include "track/PeloraTrackEvent.h"

using pelora::platform::UrlOpenPurpose;

namespace {

// Without an opener nothing can be opened; the answer still comes later, on the main run
// loop, like a real one.
void openThroughPlatform(const std::string& url, UrlOpenPurpose purpose,
                         std::function<void(bool)> completion) {
    const auto& services = pelora::platform::services();
    if (services.urlOpener) {
        services.urlOpener->openURL(url, purpose, std::move(completion));
    } else if (completion && services.mainRunLoop) {
        services.mainRunLoop->post([completion = std::move(completion)] { completion(false); });
    }
}

}  // namespace

std::string PeloraInterInteractHandle::formatUrl(const std::string& url) const {
    size_t first = url.find('?');
    if (first == std::string::npos) return url;
    std::string rest;
    rest.reserve(url.size() - first);
    for (size_t i = first + 1; i < url.size(); ++i)
        if (url[i] != '?') rest.push_back(url[i]);
    return url.substr(0, first) + "?" + PeloraTool::stringByURLEncode(rest);
}

void PeloraInterInteractHandle::openSafari(const std::string& url) {
    // The retry holds the handler, not the tracker: it happens even if the ad went away.
    auto self = shared_from_this();
    openThroughPlatform(url, UrlOpenPurpose::LandingPage, [self, url](bool success) {
        if (success) return;
        openThroughPlatform(self->formatUrl(url), UrlOpenPurpose::LandingPage, nullptr);
    });
}

std::string PeloraInterInteractHandle::urlForPage(const std::string& text) const {
    return pelora::platform::isWellFormedURL(text) ? text : formatUrl(text);
}

void PeloraInterInteractHandle::openWebView(const std::string& url) {
    std::string page = urlForPage(url);
    // The in-app browser shows web pages only.
    if (!pelora::platform::isWebURL(page)) return;
    auto tracker = eventTrack();
    if (!tracker) return;
    auto root = tracker->adRootVC();
    if (!root) return;
    auto browser = std::make_shared<pelora::ui::BrowserViewController>(page);
    browser->setModalPresentationStyle(pelora::ui::ModalPresentationStyle::OverFullScreen);
    root->presentViewController(browser, true, nullptr);
}

void PeloraInterInteractHandle::pushWebView(
    const std::string& url, const std::shared_ptr<pelora::ui::NavigationController>& nav) {
    std::string page = urlForPage(url);
    if (!nav || !pelora::platform::isWebURL(page)) return;
    nav->pushViewController(std::make_shared<pelora::ui::BrowserViewController>(page), true);
}

void PeloraInterInteractHandle::openDeepLink(const std::string& url,
                                             std::function<void(bool success)> completionHandler) {
    openThroughPlatform(url, UrlOpenPurpose::DeepLink,
                        [completionHandler = std::move(completionHandler)](bool success) {
                            if (completionHandler) completionHandler(success);
                        });
}
