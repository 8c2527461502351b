#pragma once

#include <functional>
#include <string>

namespace pelora::platform {

// Opens URLs outside the application (browser, or the app that owns a deep-link scheme).
class UrlOpener {
public:
    virtual ~UrlOpener() = default;
    // Asynchronous; the completion (if any) runs on the main run loop with the success flag.
    // Implementations refuse the file, data and javascript schemes.
    virtual void openURL(const std::string& url, std::function<void(bool success)> completion) = 0;
};

}  // namespace pelora::platform
