// Every way the SDK reads from the network (the ad fetch, a tracking call, an image, a video
// download) against a server that misbehaves on purpose, through the real libcurl sessions:
// each fault ends in the transport's error path with its documented code, once, on the main
// run loop, with nothing delivered and no file left behind, and bodies are cut at the host's
// limits. Stalls end at the request's time-out, which the tests keep short.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "FaultServer.h"
#include "TestPlatform.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "native/PeloraImageDownloader.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/platform/Http.h"

namespace {

using pelora::testing::Fault;
using pelora::testing::FaultResponse;
using pelora::testing::FaultServer;
using pelora::testing::TestPlatform;
namespace URLError = pelora::platform::URLError;
namespace fs = std::filesystem;

enum class Entry { AdFetch, Tracking, Image, Video };
constexpr Entry kEntries[] = {Entry::AdFetch, Entry::Tracking, Entry::Image, Entry::Video};

const char* name(Entry e) {
    switch (e) {
        case Entry::AdFetch:
            return "ad fetch";
        case Entry::Tracking:
            return "tracking";
        case Entry::Image:
            return "image";
        case Entry::Video:
            return "video";
    }
    return "?";
}

struct Ended {
    int calls = 0;
    bool onLoop = true;
    int64_t code = 1;
    bool delivered = false;  // an ad answer, a body, an image or a file reached the caller
};

class FaultInjectionTest : public ::testing::Test {
  protected:
    void SetUp() override {
        defaults = PeloraConstConfig::limits();
        auto limits = defaults;
        limits.answerBytes = 256 << 10;
        limits.imageBytes = 512 << 10;
        limits.videoBytes = 1 << 20;
        PeloraConstConfig::setLimits(limits);
        PeloraNetwork::resetSessionsForTesting();  // new sessions take the limits above
    }
    void TearDown() override {
        PeloraNetwork::resetSessionsForTesting();
        server.stop();
        PeloraConstConfig::setLimits(defaults);
    }

    std::string videoDir() const { return platform.rootDirectory() + "/videos"; }

    // One request through `entry`, run until its completion arrived (bounded in real time).
    Ended run(Entry entry, const std::string& url, double timeout = 5) {
        auto ended = std::make_shared<Ended>();
        auto loop = platform.loop;
        auto finish = [ended, loop](int64_t code, bool delivered) {
            ++ended->calls;
            ended->onLoop = ended->onLoop && loop->isLoopThread();
            ended->code = code;
            ended->delivered = delivered;
        };
        auto modifier = [timeout](pelora::platform::HttpRequest& r) {
            r.timeoutInterval = timeout;
        };
        switch (entry) {
            case Entry::AdFetch: {
                auto body = PeloraReqBody::init();
                body->slot->slotId = "slot-1";
                PeloraNetwork::post(url, PeloraUrlQuery::init(), body, modifier,
                                    [finish](int64_t code, std::optional<std::string>,
                                             std::shared_ptr<PeloraRespObject> resp) {
                                        finish(code, resp != nullptr);
                                    });
                break;
            }
            case Entry::Tracking:
                PeloraNetwork::get(url, nullptr, modifier,
                                   [finish](int64_t code, std::optional<std::string>,
                                            std::optional<std::string> body) {
                                       finish(code, code == 0 && body.has_value());
                                   });
                break;
            case Entry::Image: {
                pelora::platform::HttpRequest request;
                request.url = url;
                modifier(request);
                PeloraImageDownloader::shareInstance()->downloadImageRequest(
                    request, [finish](auto image) { finish(0, image != nullptr); },
                    [finish](int64_t code, std::optional<std::string>) { finish(code, false); });
                break;
            }
            case Entry::Video:
                PeloraNetwork::downloadTaskWithUrl(
                    url, modifier, videoDir(),
                    [finish](std::optional<std::string> location,
                             std::optional<pelora::platform::HttpResponse>,
                             std::optional<pelora::platform::Error> error) {
                        finish(error ? error->code : 0, location && !error);
                    });
                break;
        }
        EXPECT_TRUE(platform.waitFor([&] { return ended->calls > 0; }, 30)) << name(entry);
        platform.pump();  // a second completion would be queued by now
        return *ended;
    }

    // Every entry point ends in `code` with nothing delivered, once, on the main run loop.
    void expectEveryEntryFails(const std::string& path, int64_t code, double timeout = 5) {
        for (Entry entry : kEntries) {
            const Ended e = run(entry, server.url(path), timeout);
            EXPECT_EQ(e.code, code) << path << " via " << name(entry);
            EXPECT_FALSE(e.delivered) << path << " via " << name(entry);
            EXPECT_EQ(e.calls, 1) << path << " via " << name(entry);
            EXPECT_TRUE(e.onLoop) << path << " via " << name(entry);
        }
        EXPECT_TRUE(!fs::exists(videoDir()) || fs::is_empty(videoDir())) << path;
    }

    PeloraConstConfig::Limits defaults;
    TestPlatform platform;  // the real libcurl sessions, on a manual clock
    FaultServer server;
};

TEST_F(FaultInjectionTest, BodiesThatBreakOffLoseTheConnection) {
    server.on("/reset", {Fault::ResetMidBody});
    server.on("/short", {Fault::LengthLongerThanBody});
    expectEveryEntryFails("/reset", URLError::kNetworkConnectionLost);
    expectEveryEntryFails("/short", URLError::kNetworkConnectionLost);
}

TEST_F(FaultInjectionTest, BodiesPastTheLimitsAreCutOffAtTheLimit) {
    server.on("/endless", {Fault::EndlessChunked});
    FaultResponse bomb{Fault::CompressedBomb};
    bomb.inflatedBytes = 64 << 20;  // 64 MiB of zeros in about 64 KB on the wire
    server.on("/bomb", bomb);
    expectEveryEntryFails("/endless", URLError::kDataLengthExceedsMaximum);
    expectEveryEntryFails("/bomb", URLError::kDataLengthExceedsMaximum);
    // The reader stopped near the largest limit (1 MiB) rather than draining the server:
    // what was written beyond it sat in the sockets' buffers.
    EXPECT_LT(server.bodyBytesSent("/endless"), uint64_t{4 * ((1 << 20) + (16 << 20))});
}

TEST_F(FaultInjectionTest, StallsEndAtTheRequestsTimeOut) {
    server.on("/drip", {Fault::Drip});
    server.on("/silent", {Fault::NeverAnswer});
    server.on("/headers", {Fault::HeadersNeverEnd});
    expectEveryEntryFails("/drip", URLError::kTimedOut, 0.3);
    expectEveryEntryFails("/silent", URLError::kTimedOut, 0.3);
    // Header lines without end are refused by size long before any time-out.
    expectEveryEntryFails("/headers", URLError::kNetworkConnectionLost, 30);
}

TEST_F(FaultInjectionTest, RedirectsLoopOrLeaveTheWebAreRefused) {
    FaultResponse loop{Fault::Redirect};
    loop.location = "/loop";
    server.on("/loop", loop);
    expectEveryEntryFails("/loop", URLError::kHTTPTooManyRedirects);
    for (const char* target : {"file:///etc/passwd", "ftp://127.0.0.1/x", "javascript:alert(1)",
                               "data:text/plain,hello"}) {
        FaultResponse away{Fault::Redirect};
        away.location = target;
        server.on("/away", away);
        for (Entry entry : kEntries) {
            const Ended e = run(entry, server.url("/away"));
            EXPECT_EQ(e.code, URLError::kUnsupportedURL) << target << " via " << name(entry);
            EXPECT_FALSE(e.delivered) << target << " via " << name(entry);
        }
    }
    EXPECT_TRUE(!fs::exists(videoDir()) || fs::is_empty(videoDir()));
}

TEST_F(FaultInjectionTest, ALengthShorterThanTheBodyDeliversOnlyTheAnnouncedBytes) {
    FaultResponse lying{Fault::LengthShorterThanBody};
    lying.body = R"({"code":0,"data":{"ads":[{"adId":"a1"}]}})";
    lying.body += lying.body;  // the first half is the whole answer; the rest is garbage
    server.on("/lying", lying);
    const Ended fetch = run(Entry::AdFetch, server.url("/lying"));
    EXPECT_EQ(fetch.code, 0);
    EXPECT_TRUE(fetch.delivered);
    const Ended video = run(Entry::Video, server.url("/lying"));
    EXPECT_EQ(video.code, 0);
    ASSERT_TRUE(fs::exists(videoDir() + "/lying"));
    EXPECT_EQ(fs::file_size(videoDir() + "/lying"), lying.body.size() / 2);
}

}  // namespace
