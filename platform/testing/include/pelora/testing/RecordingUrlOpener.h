#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/RunLoop.h"
#include "pelora/platform/UrlOpener.h"

namespace pelora::testing {

// A URL opener for tests: it records every URL it is asked to open and answers from a script
// (success by default), always through the main run loop like a real opener. The scheme
// rules apply as in the desktop opener: a refused URL is recorded with refused = true and
// completes with false.
class PELORA_EXPORT RecordingUrlOpener final : public platform::UrlOpener {
  public:
    struct Request {
        std::string url;
        platform::UrlOpenPurpose purpose;
        bool refused = false;  // the scheme rules turned it down; nothing was "opened"
        bool result = false;   // what the completion got
        bool hadCompletion = false;
    };

    // `mainLoop` null means the installed services' main run loop at the time of each call.
    explicit RecordingUrlOpener(std::shared_ptr<platform::RunLoop> mainLoop = nullptr);

    void openURL(const std::string& url, platform::UrlOpenPurpose purpose,
                 std::function<void(bool success)> completion) override;

    // --- script --------------------------------------------------------------------------
    void setDefaultResult(bool success);
    // Every URL with this scheme (case-insensitive) fails to open.
    void failScheme(const std::string& scheme);
    // Exact URL text → result; wins over the scheme list and the default.
    void setResultForURL(const std::string& url, bool success);
    // Full control: when set, decides every non-refused request.
    void setResponder(
        std::function<bool(const std::string& url, platform::UrlOpenPurpose)> responder);

    // --- record --------------------------------------------------------------------------
    std::vector<Request> requests() const;
    // URLs that passed the scheme rules, in order.
    std::vector<std::string> openedURLs() const;
    size_t count() const;
    void clear();

  private:
    bool decide(const std::string& url, platform::UrlOpenPurpose purpose) const;

    std::shared_ptr<platform::RunLoop> mainLoop_;
    mutable std::mutex mutex_;
    bool defaultResult_ = true;
    std::set<std::string> failingSchemes_;
    std::vector<std::pair<std::string, bool>> urlResults_;
    std::function<bool(const std::string&, platform::UrlOpenPurpose)> responder_;
    std::vector<Request> requests_;
};

}  // namespace pelora::testing
