#pragma once

#include <functional>
#include <memory>

#include "pelora/platform/Clock.h"
#include "pelora/platform/Export.h"

namespace pelora::platform {

// A scheduled timer. Invalidating it is idempotent and may happen from inside its own callback.
class PELORA_EXPORT Timer {
  public:
    virtual ~Timer() = default;
    virtual void invalidate() = 0;
    virtual bool isValid() const = 0;
};

// The main run loop that owns all SDK logic. Work can be posted from any thread; everything
// else (timers, run, pump) belongs to the loop's thread.
class PELORA_EXPORT RunLoop {
  public:
    virtual ~RunLoop() = default;

    // Thread-safe: queue a task to run on the loop's thread, after already queued tasks.
    virtual void post(std::function<void()> task) = 0;

    // Schedule a timer that fires `interval` seconds of the loop's clock from now, and then
    // every `interval` seconds when `repeats` is set. Timers run in all modes of the loop
    // (the "common modes"): a host pumping the loop from its own frame loop sees them fire too.
    // A timer that fell behind (the clock jumped forward) fires once for each missed period.
    virtual std::shared_ptr<Timer> scheduleTimer(double interval, bool repeats,
                                                 std::function<void(Timer&)> fire) = 0;

    // Run until stop() is called.
    virtual void run() = 0;
    // Run until `predicate` is true (checked after each batch of work) or the loop's clock
    // passes `deadline` (a value of clock().monotonicSeconds()). Returns the predicate's value.
    virtual bool runUntil(const std::function<bool()>& predicate, double deadline) = 0;
    // Ask run()/runUntil() to return after the current task. Thread-safe. A stop while the
    // loop is not running is kept: the next run()/runUntil() returns at once.
    virtual void stop() = 0;
    // Non-blocking: run every task and timer that is due now, then return how many ran.
    // Hosts with their own frame loop call this once per frame.
    virtual size_t pump() = 0;
    // A descriptor for embedding the loop in a host's epoll/select loop. It becomes readable
    // when a task is posted and stays so until the next pump(). The desktop loop
    // (EventRunLoop) also makes it readable on stop() and while a descriptor it watches
    // (watchFd()) is readable; the test loop (ManualRunLoop) only on post(). A timer falling
    // due does not make it readable: nothing is written when a timer's time comes. A host
    // waiting on it must therefore also wait no longer than nextTimerDelay() (the time-out
    // of its poll/epoll_wait) and call pump() when the descriptor is readable or that
    // time-out ran out.
    virtual int wakeFd() const = 0;
    // Seconds until the next timer is due, or a negative value when no timer is scheduled.
    virtual double nextTimerDelay() const = 0;
    // Call `readable` on the loop's thread whenever `fd` is readable, until the returned handle
    // is invalidated (invalidate before closing the descriptor). The callback must consume
    // what made the descriptor readable. Loops that cannot watch descriptors return null;
    // callers then poll on a timer instead.
    virtual std::shared_ptr<Timer> watchFd(int fd, std::function<void()> readable) {
        (void)fd;
        (void)readable;
        return nullptr;
    }
    // True when called on the thread that runs this loop.
    virtual bool isLoopThread() const = 0;

    virtual Clock& clock() const = 0;
};

}  // namespace pelora::platform
