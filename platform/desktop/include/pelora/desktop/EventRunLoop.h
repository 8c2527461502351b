#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/RunLoop.h"
#include "pelora/platform/TimerQueue.h"

namespace pelora::desktop {

// The Linux main run loop: a task queue, timers on a Clock and watched descriptors. The wake
// descriptor is an epoll set holding an eventfd (readable while posted work waits) and every
// watched descriptor, so a host that embeds the loop wakes for all of them. Works with the system
// clock and with a manual clock (time then moves only when the test advances it; waiting for posted
// work still happens in real time, bounded by the same number of seconds).
class PELORA_EXPORT EventRunLoop final : public platform::RunLoop {
  public:
    explicit EventRunLoop(std::shared_ptr<platform::Clock> clock);
    ~EventRunLoop() override;
    EventRunLoop(const EventRunLoop&) = delete;
    EventRunLoop& operator=(const EventRunLoop&) = delete;

    void post(std::function<void()> task) override;
    std::shared_ptr<platform::Timer> scheduleTimer(
        double interval, bool repeats, std::function<void(platform::Timer&)> fire) override;
    void run() override;
    bool runUntil(const std::function<bool()>& predicate, double deadline) override;
    void stop() override;
    size_t pump() override;
    int wakeFd() const override { return epollFd_; }
    double nextTimerDelay() const override;
    std::shared_ptr<platform::Timer> watchFd(int fd, std::function<void()> readable) override;
    bool isLoopThread() const override;
    platform::Clock& clock() const override { return *clock_; }

  private:
    class WatchImpl;
    void waitForWork(double maxSeconds);
    size_t fireDueTimers();
    size_t serviceWatches();
    bool wakeFdReadable() const;
    // The loop belongs to the thread that first runs or pumps it (until then, to the thread
    // that made it). Debug builds stop with a message when another thread runs it later.
    void bindThread();

    std::shared_ptr<platform::Clock> clock_;
    int eventFd_ = -1;
    int epollFd_ = -1;
    std::vector<std::shared_ptr<WatchImpl>> watches_;
    uint64_t watchSequence_ = 0;
    mutable std::mutex mutex_;
    std::deque<std::function<void()>> queue_;
    platform::TimerQueue timers_;
    std::atomic<bool> stopRequested_{false};
    std::atomic<std::thread::id> owner_;
    std::atomic<bool> bound_{false};
};

}  // namespace pelora::desktop
