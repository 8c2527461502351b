#include "pelora/desktop/XdgUrlOpener.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>

#include "pelora/platform/Log.h"
#include "pelora/platform/Services.h"

extern char** environ;

namespace pelora::desktop {

XdgUrlOpener::XdgUrlOpener(std::string program, std::shared_ptr<platform::RunLoop> mainLoop,
                           double handlerTimeoutSeconds)
    : program_(std::move(program)),
      mainLoop_(std::move(mainLoop)),
      handlerTimeoutSeconds_(handlerTimeoutSeconds) {}

XdgUrlOpener::~XdgUrlOpener() {
    std::vector<Worker> workers;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        shuttingDown_ = true;
        workers.swap(workers_);
    }
    stopping_.notify_all();
    for (auto& w : workers) w.thread.join();
}

void XdgUrlOpener::reapFinished() {
    std::vector<Worker> finished;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto it = workers_.begin(); it != workers_.end();) {
            if (*it->done) {
                finished.push_back(std::move(*it));
                it = workers_.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto& w : finished) w.thread.join();
}

void XdgUrlOpener::openURL(const std::string& url, platform::UrlOpenPurpose purpose,
                           std::function<void(bool success)> completion) {
    auto loop = mainLoop_ ? mainLoop_ : platform::services().mainRunLoop;
    if (!platform::isOpenableURL(url, purpose)) {
        platform::log(platform::LogLevel::Info, "url opener: refused " + url);
        if (completion && loop) loop->post([completion] { completion(false); });
        return;
    }
    reapFinished();
    auto done = std::make_shared<bool>(false);
    std::lock_guard<std::mutex> lock(mutex_);
    if (shuttingDown_) return;
    std::thread thread([this, url, loop, completion = std::move(completion), done] {
        bool ok = runHandler(url);
        if (completion && loop) loop->post([completion, ok] { completion(ok); });
        std::lock_guard<std::mutex> lock(mutex_);
        *done = true;
    });
    workers_.push_back(Worker{std::move(thread), done});
}

bool XdgUrlOpener::runHandler(const std::string& url) {
    std::string program = program_;
    std::string argument = url;
    char* argv[] = {program.data(), argument.data(), nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, program.c_str(), nullptr, nullptr, argv, environ) != 0) {
        platform::log(platform::LogLevel::Warning, "url opener: cannot start " + program_);
        return false;
    }
    // The handler usually returns at once; a stuck one is killed after the time limit or
    // when the opener goes away, so no thread outlives the opener.
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                        std::chrono::duration<double>(handlerTimeoutSeconds_));
    int status = 0;
    for (;;) {
        pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid) break;
        if (r < 0) return false;
        std::unique_lock<std::mutex> lock(mutex_);
        if (shuttingDown_ || std::chrono::steady_clock::now() >= deadline) {
            lock.unlock();
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return false;
        }
        stopping_.wait_for(lock, std::chrono::milliseconds(20));
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace pelora::desktop
