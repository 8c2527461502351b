#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "pelora/platform/Export.h"

namespace pelora::platform {

// Why a URL is opened. Both follow one scheme rule (isOpenableURL); the purpose tells a
// backend what the user expects to see.
enum class UrlOpenPurpose {
    // The ad's landing page, for the system browser or whichever app handles its URL (an
    // app-store link, a custom scheme).
    LandingPage,
    // A link into another application.
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

// The scheme rule of UrlOpener, shared by every backend so they cannot drift: the URL must be
// well formed and its scheme any but file, data and javascript, which never leave the SDK.
PELORA_EXPORT bool isOpenableURL(std::string_view url, UrlOpenPurpose purpose);

// A well-formed http or https URL: what the in-app browser shows.
PELORA_EXPORT bool isWebURL(std::string_view url);

}  // namespace pelora::platform
