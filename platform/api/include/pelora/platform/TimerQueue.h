#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/RunLoop.h"

namespace pelora::platform {

// The timers of a run loop: what is due when, in the order they were due (and, at the same
// time, in the order they were made). Times are values of the loop's clock. Thread-safe;
// timers fire without the queue's lock held, so a timer may schedule or invalidate timers.
class PELORA_EXPORT TimerQueue {
  public:
    std::shared_ptr<Timer> schedule(double now, double interval, bool repeats,
                                    std::function<void(Timer&)> fire);
    // The time the next valid timer is due, or a negative value when there is none.
    double nextDue() const;
    bool anyDue(double now) const;
    // Fires every timer due at `now`, earliest first; a repeating timer that fell behind fires
    // once for each missed period (at most a thousand). Returns how many fired.
    size_t fireDue(double now);
    size_t count() const;

  private:
    class Entry;
    std::shared_ptr<Entry> earliest() const;

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Entry>> timers_;
    uint64_t sequence_ = 0;
};

}  // namespace pelora::platform
