#include "pelora/desktop/EventRunLoop.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace pelora::desktop {

class EventRunLoop::WatchImpl final : public platform::Timer {
  public:
    WatchImpl(int fd, uint64_t id, std::function<void()> readable)
        : fd(fd), id(id), readable(std::move(readable)) {}
    void invalidate() override { valid = false; }
    bool isValid() const override { return valid; }

    const int fd;
    const uint64_t id;
    std::function<void()> readable;
    std::atomic<bool> valid{true};
};

EventRunLoop::EventRunLoop(std::shared_ptr<platform::Clock> clock)
    : clock_(std::move(clock)), owner_(std::this_thread::get_id()) {
    eventFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (eventFd_ < 0) throw std::runtime_error("eventfd failed");
    epollFd_ = ::epoll_create1(EPOLL_CLOEXEC);
    if (epollFd_ < 0) {
        ::close(eventFd_);
        throw std::runtime_error("epoll_create1 failed");
    }
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.u64 = 0;  // watch ids start at 1
    ::epoll_ctl(epollFd_, EPOLL_CTL_ADD, eventFd_, &ev);
}

EventRunLoop::~EventRunLoop() {
    if (epollFd_ >= 0) ::close(epollFd_);
    if (eventFd_ >= 0) ::close(eventFd_);
}

std::shared_ptr<platform::Timer> EventRunLoop::watchFd(int fd, std::function<void()> readable) {
    if (fd < 0 || !readable) return nullptr;
    std::lock_guard lock(mutex_);
    auto watch = std::make_shared<WatchImpl>(fd, ++watchSequence_, std::move(readable));
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.u64 = watch->id;
    if (::epoll_ctl(epollFd_, EPOLL_CTL_ADD, fd, &ev) != 0) {
        // Still registered by a watch that was invalidated but not yet cleaned up.
        if (errno != EEXIST || ::epoll_ctl(epollFd_, EPOLL_CTL_MOD, fd, &ev) != 0) return nullptr;
    }
    watches_.push_back(watch);
    return watch;
}

size_t EventRunLoop::serviceWatches() {
    {
        std::lock_guard lock(mutex_);
        if (watches_.empty()) return 0;
        for (const auto& w : watches_) {
            if (w->valid) continue;
            bool shared = std::any_of(watches_.begin(), watches_.end(),
                                      [&](const auto& o) { return o->valid && o->fd == w->fd; });
            // The owner may already have closed the descriptor; the kernel then dropped it.
            if (!shared) ::epoll_ctl(epollFd_, EPOLL_CTL_DEL, w->fd, nullptr);
        }
        std::erase_if(watches_, [](const auto& w) { return !w->valid; });
    }
    epoll_event events[16];
    int n = ::epoll_wait(epollFd_, events, 16, 0);
    size_t ran = 0;
    for (int i = 0; i < n; ++i) {
        if (events[i].data.u64 == 0) continue;
        std::shared_ptr<WatchImpl> watch;
        {
            std::lock_guard lock(mutex_);
            for (const auto& w : watches_) {
                if (w->id == events[i].data.u64) watch = w;
            }
        }
        if (watch && watch->valid) {
            ++ran;
            watch->readable();
        }
    }
    return ran;
}

bool EventRunLoop::wakeFdReadable() const {
    pollfd pfd{epollFd_, POLLIN, 0};
    return ::poll(&pfd, 1, 0) > 0;
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
    return timers_.schedule(clock_->monotonicSeconds(), interval, repeats, std::move(fire));
}

void EventRunLoop::bindThread() {
    const auto me = std::this_thread::get_id();
    if (!bound_.exchange(true)) {
        owner_ = me;
        return;
    }
    if (owner_.load() == me) return;
#ifndef NDEBUG
    std::fprintf(stderr,
                 "pelora: the main run loop belongs to the thread that first ran or pumped it; "
                 "it was run or pumped from another thread\n");
    std::abort();
#else
    owner_ = me;
#endif
}

bool EventRunLoop::isLoopThread() const {
    return owner_.load() == std::this_thread::get_id();
}

double EventRunLoop::nextTimerDelay() const {
    const double due = timers_.nextDue();
    if (due < 0) return -1.0;
    return std::max(0.0, due - clock_->monotonicSeconds());
}

size_t EventRunLoop::fireDueTimers() {
    return timers_.fireDue(clock_->monotonicSeconds());
}

size_t EventRunLoop::pump() {
    bindThread();
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
    ran += serviceWatches();
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
    pollfd pfd{epollFd_, POLLIN, 0};
    ::poll(&pfd, 1, ms);
}

void EventRunLoop::run() {
    bindThread();
    // A stop() that came before this run is not forgotten: it ends this run at once (a thread
    // may stop the loop before the loop's own thread got round to running it).
    while (!stopRequested_) {
        pump();
        if (stopRequested_) break;
        waitForWork(3600.0);
    }
    stopRequested_ = false;
}

bool EventRunLoop::runUntil(const std::function<bool()>& predicate, double deadline) {
    bindThread();
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
                if (!timers_.anyDue(now)) {
                    // Real time passed in the wait; loop again only if work arrived.
                    if (!wakeFdReadable()) break;
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
