#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "pelora/platform/Export.h"

namespace pelora::platform {

// Why a URL is opened; the two kinds follow different scheme rules (isOpenableURL).
enum class UrlOpenPurpose {
    // A web page for the user: http and https only.
    LandingPage,
    // A link into another application: any application scheme except file, data and
    // javascript.
    DeepLink,
};

// Opens URLs outside the application (browser, or the app that owns a deep-link scheme).
class PELORA_EXPORT UrlOpener {
  public:
    virtual ~UrlOpener() = default;
    // Asynchronous; the completion (if any) runs on the main run loop with the success flag.
    // A URL that isOpenableURL refuses for its purpose is not opened: completion(false).
    virtual void openURL(const std::string& url, UrlOpenPurpose purpose,
                         std::function<void(bool success)> completion) = 0;
};

// The text a URL object can be made from: non-empty, printable ASCII only, no space and none
// of " < > \ ^ ` { | }, every "%" followed by two hex digits, at most one "#". Text that fails
// this is "malformed" for the SDK's URL steps.
PELORA_EXPORT bool isWellFormedURL(std::string_view text);

// The URL's scheme in lower case ("" when the text does not start with a valid scheme
// followed by ":").
PELORA_EXPORT std::string urlScheme(std::string_view url);

// The scheme rules of UrlOpener, shared by every backend so they cannot drift: the URL must
// be well formed and its scheme allowed for the purpose.
PELORA_EXPORT bool isOpenableURL(std::string_view url, UrlOpenPurpose purpose);

}  // namespace pelora::platform
