// Every URL of the WHATWG URL test data (tests/data/wpt-url) through each place where the SDK
// takes a URL from the network: a tracking URL, a landing page (outside the app and in the
// in-app browser), a deep link, an image and a video download. Whatever the text, nothing
// crashes, only http and https requests reach the HTTP backend, no file, data or javascript
// URL is opened, the in-app browser shows web pages only, and downloads land in the caches.
// Schemes are read the way a browser reads them (browserScheme), independently of the SDK's
// own rules.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "TestPlatform.h"
#include "UrlCorpus.h"
#include "core/PeloraNetwork.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraImageUrl.h"
#include "pelora/ui/UI.h"
#include "track/PeloraTrackEvent.h"

using namespace pelora;
using namespace pelora::testing;
namespace fs = std::filesystem;

namespace {

bool isWeb(const std::string& url) {
    return browserScheme(url) == "http" || browserScheme(url) == "https";
}

class UrlCorpusTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // Whatever reaches the backend is recorded and answered, so downloads complete and
        // their files are placed.
        tp.fake->setResponder([this](const platform::HttpRequest& r) {
            fetched.push_back(r.url);
            return FakeHttpSessionFactory::Response::ok("corpus");
        });
        window->setRootViewController(root);
    }

    std::shared_ptr<PeloraTrackEvent> trackerFor(const std::shared_ptr<PeloraApiAd>& ad) {
        auto tracker = PeloraTrackEvent::init();
        tracker->setAdRootVC(root);
        tracker->bindAd(ad, root->view(), {});
        return tracker;
    }

    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    std::shared_ptr<ui::Window> window =
        std::make_shared<ui::Window>(platform::makeRect(0, 0, 320, 480));
    std::shared_ptr<ui::ViewController> root = std::make_shared<ui::ViewController>();
    std::vector<std::string> fetched;
};

TEST_F(UrlCorpusTest, OnlyWebUrlsReachTheNetworkFromTrackingImagesAndDownloads) {
    const auto urls = corpusUrls();
    ASSERT_GT(urls.size(), 1000u);
    auto tracker = trackerFor(std::make_shared<PeloraApiAd>());
    auto image = std::make_shared<ui::ImageView>(platform::makeRect(0, 0, 10, 10));
    for (const auto& url : urls) {
        auto track = std::make_shared<PeloraRespTrackObject>();
        track->urls = std::vector<std::string>{url};
        tracker->replaceUrlUploadTrack(track, *tracker->defalutReplace());
        track->method = "POST";
        track->content = "{}";
        tracker->replaceUrlUploadTrack(track, *tracker->defalutReplace());
        pl_setImageUrl(*image, url);
        PeloraNetwork::downloadTaskWithUrl(url, {}, std::nullopt, nullptr);
        tp.settle();
    }
    // Four calls a URL: most of the corpus is at least tried.
    EXPECT_GE(tp.fake->requests().size(), 2 * urls.size());
    for (const auto& url : fetched) {
        EXPECT_TRUE(isWeb(url)) << url;
        for (unsigned char c : url) EXPECT_GT(c, 0x20) << url;
    }
    // Downloaded files stay inside the SDK's own directory, whatever the URL's last component.
    const fs::path caches = fs::canonical(tp.cachesDirectory());
    for (const auto& entry : fs::recursive_directory_iterator(tp.rootDirectory())) {
        if (!entry.is_regular_file()) continue;
        const fs::path file = fs::canonical(entry.path());
        EXPECT_EQ(file.parent_path(), caches / "Pelora") << file;
    }
}

// Tried as a deep link (its landing page, the same text, opened outside when it fails) and as
// a landing page for the in-app browser.
TEST_F(UrlCorpusTest, LandingPagesAndDeepLinksNeverOpenLocalSchemes) {
    for (const auto& url : corpusUrls()) {
        for (bool inApp : {false, true}) {
            root->dismissViewControllerAnimated(false, nullptr);
            auto ad = std::make_shared<PeloraApiAd>();
            ad->interactionType = inApp ? 2 : 1;
            ad->clickAdUrl = url;
            if (!inApp) ad->deeplink = url;
            trackerFor(ad)->triggerInteraction();
            tp.settle();
            if (auto page = std::dynamic_pointer_cast<ui::BrowserViewController>(
                    root->presentedViewController())) {
                EXPECT_TRUE(isWeb(page->url())) << page->url();
            }
        }
    }
    size_t opened = 0;
    for (const auto& request : tp.opener->requests()) {
        if (request.refused) continue;
        ++opened;
        const std::string scheme = browserScheme(request.url);
        EXPECT_TRUE(scheme != "file" && scheme != "data" && scheme != "javascript") << request.url;
    }
    EXPECT_GT(opened, 0u);
    EXPECT_LT(opened, tp.opener->requests().size()) << "some are refused";
}

}  // namespace
