#include "pelora/testing/ManualRunLoop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace pelora::testing {

ManualRunLoop::ManualRunLoop(std::shared_ptr<ManualClock> clock) : clock_(std::move(clock)) {
    wakeFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

ManualRunLoop::~ManualRunLoop() {
    if (wakeFd_ >= 0) ::close(wakeFd_);
}

void ManualRunLoop::bindThread() {
    const auto me = std::this_thread::get_id();
    auto owner = owner_.load();
    if (owner == std::thread::id()) {
        owner_.compare_exchange_strong(owner, me);
        return;
    }
    if (owner != me) {
        std::fprintf(stderr,
                     "pelora: the main run loop belongs to the thread that first ran it; it was "
                     "pumped from another thread\n");
        std::abort();
    }
}

bool ManualRunLoop::isLoopThread() const {
    const auto owner = owner_.load();
    return owner == std::thread::id() || owner == std::this_thread::get_id();
}

void ManualRunLoop::post(std::function<void()> task) {
    std::lock_guard lock(mutex_);
    queue_.push_back(std::move(task));
    uint64_t one = 1;
    [[maybe_unused]] auto n = ::write(wakeFd_, &one, sizeof one);
}

std::shared_ptr<platform::Timer> ManualRunLoop::scheduleTimer(
    double interval, bool repeats, std::function<void(platform::Timer&)> fire) {
    // A repeating timer of no interval would never let time move.
    if (repeats) interval = std::max(interval, 0.0001);
    interval = std::max(interval, 0.0);
    return timers_.schedule(clock_->monotonicSeconds(), interval, repeats, std::move(fire));
}

double ManualRunLoop::nextTimerDelay() const {
    const double due = timers_.nextDue();
    if (due < 0) return -1.0;
    return std::max(0.0, due - clock_->monotonicSeconds());
}

size_t ManualRunLoop::fireDueTimers() {
    return timers_.fireDue(clock_->monotonicSeconds());
}

size_t ManualRunLoop::pump() {
    bindThread();
    size_t ran = 0;
    for (;;) {
        std::deque<std::function<void()>> batch;
        {
            std::lock_guard lock(mutex_);
            uint64_t counter;
            [[maybe_unused]] auto n = ::read(wakeFd_, &counter, sizeof counter);
            batch.swap(queue_);
        }
        size_t round = batch.size();
        for (auto& task : batch)
            if (task) task();
        round += fireDueTimers();
        ran += round;
        if (round == 0) break;
    }
    return ran;
}

size_t ManualRunLoop::advance(double seconds) {
    bindThread();
    const double target = clock_->monotonicSeconds() + seconds;
    size_t ran = pump();
    for (;;) {
        const double due = timers_.nextDue();
        if (due < 0 || due > target) break;
        if (due > clock_->monotonicSeconds()) clock_->advance(due - clock_->monotonicSeconds());
        ran += pump();
    }
    if (target > clock_->monotonicSeconds()) clock_->advance(target - clock_->monotonicSeconds());
    ran += pump();
    return ran;
}

void ManualRunLoop::run() {
    bindThread();
    while (!stopRequested_) {
        pump();
        if (stopRequested_) break;
        double delay = nextTimerDelay();
        if (delay < 0) break;  // nothing can ever happen again
        clock_->advance(delay);
    }
    stopRequested_ = false;
}

bool ManualRunLoop::runUntil(const std::function<bool()>& predicate, double deadline) {
    bindThread();
    for (;;) {
        pump();
        if (predicate && predicate()) return true;
        if (stopRequested_) break;
        double delay = nextTimerDelay();
        if (delay < 0 || clock_->monotonicSeconds() + delay > deadline) break;
        clock_->advance(delay);
    }
    stopRequested_ = false;
    return predicate ? predicate() : false;
}

void ManualRunLoop::stop() {
    stopRequested_ = true;
}

size_t ManualRunLoop::pendingTaskCount() const {
    std::lock_guard lock(mutex_);
    return queue_.size();
}

size_t ManualRunLoop::timerCount() const {
    return timers_.count();
}

}  // namespace pelora::testing
