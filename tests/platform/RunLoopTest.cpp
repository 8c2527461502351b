#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "TestPlatform.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/testing/ManualClock.h"

namespace {

using pelora::desktop::EventRunLoop;
using pelora::platform::Timer;
using pelora::testing::ManualClock;

bool readable(int fd) {
    pollfd pfd{fd, POLLIN, 0};
    return ::poll(&pfd, 1, 0) > 0;
}

class RunLoopTest : public ::testing::Test {
  protected:
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    EventRunLoop loop{clock};
};

TEST_F(RunLoopTest, TasksPostedFromManyThreadsAllRunOnTheLoopThreadInPerThreadOrder) {
    constexpr int kThreads = 4, kPerThread = 200;
    std::vector<std::vector<int>> seen(kThreads);
    std::atomic<bool> offThread{false};
    std::vector<std::thread> posters;
    for (int t = 0; t < kThreads; ++t) {
        posters.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                loop.post([&, t, i] {
                    if (!loop.isLoopThread()) offThread = true;
                    seen[t].push_back(i);
                });
            }
        });
    }
    for (auto& p : posters) p.join();
    loop.pump();
    for (int t = 0; t < kThreads; ++t) {
        ASSERT_EQ(seen[t].size(), static_cast<size_t>(kPerThread));
        for (int i = 0; i < kPerThread; ++i) EXPECT_EQ(seen[t][i], i);
    }
    EXPECT_FALSE(offThread);
}

TEST_F(RunLoopTest, TaskPostedWhileRunningWaitsForTheNextPump) {
    std::vector<int> order;
    loop.post([&] {
        order.push_back(1);
        loop.post([&] { order.push_back(3); });
    });
    loop.post([&] { order.push_back(2); });
    EXPECT_EQ(loop.pump(), 2u);
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    loop.pump();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST_F(RunLoopTest, TimersFireInDueOrderAndTiesInSchedulingOrder) {
    std::vector<std::string> fired;
    auto note = [&](std::string name) { return [&, name](Timer&) { fired.push_back(name); }; };
    auto c = loop.scheduleTimer(3, false, note("c"));
    auto a = loop.scheduleTimer(1, false, note("a"));
    auto b1 = loop.scheduleTimer(2, false, note("b1"));
    auto b2 = loop.scheduleTimer(2, false, note("b2"));
    clock->advance(0.999);
    loop.pump();
    EXPECT_TRUE(fired.empty());
    clock->advance(5);
    loop.pump();
    EXPECT_EQ(fired, (std::vector<std::string>{"a", "b1", "b2", "c"}));
    EXPECT_FALSE(a->isValid());  // one-shot timers end invalid
}

TEST_F(RunLoopTest, RepeatingTimerCatchesUpMissedPeriodsAndStopsFromItsOwnCallback) {
    int count = 0;
    auto timer = loop.scheduleTimer(1, true, [&](Timer& self) {
        if (++count == 5) self.invalidate();
    });
    clock->advance(3.5);
    loop.pump();
    EXPECT_EQ(count, 3);
    EXPECT_TRUE(timer->isValid());
    clock->advance(10);
    loop.pump();
    EXPECT_EQ(count, 5);
    EXPECT_FALSE(timer->isValid());
    EXPECT_LT(loop.nextTimerDelay(), 0);
}

TEST_F(RunLoopTest, ATimerInvalidatedByAnEarlierOneNeverFires) {
    bool lateFired = false;
    std::shared_ptr<Timer> late = loop.scheduleTimer(2, false, [&](Timer&) { lateFired = true; });
    auto early = loop.scheduleTimer(1, false, [&](Timer&) { late->invalidate(); });
    clock->advance(2);
    loop.pump();
    EXPECT_FALSE(lateFired);
}

TEST_F(RunLoopTest, NextTimerDelayFollowsTheClock) {
    EXPECT_LT(loop.nextTimerDelay(), 0);
    auto t = loop.scheduleTimer(5, false, [](Timer&) {});
    EXPECT_DOUBLE_EQ(loop.nextTimerDelay(), 5);
    clock->advance(2);
    EXPECT_DOUBLE_EQ(loop.nextTimerDelay(), 3);
    t->invalidate();
    EXPECT_LT(loop.nextTimerDelay(), 0);
}

TEST_F(RunLoopTest, WakeDescriptorIsReadableExactlyWhilePostedWorkWaits) {
    EXPECT_FALSE(readable(loop.wakeFd()));
    std::thread([&] { loop.post([] {}); }).join();
    EXPECT_TRUE(readable(loop.wakeFd()));
    loop.pump();
    EXPECT_FALSE(readable(loop.wakeFd()));
}

TEST_F(RunLoopTest, WatchedDescriptorsRunTheirCallbackUntilInvalidated) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    int calls = 0;
    auto watch = loop.watchFd(fds[0], [&] {
        char c;
        while (::read(fds[0], &c, 1) == 1) ++calls;
    });
    ASSERT_TRUE(watch);
    ::fcntl(fds[0], F_SETFL, O_NONBLOCK);
    loop.pump();
    EXPECT_EQ(calls, 0);
    ASSERT_EQ(::write(fds[1], "ab", 2), 2);
    EXPECT_TRUE(readable(loop.wakeFd()));  // embedding hosts wake for watched descriptors too
    loop.pump();
    EXPECT_EQ(calls, 2);
    EXPECT_FALSE(readable(loop.wakeFd()));
    watch->invalidate();
    ASSERT_EQ(::write(fds[1], "c", 1), 1);
    loop.pump();
    EXPECT_EQ(calls, 2);
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST_F(RunLoopTest, RunUntilReturnsWhenThePredicateHoldsOrNothingCanHappenBeforeTheDeadline) {
    bool flag = false;
    std::thread poster([&] { loop.post([&] { flag = true; }); });
    EXPECT_TRUE(loop.runUntil([&] { return flag; }, clock->monotonicSeconds() + 10));
    poster.join();

    // On a manual clock nothing becomes due by itself: the call gives up instead of hanging.
    auto timer = loop.scheduleTimer(1, false, [](Timer&) {});
    EXPECT_FALSE(loop.runUntil([] { return false; }, clock->monotonicSeconds() + 0.05));
    EXPECT_TRUE(timer->isValid());

    // A timer already due runs before the predicate is checked.
    bool fired = false;
    auto due = loop.scheduleTimer(0.5, false, [&](Timer&) { fired = true; });
    clock->advance(0.5);
    EXPECT_TRUE(loop.runUntil([&] { return fired; }, clock->monotonicSeconds() + 1));
}

TEST_F(RunLoopTest, StopFromAnotherThreadEndsRun) {
    std::atomic<int> ran{0};
    loop.post([&] { ++ran; });
    std::thread stopper([&] {
        loop.post([&] { ++ran; });
        loop.stop();
    });
    loop.run();  // returns once stop() arrives; a missing stop would hang and time the test out
    stopper.join();
    loop.pump();
    EXPECT_EQ(ran, 2);
}

TEST_F(RunLoopTest, StopBeforeRunIsKeptForTheNextRun) {
    // The other thread may stop the loop before its owner starts running it.
    int ran = 0;
    loop.post([&] { ++ran; });
    loop.stop();
    loop.run();         // would wait for an hour if the early stop were dropped
    EXPECT_EQ(ran, 0);  // returned at once; the work stays queued
    loop.pump();
    EXPECT_EQ(ran, 1);
}

TEST(TestPlatformAdvanceTest, AdvanceFiresTimersAtTheirOwnTimesInOrder) {
    pelora::testing::TestPlatform p;
    std::vector<double> firedAt;
    auto start = p.clock->monotonicSeconds();
    int ticks = 0;
    auto countdown = p.loop->scheduleTimer(1, true, [&](Timer& t) {
        firedAt.push_back(p.clock->monotonicSeconds() - start);
        if (++ticks == 5) t.invalidate();
    });
    auto once = p.loop->scheduleTimer(2.5, false, [&](Timer&) { firedAt.push_back(-2.5); });
    p.advance(10);
    EXPECT_EQ(firedAt, (std::vector<double>{1, 2, -2.5, 3, 4, 5}));
    EXPECT_DOUBLE_EQ(p.clock->monotonicSeconds() - start, 10);
}

TEST(TestPlatformAdvanceTest, WaitForIsBoundedInRealTimeAndLeavesTheManualClockAlone) {
    pelora::testing::TestPlatform p;
    auto before = p.clock->monotonicSeconds();
    EXPECT_FALSE(p.waitFor([] { return false; }, 0.05));
    EXPECT_EQ(p.clock->monotonicSeconds(), before);
    std::atomic<bool> done{false};
    std::thread worker([&] { p.loop->post([&] { done = true; }); });
    EXPECT_TRUE(p.waitFor([&] { return done.load(); }));
    worker.join();
}

}  // namespace
