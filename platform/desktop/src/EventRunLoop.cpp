#include "pelora/desktop/EventRunLoop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace pelora::desktop {

class EventRunLoop::TimerImpl final : public platform::Timer {
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

EventRunLoop::EventRunLoop(std::shared_ptr<platform::Clock> clock)
    : clock_(std::move(clock)), owner_(std::this_thread::get_id()) {
    eventFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (eventFd_ < 0) throw std::runtime_error("eventfd failed");
}

EventRunLoop::~EventRunLoop() {
    if (eventFd_ >= 0) ::close(eventFd_);
}

void EventRunLoop::post(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(task));
    }
    uint64_t one = 1;
    // A full counter (practically impossible) still leaves the descriptor readable.
    [[maybe_unused]] auto n = ::write(eventFd_, &one, sizeof one);
}

std::shared_ptr<platform::Timer> EventRunLoop::scheduleTimer(
    double interval, bool repeats, std::function<void(platform::Timer&)> fire) {
    // A zero or negative interval behaves as a very short one, so a repeating timer can
    // never spin the loop.
    interval = std::max(interval, 0.0001);
    std::lock_guard lock(mutex_);
    auto timer = std::make_shared<TimerImpl>(clock_->monotonicSeconds() + interval, interval,
                                             repeats, timerSequence_++, std::move(fire));
    timers_.push_back(timer);
    return timer;
}

bool EventRunLoop::isLoopThread() const { return owner_.load() == std::this_thread::get_id(); }

double EventRunLoop::nextTimerDelay() const {
    std::lock_guard lock(mutex_);
    double best = std::numeric_limits<double>::infinity();
    for (const auto& t : timers_) {
        if (t->valid) best = std::min(best, t->due);
    }
    if (std::isinf(best)) return -1.0;
    return std::max(0.0, best - clock_->monotonicSeconds());
}

size_t EventRunLoop::fireDueTimers() {
    size_t fired = 0;
    const double now = clock_->monotonicSeconds();
    for (;;) {
        std::shared_ptr<TimerImpl> next;
        {
            std::lock_guard lock(mutex_);
            std::erase_if(timers_, [](const auto& t) { return !t->valid; });
            for (const auto& t : timers_) {
                if (t->due <= now && (!next || t->due < next->due ||
                                      (t->due == next->due && t->seq < next->seq))) {
                    next = t;
                }
            }
            if (!next) break;
            if (next->repeats) {
                next->due += next->interval;
                // After a very long jump, catch up at most a thousand periods.
                if (next->due + 1000 * next->interval < now) {
                    next->due = now - 1000 * next->interval;
                }
            } else {
                next->valid = false;
            }
        }
        ++fired;
        next->fire(*next);
    }
    return fired;
}

size_t EventRunLoop::pump() {
    owner_ = std::this_thread::get_id();
    std::deque<std::function<void()>> batch;
    {
        std::lock_guard lock(mutex_);
        uint64_t counter;
        [[maybe_unused]] auto n = ::read(eventFd_, &counter, sizeof counter);
        batch.swap(queue_);
    }
    size_t ran = batch.size();
    for (auto& task : batch) {
        if (task) task();
    }
    ran += fireDueTimers();
    return ran;
}

void EventRunLoop::waitForWork(double maxSeconds) {
    double timerDelay = nextTimerDelay();
    double wait = maxSeconds;
    if (timerDelay >= 0) wait = std::min(wait, timerDelay);
    {
        std::lock_guard lock(mutex_);
        if (!queue_.empty()) return;
    }
    if (wait <= 0) return;
    int ms = static_cast<int>(std::ceil(std::min(wait, 3600.0) * 1000.0));
    pollfd pfd{eventFd_, POLLIN, 0};
    ::poll(&pfd, 1, ms);
}

void EventRunLoop::run() {
    owner_ = std::this_thread::get_id();
    stopRequested_ = false;
    while (!stopRequested_) {
        pump();
        if (stopRequested_) break;
        waitForWork(3600.0);
    }
    stopRequested_ = false;
}

bool EventRunLoop::runUntil(const std::function<bool()>& predicate, double deadline) {
    owner_ = std::this_thread::get_id();
    stopRequested_ = false;
    for (;;) {
        pump();
        if (predicate && predicate()) return true;
        if (stopRequested_) break;
        double now = clock_->monotonicSeconds();
        if (now >= deadline) break;
        waitForWork(deadline - now);
        // With a manual clock no time passes while waiting: give up once a wait found nothing
        // to do and nothing can become due before the deadline.
        if (clock_->monotonicSeconds() == now) {
            std::lock_guard lock(mutex_);
            if (queue_.empty()) {
                bool timerDue = false;
                for (const auto& t : timers_) timerDue |= (t->valid && t->due <= now);
                if (!timerDue) {
                    // Real time passed in the wait; loop again only if work arrived.
                    pollfd pfd{eventFd_, POLLIN, 0};
                    if (::poll(&pfd, 1, 0) <= 0) break;
                }
            }
        }
    }
    stopRequested_ = false;
    return predicate ? predicate() : false;
}

void EventRunLoop::stop() {
    stopRequested_ = true;
    uint64_t one = 1;
    [[maybe_unused]] auto n = ::write(eventFd_, &one, sizeof one);
}

}  // namespace pelora::desktop
