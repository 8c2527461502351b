#include "pelora/testing/ManualRunLoop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace pelora::testing {

class ManualRunLoop::TimerImpl final : public platform::Timer {
  public:
    TimerImpl(double due, double interval, bool repeats, uint64_t seq,
              std::function<void(platform::Timer&)> fire)
        : due(due), interval(interval), repeats(repeats), seq(seq), fire(std::move(fire)) {}
    void invalidate() override { valid = false; }
    bool isValid() const override { return valid; }

    double due;
    double interval;
    bool repeats;
    uint64_t seq;
    std::function<void(platform::Timer&)> fire;
    std::atomic<bool> valid{true};
};

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
    std::lock_guard lock(mutex_);
    auto timer = std::make_shared<TimerImpl>(clock_->monotonicSeconds() + interval, interval,
                                             repeats, timerSequence_++, std::move(fire));
    timers_.push_back(timer);
    return timer;
}

std::shared_ptr<ManualRunLoop::TimerImpl> ManualRunLoop::nextTimer() const {
    std::shared_ptr<TimerImpl> next;
    for (const auto& t : timers_) {
        if (!t->valid) continue;
        if (!next || t->due < next->due || (t->due == next->due && t->seq < next->seq)) next = t;
    }
    return next;
}

double ManualRunLoop::nextTimerDelay() const {
    std::lock_guard lock(mutex_);
    auto next = nextTimer();
    if (!next) return -1.0;
    return std::max(0.0, next->due - clock_->monotonicSeconds());
}

size_t ManualRunLoop::fireDueTimers() {
    size_t fired = 0;
    const double now = clock_->monotonicSeconds();
    for (;;) {
        std::shared_ptr<TimerImpl> next;
        {
            std::lock_guard lock(mutex_);
            std::erase_if(timers_, [](const auto& t) { return !t->valid; });
            next = nextTimer();
            if (!next || next->due > now) break;
            if (next->repeats) {
                next->due += next->interval;
            } else {
                next->valid = false;
            }
        }
        ++fired;
        next->fire(*next);
    }
    return fired;
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
        double due;
        {
            std::lock_guard lock(mutex_);
            auto next = nextTimer();
            if (!next || next->due > target) break;
            due = next->due;
        }
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
    std::lock_guard lock(mutex_);
    return static_cast<size_t>(std::count_if(timers_.begin(), timers_.end(),
                                             [](const auto& t) { return t->valid.load(); }));
}

}  // namespace pelora::testing
