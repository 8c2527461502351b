#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/RunLoop.h"
#include "pelora/platform/UrlOpener.h"

namespace pelora::desktop {

// Opens URLs with the desktop's URL handler. The handler program is started directly (no
// shell), with the URL as its only argument, on a background thread; its exit status 0 means
// success. The completion is posted to the main run loop. URLs that the scheme rules refuse
// start nothing and complete with false.
class PELORA_EXPORT XdgUrlOpener final : public platform::UrlOpener {
  public:
    // `program` is looked up on PATH; tests pass "true" or "false". `mainLoop` null means
    // the installed services' main run loop at the time of each call.
    explicit XdgUrlOpener(std::string program = "xdg-open",
                          std::shared_ptr<platform::RunLoop> mainLoop = nullptr,
                          double handlerTimeoutSeconds = 30.0);
    // Waits for running handlers; handlers still running are killed (their completions
    // then report false).
    ~XdgUrlOpener() override;
    XdgUrlOpener(const XdgUrlOpener&) = delete;
    XdgUrlOpener& operator=(const XdgUrlOpener&) = delete;

    void openURL(const std::string& url, platform::UrlOpenPurpose purpose,
                 std::function<void(bool success)> completion) override;

  private:
    bool runHandler(const std::string& url);
    void reapFinished();

    std::string program_;
    std::shared_ptr<platform::RunLoop> mainLoop_;
    double handlerTimeoutSeconds_;

    std::mutex mutex_;
    std::condition_variable stopping_;
    bool shuttingDown_ = false;
    struct Worker {
        std::thread thread;
        std::shared_ptr<bool> done;
    };
    std::vector<Worker> workers_;
};

}  // namespace pelora::desktop
