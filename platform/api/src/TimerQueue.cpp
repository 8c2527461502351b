#include "pelora/platform/TimerQueue.h"

#include <algorithm>
#include <atomic>

namespace pelora::platform {

class TimerQueue::Entry final : public Timer {
  public:
    Entry(double due, double interval, bool repeats, uint64_t seq, std::function<void(Timer&)> fire)
        : due(due), interval(interval), repeats(repeats), seq(seq), fire(std::move(fire)) {}
    void invalidate() override { valid = false; }
    bool isValid() const override { return valid; }

    double due;
    double interval;
    bool repeats;
    uint64_t seq;
    std::function<void(Timer&)> fire;
    std::atomic<bool> valid{true};
};

std::shared_ptr<Timer> TimerQueue::schedule(double now, double interval, bool repeats,
                                            std::function<void(Timer&)> fire) {
    std::lock_guard lock(mutex_);
    // Invalidated timers go here as well as when timers fire: a loop whose timers are all
    // cancelled before they are due would otherwise keep every one of them (and what their
    // closures hold) until some timer fires.
    std::erase_if(timers_, [](const auto& t) { return !t->valid; });
    auto timer =
        std::make_shared<Entry>(now + interval, interval, repeats, sequence_++, std::move(fire));
    timers_.push_back(timer);
    return timer;
}

std::shared_ptr<TimerQueue::Entry> TimerQueue::earliest() const {
    std::shared_ptr<Entry> next;
    for (const auto& t : timers_) {
        if (!t->valid) continue;
        if (!next || t->due < next->due || (t->due == next->due && t->seq < next->seq)) next = t;
    }
    return next;
}

double TimerQueue::nextDue() const {
    std::lock_guard lock(mutex_);
    auto next = earliest();
    return next ? next->due : -1.0;
}

bool TimerQueue::anyDue(double now) const {
    std::lock_guard lock(mutex_);
    auto next = earliest();
    return next && next->due <= now;
}

size_t TimerQueue::fireDue(double now) {
    size_t fired = 0;
    for (;;) {
        std::shared_ptr<Entry> next;
        {
            std::lock_guard lock(mutex_);
            std::erase_if(timers_, [](const auto& t) { return !t->valid; });
            next = earliest();
            if (!next || next->due > now) break;
            if (next->repeats) {
                next->due += next->interval;
                // After a very long jump, catch up at most a thousand periods.
                if (next->due + 1000 * next->interval < now)
                    next->due = now - 1000 * next->interval;
            } else {
                next->valid = false;
            }
        }
        ++fired;
        next->fire(*next);
    }
    return fired;
}

size_t TimerQueue::count() const {
    std::lock_guard lock(mutex_);
    return static_cast<size_t>(std::count_if(timers_.begin(), timers_.end(),
                                             [](const auto& t) { return t->valid.load(); }));
}

}  // namespace pelora::platform
