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
#include "pelora/testing/ManualClock.h"

namespace pelora::testing {

// A main run loop for tests on a manual clock, in the way of a task environment with mock
// time: posted work runs when the loop is pumped, timers when the test moves the clock past
// them (advance()), and nothing ever waits in real time. post() is thread-safe; everything
// else belongs to the thread that first pumped or ran the loop.
class PELORA_EXPORT ManualRunLoop final : public platform::RunLoop {
  public:
    explicit ManualRunLoop(std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>());
    ~ManualRunLoop() override;
    ManualRunLoop(const ManualRunLoop&) = delete;
    ManualRunLoop& operator=(const ManualRunLoop&) = delete;

    void post(std::function<void()> task) override;
    std::shared_ptr<platform::Timer> scheduleTimer(
        double interval, bool repeats, std::function<void(platform::Timer&)> fire) override;
    // Runs until stop(): posted work, and timers with the clock moved to each in turn.
    void run() override;
    // Runs posted work and moves the clock from timer to timer until `predicate` holds or the
    // next timer lies past `deadline`.
    bool runUntil(const std::function<bool()>& predicate, double deadline) override;
    void stop() override;
    // Runs posted work (also what that work posts) and due timers until nothing is left at
    // the current time; returns how many tasks and timers ran.
    size_t pump() override;
    int wakeFd() const override { return wakeFd_; }
    double nextTimerDelay() const override;
    bool isLoopThread() const override;
    platform::Clock& clock() const override { return *clock_; }

    // Moves the clock forward by `seconds`, stopping at every timer on the way so each fires
    // at the time it was due, and pumping there. Returns how many tasks and timers ran.
    size_t advance(double seconds);

    // What is left in the loop: tasks posted and not run, timers still scheduled.
    size_t pendingTaskCount() const;
    size_t timerCount() const;

    const std::shared_ptr<ManualClock>& manualClock() const { return clock_; }

  private:
    size_t fireDueTimers();
    void bindThread();

    std::shared_ptr<ManualClock> clock_;
    int wakeFd_ = -1;
    mutable std::mutex mutex_;
    std::deque<std::function<void()>> queue_;
    platform::TimerQueue timers_;
    std::atomic<bool> stopRequested_{false};
    std::atomic<std::thread::id> owner_;
};

}  // namespace pelora::testing
