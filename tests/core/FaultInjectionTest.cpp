// Every way the SDK reads from the network (the ad fetch, a tracking call, an image, a video
// download) against a server that misbehaves on purpose, through the real libcurl sessions:
// each fault ends in the transport's error path with its documented code, once, on the main
// run loop, with nothing delivered and no file left behind, and bodies are cut at the host's
// limits. Stalls end at the request's time-out, which the tests keep short.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "FaultServer.h"
#include "TestPlatform.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "native/PeloraImageDownloader.h"
#include "pelora/PeloraApiAd.h"

namespace {

using pelora::testing::Fault;
using pelora::testing::FaultResponse;
using namespace pelora::platform::URLError;
namespace fs = std::filesystem;

enum Entry { kAdFetch, kTracking, kImage, kVideo };
constexpr const char* kEntryNames[] = {"ad fetch", "tracking", "image", "video"};

struct FaultCase {
    const char* path;
    FaultResponse response;
    int64_t code;
    double timeout = 5;
};

FaultResponse redirectTo(const char* location) {
    return {.fault = Fault::Redirect, .location = location};
}

const FaultCase kFaults[] = {
    // Bodies that break off.
    {"/reset", {Fault::ResetMidBody}, kNetworkConnectionLost},
    {"/short", {Fault::LengthLongerThanBody}, kNetworkConnectionLost},
    // Bodies past the limits, cut off at the limit (the bomb: 64 MiB of zeros in about 64 KB).
    {"/endless", {Fault::EndlessChunked}, kDataLengthExceedsMaximum},
    {"/bomb",
     {.fault = Fault::CompressedBomb, .inflatedBytes = 64 << 20},
     kDataLengthExceedsMaximum},
    // Stalls end at the request's time-out; header lines without end are refused by size long
    // before any time-out.
    {"/drip", {Fault::Drip}, kTimedOut, 0.3},
    {"/silent", {Fault::NeverAnswer}, kTimedOut, 0.3},
    {"/headers", {Fault::HeadersNeverEnd}, kNetworkConnectionLost, 30},
    // Redirects that loop or leave the web (the schemes libcurl could follow).
    {"/loop", redirectTo("/loop"), kHTTPTooManyRedirects},
    {"/file", redirectTo("file:///etc/passwd"), kUnsupportedURL},
    {"/ftp", redirectTo("ftp://127.0.0.1/x"), kUnsupportedURL},
};

// Each completion: its code, whether anything reached the caller (an ad answer, a body, an
// image or a file) and whether it ran on the main run loop.
using Ended = std::vector<std::tuple<int64_t, bool, bool>>;

class FaultInjectionTest : public ::testing::Test {
  protected:
    FaultInjectionTest() {
        platform.options.limits = {256 << 10, 512 << 10, 1 << 20};
        platform.install();
    }

    std::string videoDir() const { return platform.rootDirectory() + "/videos"; }

    // One request through `entry`, run until its completion arrived (bounded in real time).
    Ended run(Entry entry, const std::string& url, double timeout = 5) {
        auto ended = std::make_shared<Ended>();
        auto finish = [ended, loop = platform.loop](int64_t code, bool delivered) {
            ended->emplace_back(code, delivered, loop->isLoopThread());
        };
        auto modifier = [timeout](auto& request) { request.timeoutInterval = timeout; };
        pelora::platform::HttpRequest image;
        image.url = url;
        modifier(image);
        switch (entry) {
            case kAdFetch:
                PeloraNetwork::post(
                    url, PeloraUrlQuery::init(), PeloraReqBody::init(), modifier,
                    [finish](int64_t code, auto, auto resp) { finish(code, resp != nullptr); });
                break;
            case kTracking:
                PeloraNetwork::get(url, nullptr, modifier, [finish](int64_t code, auto, auto body) {
                    finish(code, code == 0 && body.has_value());
                });
                break;
            case kImage:
                PeloraImageDownloader::shareInstance()->downloadImageRequest(
                    image, [finish](auto decoded) { finish(0, decoded != nullptr); },
                    [finish](int64_t code, auto) { finish(code, false); });
                break;
            case kVideo:
                PeloraNetwork::downloadTaskWithUrl(
                    url, modifier, videoDir(), [finish](auto location, auto, auto error) {
                        finish(error ? error->code : 0, location && !error);
                    });
                break;
        }
        EXPECT_TRUE(platform.waitFor([&] { return !ended->empty(); }, 30));
        platform.pump();  // a second completion would be queued by now
        return *ended;
    }

    pelora::testing::TestPlatform platform;  // the real libcurl sessions, on a manual clock
    pelora::testing::FaultServer server;
};

// Every fault, through every entry point: its code, once, on the main run loop, nothing
// delivered, no file left.
TEST_F(FaultInjectionTest, EveryFaultEndsInItsCodeOnceWithNothingDelivered) {
    for (const auto& f : kFaults) {
        server.on(f.path, f.response);
        for (Entry entry : {kAdFetch, kTracking, kImage, kVideo}) {
            SCOPED_TRACE(std::string(f.path) + " via " + kEntryNames[entry]);
            EXPECT_EQ(run(entry, server.url(f.path), f.timeout), (Ended{{f.code, false, true}}));
        }
    }
    EXPECT_TRUE(!fs::exists(videoDir()) || fs::is_empty(videoDir()));
    // The reader stopped near the largest limit (1 MiB) rather than draining the server: what
    // was written beyond it sat in the sockets' buffers.
    EXPECT_LT(server.bodyBytesSent("/endless"), uint64_t{4 * ((1 << 20) + (16 << 20))});
}

TEST_F(FaultInjectionTest, ALengthShorterThanTheBodyDeliversOnlyTheAnnouncedBytes) {
    FaultResponse lying{Fault::LengthShorterThanBody};
    lying.body = R"({"code":0,"data":{"ads":[{"adId":"a1"}]}})";
    lying.body += lying.body;  // the first half is the whole answer; the rest is garbage
    server.on("/lying", lying);
    EXPECT_EQ(run(kAdFetch, server.url("/lying")), (Ended{{0, true, true}}));
    EXPECT_EQ(run(kVideo, server.url("/lying")), (Ended{{0, true, true}}));
    ASSERT_TRUE(fs::exists(videoDir() + "/lying"));
    EXPECT_EQ(fs::file_size(videoDir() + "/lying"), lying.body.size() / 2);
}

}  // namespace
