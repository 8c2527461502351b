// The deterministic test backend itself: the fake network and the manual run loop that the
// SDK's tests stand on. If these lie, every SDK test built on them lies with them.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pelora/testing/FakeHttpSession.h"
#include "pelora/testing/ManualRunLoop.h"

using namespace pelora;
using pelora::testing::FakeHttpSessionFactory;
using pelora::testing::ManualRunLoop;
using Response = FakeHttpSessionFactory::Response;

namespace {

class FakeNetworkTest : public ::testing::Test {
  protected:
    struct Result {
        bool done = false;
        std::optional<std::string> body;
        std::optional<platform::HttpResponse> response;
        std::optional<platform::Error> error;
    };
    std::shared_ptr<platform::HttpTask> get(const std::string& url, Result& out,
                                            double timeout = 60) {
        platform::HttpRequest request;
        request.url = url;
        request.timeoutInterval = timeout;
        request.setValue("yes", "X-Test");
        auto task = session->dataTask(request, [&out](auto body, auto response, auto error) {
            out = {true, std::move(body), std::move(response), std::move(error)};
        });
        task->resume();
        return task;
    }

    std::shared_ptr<ManualRunLoop> loop = std::make_shared<ManualRunLoop>();
    std::shared_ptr<FakeHttpSessionFactory> fake = std::make_shared<FakeHttpSessionFactory>(
        loop, (std::filesystem::temp_directory_path() / "pelora-fake-net").string());
    std::shared_ptr<platform::HttpSession> session = fake->createSession({});
};

TEST_F(FakeNetworkTest, AnswersArriveThroughTheLoopByUrlWithOrWithoutQuery) {
    fake->addResponse("https://a.example/ads", Response::ok("any query", 201));
    fake->addResponse("https://a.example/ads?id=7", Response::ok("exactly seven"));
    Result seven, other, none;
    get("https://a.example/ads?id=7", seven);
    get("https://a.example/ads?id=8", other);
    get("https://b.example/ads", none);
    EXPECT_FALSE(seven.done) << "never inside the call that started the task";
    loop->pump();
    ASSERT_TRUE(seven.done && other.done);
    EXPECT_EQ(seven.body, "exactly seven");
    EXPECT_EQ(other.body, "any query");
    EXPECT_EQ(other.response->statusCode, 201);
    EXPECT_FALSE(none.done) << "no answer: the request stays pending";
    ASSERT_EQ(fake->pendingCount(), 1u);
    EXPECT_EQ(fake->pending()[0].request.url, "https://b.example/ads");

    ASSERT_TRUE(fake->respond("https://b.example/ads", Response::failure(-1004)));
    loop->pump();
    ASSERT_TRUE(none.done);
    EXPECT_FALSE(none.body);
    EXPECT_EQ(none.error->code, -1004);
    EXPECT_EQ(none.error->domain, "NSURLErrorDomain");
    EXPECT_EQ(fake->pendingCount(), 0u);
    // Every request as it was sent, in order.
    auto sent = fake->requests();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].request.valueForHeader("X-Test"), "yes");
    EXPECT_EQ(fake->urlsStartingWith("https://a.example/").size(), 2u);
}

TEST_F(FakeNetworkTest, TimeOutsAndCancellationAreSimulatedOnTheManualClock) {
    fake->setSimulateTimeouts(true);
    Result slow, cancelled;
    get("https://a.example/slow", slow, 3);
    auto task = get("https://a.example/cancel", cancelled, 3);
    task->cancel();
    loop->pump();
    ASSERT_TRUE(cancelled.done);
    EXPECT_EQ(cancelled.error->code, platform::URLError::kCancelled);
    loop->advance(2.9);
    EXPECT_FALSE(slow.done);
    loop->advance(0.1);
    ASSERT_TRUE(slow.done);
    EXPECT_EQ(slow.error->code, platform::URLError::kTimedOut);
    EXPECT_EQ(loop->timerCount(), 0u);
}

TEST_F(FakeNetworkTest, ADownloadHandsOverATemporaryFileThatIsGoneAfterwards) {
    fake->addResponse("https://cdn.example/v.mp4", Response::ok("video bytes"));
    std::optional<std::string> location;
    std::string contents;
    platform::HttpRequest request;
    request.url = "https://cdn.example/v.mp4";
    session
        ->downloadTask(request,
                       [&](auto path, auto, auto error) {
                           ASSERT_FALSE(error);
                           location = path;
                           std::ifstream in(*path);
                           std::getline(in, contents);
                       })
        ->resume();
    loop->pump();
    ASSERT_TRUE(location);
    EXPECT_EQ(contents, "video bytes");
    EXPECT_FALSE(std::filesystem::exists(*location));
    EXPECT_TRUE(fake->requests()[0].download);
}

TEST(ManualRunLoopTest, AdvanceFiresTimersInOrderAtTheTimeTheyWereDue) {
    ManualRunLoop loop;
    std::vector<std::pair<std::string, double>> fired;
    const double start = loop.clock().monotonicSeconds();
    auto every = loop.scheduleTimer(1.0, true, [&](platform::Timer&) {
        fired.emplace_back("tick", loop.clock().monotonicSeconds() - start);
    });
    auto once = loop.scheduleTimer(1.5, false, [&](platform::Timer&) {
        fired.emplace_back("once", loop.clock().monotonicSeconds() - start);
        loop.post([&] { fired.emplace_back("posted", loop.clock().monotonicSeconds() - start); });
    });
    loop.advance(2.0);
    EXPECT_EQ(fired, (std::vector<std::pair<std::string, double>>{
                         {"tick", 1.0}, {"once", 1.5}, {"posted", 1.5}, {"tick", 2.0}}));
    EXPECT_EQ(loop.timerCount(), 1u);
    every->invalidate();
    EXPECT_EQ(loop.timerCount(), 0u);
    EXPECT_LT(loop.nextTimerDelay(), 0);
    loop.post([] {});
    EXPECT_EQ(loop.pendingTaskCount(), 1u);
    loop.pump();
    EXPECT_EQ(loop.pendingTaskCount(), 0u);
}

TEST(ManualRunLoopDeathTest, PumpingFromASecondThreadFailsLoudly) {
    ManualRunLoop loop;
    loop.pump();
    EXPECT_DEATH(std::thread([&] { loop.pump(); }).join(), "belongs to the thread");
}

}  // namespace
