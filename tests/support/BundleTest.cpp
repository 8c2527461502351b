// The SDK's resource bundle: where it is found, which image variant a name resolves to, and
// the interface files it loads.
#include <gtest/gtest.h>
#include <stb/stb_image_write.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "TestPlatform.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/ui/Button.h"
#include "pelora/ui/ImageView.h"
#include "pelora/ui/Label.h"
#include "pelora/ui/NibLoader.h"
#include "support/PeloraResourceBundle.h"
#include "support/PeloraTool.h"

namespace {

namespace fs = std::filesystem;
using pelora::testing::TestPlatform;
using namespace pelora::ui;

void appendBytes(void* context, void* data, int size) {
    static_cast<std::string*>(context)->append(static_cast<const char*>(data),
                                               static_cast<size_t>(size));
}

// A PNG of `width` x 1 pixels: the width tells which file a lookup picked.
std::string pngOfWidth(int width) {
    std::vector<uint8_t> px(static_cast<size_t>(width) * 4, 200);
    std::string out;
    stbi_write_png_to_func(appendBytes, &out, width, 1, 4, px.data(), width * 4);
    return out;
}

class BundleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        PeloraResetApiBundleCache();
        bundle = fs::path(platform.device->bundlePath) / "PeloraSDKBundle.bundle";
    }
    void TearDown() override { PeloraResetApiBundleCache(); }

    void put(const std::string& name, const std::string& bytes) {
        fs::create_directories(bundle);
        std::ofstream(bundle / name, std::ios::binary) << bytes;
    }

    int widthOf(const std::string& name) {
        auto image = PeloraTool::imageWithName(name);
        return image ? image->pixelWidth : -1;
    }

    TestPlatform platform;
    fs::path bundle;
};

TEST_F(BundleTest, FoundInTheMainBundleRetriedWhileMissingThenKept) {
    EXPECT_FALSE(PeloraTool::apiBundle());
    EXPECT_FALSE(PeloraTool::imageWithName("bu_play"));
    EXPECT_FALSE(PeloraTool::loadNib("PeloraSplashAdView"));

    put("a.png", pngOfWidth(1));
    auto found = PeloraTool::apiBundle();
    ASSERT_TRUE(found);
    EXPECT_EQ(fs::path(found->bundlePath), bundle);
    EXPECT_EQ(PeloraTool::apiBundle(), found);

    // Once found, the bundle stays even if the main bundle path changes.
    platform.device->bundlePath = platform.rootDirectory() + "/Elsewhere";
    EXPECT_EQ(PeloraTool::apiBundle(), found);
}

TEST_F(BundleTest, WhereTheHostPointsWinsAndIsTheOnlyPlaceLooked) {
    put("a.png", pngOfWidth(1));  // a bundle beside the executable too
    const auto shared = fs::path(platform.rootDirectory()) / "Shared" / "PeloraSDKBundle.bundle";
    fs::create_directories(shared);
    PeloraConstConfig::setResourceBundlePath(shared.string() + "/");
    auto found = PeloraTool::apiBundle();
    ASSERT_TRUE(found);
    EXPECT_EQ(fs::path(found->bundlePath), shared);

    PeloraConstConfig::setResourceBundlePath(platform.rootDirectory() + "/Nowhere");
    EXPECT_FALSE(PeloraTool::apiBundle()) << "a path the host gave is not second-guessed";
    EXPECT_FALSE(PeloraTool::loadNib("PeloraSplashAdView"));

    PeloraConstConfig::setResourceBundlePath(std::nullopt);
    found = PeloraTool::apiBundle();
    ASSERT_TRUE(found);
    EXPECT_EQ(fs::path(found->bundlePath), bundle);
}

TEST_F(BundleTest, AFileNamedLikeTheBundleIsNotABundle) {
    fs::create_directories(bundle.parent_path());
    std::ofstream(bundle) << "not a directory";
    EXPECT_FALSE(PeloraTool::apiBundle());
}

TEST_F(BundleTest, PrefersTheScreenScaleThenLargerThenSmallerVariants) {
    put("icon.png", pngOfWidth(1));
    put("icon@2x.png", pngOfWidth(2));
    put("icon@3x.png", pngOfWidth(3));
    put("big@3x.png", pngOfWidth(3));
    put("plain.png", pngOfWidth(1));
    put("two@2x.png", pngOfWidth(2));

    platform.device->scale = 2;
    auto icon = PeloraTool::imageWithName("icon");
    ASSERT_TRUE(icon);
    EXPECT_EQ(icon->pixelWidth, 2);
    EXPECT_EQ(icon->scale, 2.0);
    EXPECT_EQ(icon->name, "icon@2x.png");
    EXPECT_EQ(widthOf("big"), 3);  // no @2x: the larger variant before nothing
    EXPECT_EQ(PeloraTool::imageWithName("big")->scale, 3.0);
    EXPECT_EQ(widthOf("plain"), 1);
    EXPECT_EQ(PeloraTool::imageWithName("plain")->scale, 1.0);

    platform.device->scale = 3;
    EXPECT_EQ(widthOf("icon"), 3);
    EXPECT_EQ(widthOf("two"), 2);  // only smaller variants left: the nearest one

    platform.device->scale = 1;
    EXPECT_EQ(widthOf("icon"), 1);
    EXPECT_EQ(widthOf("big"), 3);
}

TEST_F(BundleTest, ExplicitExtensionOrScaleIsUsedAsIs) {
    put("icon.png", pngOfWidth(1));
    put("icon@2x.png", pngOfWidth(2));
    put("icon@3x.png", pngOfWidth(3));
    platform.device->scale = 2;

    auto three = PeloraTool::imageWithName("icon@3x");
    ASSERT_TRUE(three);
    EXPECT_EQ(three->pixelWidth, 3);
    EXPECT_EQ(three->scale, 3.0);
    EXPECT_EQ(widthOf("icon.png"), 1);
    EXPECT_EQ(PeloraTool::imageWithName("icon.png")->scale, 1.0);
    EXPECT_EQ(widthOf("icon@3x.png"), 3);
    EXPECT_EQ(PeloraTool::imageWithName("icon@3x.png")->scale, 3.0);
    EXPECT_EQ(widthOf("icon@1x"), -1);  // no such file, and no guessing around it
}

TEST_F(BundleTest, MissingUnreadableOrEscapingNamesGiveNothing) {
    put("broken@2x.png", "this is not a png");
    put("ok.png", pngOfWidth(1));
    fs::create_directories(bundle.parent_path() / "outside");
    std::ofstream(bundle.parent_path() / "secret.png", std::ios::binary) << pngOfWidth(5);

    EXPECT_EQ(widthOf("nothing"), -1);
    EXPECT_EQ(widthOf("broken"), -1);
    EXPECT_EQ(widthOf(""), -1);
    EXPECT_EQ(widthOf("../secret.png"), -1);
    EXPECT_EQ(widthOf("../secret"), -1);
    EXPECT_EQ(widthOf("/etc/passwd"), -1);
    EXPECT_FALSE(PeloraTool::loadNib("../outside/x"));

    platform.imageDecoder = nullptr;
    platform.install();
    EXPECT_EQ(widthOf("ok"), -1);
}

// Stands in for the SDK's splash view class, which registers itself under this name.
class SplashStandIn : public View {
  public:
    std::string className() const override { return "PeloraSplashAdView"; }
    void awakeFromNib() override { ++awakened; }
    int awakened = 0;
};

TEST_F(BundleTest, SplashInterfaceFileHasEveryOutletTheViewNeeds) {
    platform.device->bundlePath = std::string(PELORA_SOURCE_DIR) + "/resources";
    NibLoader::registerClass("PeloraSplashAdView",
                             [] { return std::make_shared<SplashStandIn>(); });
    auto root = PeloraTool::loadNib("PeloraSplashAdView");
    ASSERT_TRUE(root);
    auto splash = std::dynamic_pointer_cast<SplashStandIn>(root);
    ASSERT_TRUE(splash);
    EXPECT_EQ(splash->awakened, 1);
    EXPECT_GT(root->frame().width(), 0);
    EXPECT_GT(root->frame().height(), root->frame().width());

    auto imageV = std::dynamic_pointer_cast<ImageView>(root->outlet("imageV"));
    auto titleL = std::dynamic_pointer_cast<Label>(root->outlet("titleL"));
    auto skipCV = root->outlet("skipCV");
    auto countL = std::dynamic_pointer_cast<Label>(root->outlet("countL"));
    auto skipBtn = std::dynamic_pointer_cast<Button>(root->outlet("skipBtn"));
    ASSERT_TRUE(imageV && titleL && skipCV && countL && skipBtn);
    EXPECT_EQ(imageV->superview(), root);
    EXPECT_EQ(imageV->frame(), root->bounds());
    EXPECT_EQ(titleL->superview(), root);
    EXPECT_TRUE(titleL->hidden());
    EXPECT_EQ(skipCV->superview(), root);
    EXPECT_EQ(countL->superview(), skipCV);
    EXPECT_EQ(skipBtn->superview(), skipCV);
    EXPECT_GT(skipCV->frame().height(), 0);
    EXPECT_EQ(countL->text(), "5");
    EXPECT_EQ(skipBtn->titleForState(ControlState::Normal), "Skip");
    // The countdown sits above the image, so taps on skip never reach the ad.
    EXPECT_EQ(root->hitTest(Point{skipBtn->frame().origin.x + skipCV->frame().origin.x + 5,
                                  skipCV->frame().origin.y + 5}),
              skipBtn);
}

TEST_F(BundleTest, ShippedArtworkResolvesAtBothScales) {
    platform.device->bundlePath = std::string(PELORA_SOURCE_DIR) + "/resources";
    for (const char* name : {"bu_play", "bu_voice", "bu_voice_silent", "bu_splashClose"}) {
        platform.device->scale = 2;
        auto two = PeloraTool::imageWithName(name);
        ASSERT_TRUE(two) << name;
        EXPECT_EQ(two->scale, 2.0);
        EXPECT_EQ(two->width(), 30) << name;
        platform.device->scale = 3;
        auto three = PeloraTool::imageWithName(name);
        ASSERT_TRUE(three) << name;
        EXPECT_EQ(three->pixelWidth, 90) << name;
        EXPECT_EQ(three->width(), 30) << name;
    }
    EXPECT_TRUE(PeloraTool::imageWithName("bu_play@2x.png"));
    EXPECT_TRUE(PeloraTool::imageWithName("bu_skip"));
}

TEST_F(BundleTest, InterfaceFilesThatCannotBeLoadedGiveNothing) {
    put("garbage.json", "{\"objects\": [");
    put("empty.json", "{\"objects\": []}");
    put("noclass.json", "{\"objects\": [{\"frame\": [0, 0, 1, 1]}]}");
    put("badframe.json", "{\"objects\": [{\"class\": \"View\", \"frame\": [0, 0, 1]}]}");
    put("unknown.json",
        "{\"objects\": [{\"class\": \"View\", \"subviews\": [{\"class\": \"Q\"}]}]}");
    put("good.json",
        "{\"format\": \"pelora-interface\", \"objects\": [{\"class\": \"Label\", "
        "\"properties\": {\"text\": \"hi\"}}, {\"class\": \"Button\"}]}");
    for (const char* name : {"garbage", "empty", "noclass", "badframe", "unknown", "missing"})
        EXPECT_FALSE(PeloraTool::loadNib(name)) << name;
    auto good = std::dynamic_pointer_cast<Label>(PeloraTool::loadNib("good"));
    ASSERT_TRUE(good);  // the first top-level object
    EXPECT_EQ(good->text(), "hi");
    EXPECT_TRUE(PeloraTool::loadNib("good.json"));
}

}  // namespace
