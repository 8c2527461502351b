#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "../splash/AdTestSupport.h"
#include "FakeServer.h"
#include "native/PeloraImageDownloader.h"
#include "pelora/ui/ImageView.h"

using namespace pelora;
using pelora::platform::makeRect;
using pelora::testing::FakeServer;
using pelora::testing::LoopbackResponse;
using pelora::testing::TestPlatform;

namespace {

class ImageDownloadTest : public ::testing::Test {
  protected:
    void SetUp() override {
        server.on("/a.png", adtest::png(a));
        server.on("/b.png", adtest::png(b));
        LoopbackResponse slow = adtest::png(a);
        slow.delaySeconds = 30;  // on the manual clock: it never comes unless a test waits
        server.on("/slow.png", slow);
        server.on("/missing.png", LoopbackResponse::text("not here", 404));
        server.on("/text", LoopbackResponse::text("this is not an image"));
        server.on("/empty", LoopbackResponse::text(""));
    }

    bool logged(const std::string& line) {
        return tp.waitFor([&] { return logs.contains(line); });
    }
    // Sets `url` and waits until the view's task has finished one way or the other.
    void loadAndWait(const std::string& path, const std::string& expectLog = {}) {
        pl_setImageUrl(*view, server.url(path));
        if (expectLog.empty()) {
            ASSERT_TRUE(tp.waitFor([&] { return view->image() != nullptr; }));
        } else {
            ASSERT_TRUE(logged(expectLog));
        }
    }

    std::string a = adtest::pngA();
    std::string b = adtest::pngB();
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    FakeServer server{tp};
    adtest::LogCapture logs;
    std::shared_ptr<ui::ImageView> view = std::make_shared<ui::ImageView>(makeRect(0, 0, 50, 50));
};

TEST_F(ImageDownloadTest, ImageArrivesWithItsSizeAndWasAskedForAsAnImage) {
    loadAndWait("/a.png");
    auto image = view->image();
    EXPECT_GT(image->pixelWidth, 0);
    // Decoded before it reached the main run loop: drawing it costs no decoding there.
    EXPECT_TRUE(image->isDecoded());
    EXPECT_EQ(image->rgba().size(), size_t(image->pixelWidth) * image->pixelHeight * 4);
    auto requests = server.requestsTo("/a.png");
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].header("Accept").value_or(""), "image/*");
    EXPECT_TRUE(pl_downingTask(*view));
}

TEST_F(ImageDownloadTest, NewerUrlCancelsTheOlderDownloadAndOnlyItsImageShows) {
    pl_setImageUrl(*view, server.url("/slow.png"));
    ASSERT_TRUE((tp.pump(), server.requestCount() >= 1));  // the first is really under way
    auto first = pl_downingTask(*view);
    pl_setImageUrl(*view, server.url("/b.png"));
    EXPECT_NE(pl_downingTask(*view), first);

    ASSERT_TRUE(logged("sdk: image error -999"));
    ASSERT_TRUE(tp.waitFor([&] { return view->image() != nullptr; }));
    auto expected = tp.imageDecoder->decode(b);
    ASSERT_TRUE(expected);
    EXPECT_EQ(view->image()->pixelWidth, expected->pixelWidth);
    EXPECT_EQ(view->image()->rgba(), expected->rgba());
}

// A failed download (not found, an empty body) keeps the image the view had.
TEST_F(ImageDownloadTest, AFailedDownloadKeepsThePreviousImage) {
    for (auto [path, line] :
         {std::pair{"/missing.png", "sdk: image error 404"}, {"/empty", "sdk: image error 0"}}) {
        loadAndWait("/a.png");
        auto before = view->image();
        loadAndWait(path, line);
        EXPECT_EQ(view->image(), before) << path;
    }
}

TEST_F(ImageDownloadTest, BodyThatIsNotAnImageClearsTheView) {
    // An image's header over data that is not, and text.
    std::string corrupt = a.substr(0, 40) + std::string(a.size(), '\x5a');
    server.on("/corrupt.png", adtest::png(corrupt));
    for (const char* path : {"/corrupt.png", "/text"}) {
        loadAndWait("/a.png");
        pl_setImageUrl(*view, server.url(path));
        ASSERT_TRUE(tp.waitFor([&] { return view->image() == nullptr; })) << path;
    }
    // Nothing failed as far as the transport is concerned.
    for (const auto& line : logs.lines())
        EXPECT_EQ(line.find("sdk: image error"), std::string::npos);
}

TEST_F(ImageDownloadTest, AbsentOrUnusableUrlFailsQuietlyWithoutARequest) {
    for (std::optional<std::string> url :
         {std::optional<std::string>(), std::optional<std::string>("file:///etc/passwd"),
          std::optional<std::string>("not a url")}) {
        size_t before = logs.lines().size();
        pl_setImageUrl(*view, url);
        ASSERT_TRUE(tp.waitFor([&] { return logs.lines().size() > before; }));
        EXPECT_EQ(logs.lines().back().rfind("sdk: image error ", 0), 0u) << logs.lines().back();
        EXPECT_FALSE(view->image());
    }
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(ImageDownloadTest, ReleasedViewIsNotTouchedByItsDownload) {
    std::weak_ptr<ui::ImageView> weak = view;
    pl_setImageUrl(*view, server.url("/a.png"));
    view.reset();
    EXPECT_TRUE(weak.expired());  // the attached task does not keep the view alive
    ASSERT_TRUE((tp.pump(), server.requestCount() >= 1));
    // The completion finds no view; a second view's download completes after it.
    auto other = std::make_shared<ui::ImageView>();
    pl_setImageUrl(*other, server.url("/b.png"));
    EXPECT_TRUE(tp.waitFor([&] { return other->image() != nullptr; }));
}

}  // namespace
