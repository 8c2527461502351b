// The event run loop, and the deterministic test backend the SDK's tests stand on where those
// tests could not tell if it lied: answers that arrive inside the call that started them,
// requests a real session would refuse, timers and posted work run at the wrong time. The fake
// network's time-outs and cancellation are held to their times by the splash and native tests
// that count on them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "TestPlatform.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/testing/ManualClock.h"
#include "pelora/testing/ManualRunLoop.h"

namespace {

using pelora::platform::Timer;
using pelora::testing::TestPlatform;
using Response = pelora::testing::FakeHttpSessionFactory::Response;

bool readable(int fd) {
    pollfd pfd{fd, POLLIN, 0};
    return ::poll(&pfd, 1, 0) > 0;
}

class RunLoopTest : public ::testing::Test {
  protected:
    std::shared_ptr<pelora::testing::ManualClock> clock =
        std::make_shared<pelora::testing::ManualClock>();
    pelora::desktop::EventRunLoop loop{clock};
};

TEST_F(RunLoopTest, TasksFromManyThreadsRunOnTheLoopThreadInOrderAndLaterOnesOnTheNextPump) {
    std::vector<std::vector<int>> seen(4);
    std::atomic<bool> wrong{false};  // a task off the loop's thread, or out of its poster's order
    std::vector<std::thread> posters;
    for (size_t t = 0; t < seen.size(); ++t)
        posters.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i)
                loop.post([&, t, i] {
                    wrong = wrong || !loop.isLoopThread() || seen[t].size() != size_t(i);
                    seen[t].push_back(i);
                });
        });
    for (auto& p : posters) p.join();
    loop.post([&] { loop.post([&] { seen[0].push_back(-1); }); });  // waits for the next pump
    EXPECT_EQ(loop.pump(), 801u);
    EXPECT_FALSE(wrong);
    loop.pump();
    EXPECT_EQ(seen[0].back(), -1);
}

TEST_F(RunLoopTest, TimersFireWhenDueInDueOrderAndTiesInSchedulingOrder) {
    std::string fired;
    auto note = [&](char c) { return [&, c](Timer&) { fired += c; }; };
    std::shared_ptr<Timer> late = loop.scheduleTimer(3, false, note('x'));
    auto a = loop.scheduleTimer(1, false, [&](Timer&) {
        fired += 'a';
        late->invalidate();  // invalidated by an earlier timer: never fires
    });
    auto b1 = loop.scheduleTimer(2, false, note('b')), b2 = loop.scheduleTimer(2, false, note('c'));
    int ticks = 0;
    auto repeating = loop.scheduleTimer(1.5, true, [&](Timer& self) {
        fired += 't';
        if (++ticks == 5) self.invalidate();
    });
    clock->advance(0.5);
    EXPECT_DOUBLE_EQ(loop.nextTimerDelay(), 0.5);
    loop.pump();
    clock->advance(0.5);  // exactly when `a` is due
    loop.pump();
    EXPECT_EQ(fired, "a");
    EXPECT_FALSE(a->isValid());  // one-shot timers end invalid
    clock->advance(5);           // missed periods of the repeating timer are caught up
    loop.pump();
    EXPECT_EQ(fired, "atbcttt");
    EXPECT_DOUBLE_EQ(loop.nextTimerDelay(), 1.5);
    clock->advance(10);
    loop.pump();
    EXPECT_EQ(fired, "atbctttt");  // the repeating timer stopped itself
    EXPECT_LT(loop.nextTimerDelay(), 0);
}

TEST_F(RunLoopTest, WakeDescriptorIsReadableExactlyWhilePostedWorkOrWatchedInputWaits) {
    std::thread([&] { loop.post([] {}); }).join();
    EXPECT_TRUE(readable(loop.wakeFd()));
    loop.pump();
    EXPECT_FALSE(readable(loop.wakeFd()));
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_NONBLOCK), 0);
    char c;
    auto watch = loop.watchFd(fds[0], [&] { ASSERT_EQ(::read(fds[0], &c, 1), 1); });
    ASSERT_EQ(::write(fds[1], "a", 1), 1);
    EXPECT_TRUE(readable(loop.wakeFd()));  // embedding hosts wake for watched input too
    loop.pump();
    EXPECT_FALSE(readable(loop.wakeFd()));
    watch->invalidate();
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST_F(RunLoopTest, RunAndRunUntilEndOnStopPredicateOrWhenNothingCanHappenBeforeTheDeadline) {
    std::atomic<int> ran{0};
    std::thread poster([&] { loop.post([&] { ++ran; }); });
    EXPECT_TRUE(loop.runUntil([&] { return ran == 1; }, clock->monotonicSeconds() + 10));
    poster.join();
    // On a manual clock nothing becomes due by itself: the call gives up instead of hanging.
    auto timer = loop.scheduleTimer(1, false, [](Timer&) {});
    EXPECT_FALSE(loop.runUntil([] { return false; }, clock->monotonicSeconds() + 0.05));
    // A timer due exactly when the call looks (here the clock reached its time while the
    // predicate ran) runs before the call gives up.
    auto dueNow = [&, moved = false]() mutable {
        if (!std::exchange(moved, true)) clock->advance(1);
        return !timer->isValid();
    };
    EXPECT_TRUE(loop.runUntil(dueNow, clock->monotonicSeconds() + 5));

    loop.post([&] { ++ran; });
    loop.stop();
    loop.run();  // would wait for an hour if the early stop were dropped
    EXPECT_EQ(ran, 1);
    std::thread stopper([&] { loop.stop(); });
    loop.run();  // a missing stop would hang and time the test out
    stopper.join();
    loop.pump();
    EXPECT_EQ(ran, 2);
}

// That an answer never arrives inside the call that started its task is checked on every fetch
// of TransportTest.
TEST(FakeNetworkTest, AnswersArriveThroughTheLoopByUrlWithOrWithoutQuery) {
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    auto session = tp.fake->createSession({});
    tp.fake->addResponse("https://a.example/ads", Response::ok("any query", 201));
    tp.fake->addResponse("https://a.example/ads?id=7", Response::ok("exactly seven"));
    tp.fake->addResponse("https://a.example/ads\x7f", Response::ok("never"));
    std::map<std::string, std::string> got;  // by URL: the body and status, or the error code
    for (std::string url : {"https://a.example/ads?id=7", "https://a.example/ads?id=8",
                            "https://b.example/ads", "https://a.example/ads\x7f"}) {
        pelora::platform::HttpRequest request;
        request.url = url;
        auto task = session->dataTask(request, [&got, url](auto body, auto response, auto error) {
            got[url] = error ? std::to_string(error->code)
                             : *body + " " + std::to_string(response->statusCode);
        });
        task->resume();
    }
    tp.pump();
    // Without an answer a request stays pending; one a real session refuses is refused.
    EXPECT_EQ(
        got,
        (std::map<std::string, std::string>{
            {"https://a.example/ads?id=7", "exactly seven 200"},
            {"https://a.example/ads?id=8", "any query 201"},
            {"https://a.example/ads\x7f", std::to_string(pelora::platform::URLError::kBadURL)}}));
    ASSERT_TRUE(tp.fake->respond("https://b.example/ads", Response::failure(-1004)));
    tp.pump();
    EXPECT_EQ(got["https://b.example/ads"], "-1004");
}

// On both kinds of test platform timers fire at their own times and waiting leaves the
// manual clock alone; the manual loop also runs what a timer posts at the time it was posted.
TEST(TestPlatformTest, AdvanceRunsTimersAndWhatTheyPostAtTheirOwnTimes) {
    for (auto kind : {TestPlatform::NetworkKind::Fake, TestPlatform::NetworkKind::Loopback}) {
        TestPlatform p(kind);
        const double start = p.clock->monotonicSeconds();
        std::vector<double> at;
        auto note = [&] { at.push_back(p.clock->monotonicSeconds() - start); };
        auto every = p.loop->scheduleTimer(1, true, [&](Timer&) { note(); });
        auto once = p.loop->scheduleTimer(
            1.5, false, [&](Timer&) { p.manualLoop ? p.loop->post(note) : note(); });
        p.advance(2);
        EXPECT_EQ(at, (std::vector<double>{1, 1.5, 2}));
        EXPECT_FALSE(p.waitFor([] { return false; }, 0.05));
        EXPECT_DOUBLE_EQ(p.clock->monotonicSeconds() - start, 2);
    }
}

TEST(ManualRunLoopDeathTest, PumpingFromASecondThreadFailsLoudly) {
    pelora::testing::ManualRunLoop loop;
    loop.pump();
    EXPECT_DEATH(std::thread([&] { loop.pump(); }).join(), "belongs to the thread");
}

}  // namespace
