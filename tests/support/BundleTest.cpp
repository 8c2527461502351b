// The SDK's resource bundle: where it is found, which image variant a name resolves to, and
// the interface files it loads.
#include <gtest/gtest.h>
#include <stb/stb_image_write.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

#include "TestPlatform.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/ui/Label.h"
#include "support/PeloraResourceBundle.h"
#include "support/PeloraTool.h"

namespace {

namespace fs = std::filesystem;

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

    // "<pixel width> @<scale>" of the image `name` resolves to, or "none".
    static std::string lookup(const std::string& name) {
        auto image = PeloraTool::imageWithName(name);
        if (!image) return "none";
        return std::to_string(image->pixelWidth) + " @" +
               std::to_string(static_cast<int>(image->scale));
    }

    pelora::testing::TestPlatform platform;
    fs::path bundle;
};

TEST_F(BundleTest, FoundInTheMainBundleRetriedWhileMissingThenKept) {
    EXPECT_FALSE(PeloraTool::apiBundle());
    EXPECT_FALSE(PeloraTool::imageWithName("bu_play"));
    EXPECT_FALSE(PeloraTool::loadNib("PeloraSplashAdView"));
    // A file named like the bundle is not a bundle.
    fs::create_directories(bundle.parent_path());
    std::ofstream(bundle) << "not a directory";
    EXPECT_FALSE(PeloraTool::apiBundle());
    fs::remove(bundle);

    put("a.png", pngOfWidth(1));
    auto found = PeloraTool::apiBundle();
    ASSERT_TRUE(found);
    EXPECT_EQ(fs::path(found->bundlePath), bundle);
    // Once found, the bundle stays even if the main bundle path changes.
    platform.device->bundlePath = platform.rootDirectory() + "/Elsewhere";
    EXPECT_EQ(PeloraTool::apiBundle(), found);
}

TEST_F(BundleTest, WhereTheHostPointsWinsAndIsTheOnlyPlaceLooked) {
    put("a.png", pngOfWidth(1));  // a bundle beside the executable too
    const auto shared = fs::path(platform.rootDirectory()) / "Shared" / "PeloraSDKBundle.bundle";
    fs::create_directories(shared);
    auto pointTo = [&](std::optional<std::string> path) {
        PeloraSDKManager::shutdown();  // the bundle found before is forgotten
        platform.options.resourceBundlePath = std::move(path);
        platform.install();
    };
    pointTo(shared.string() + "/");
    auto found = PeloraTool::apiBundle();
    ASSERT_TRUE(found);
    EXPECT_EQ(fs::path(found->bundlePath), shared);

    pointTo(platform.rootDirectory() + "/Nowhere");
    EXPECT_FALSE(PeloraTool::apiBundle()) << "a path the host gave is not second-guessed";

    pointTo(std::nullopt);
    found = PeloraTool::apiBundle();
    ASSERT_TRUE(found);
    EXPECT_EQ(fs::path(found->bundlePath), bundle);
}

// The screen's scale first, then the larger, then the nearest smaller variant; a name with an
// extension or a scale is taken as it is; nothing outside the bundle, nothing undecodable.
TEST_F(BundleTest, ImageNamesResolveByScreenScaleInsideTheBundleOnly) {
    for (std::string name :
         {"icon.png", "icon@2x.png", "icon@3x.png", "big@3x.png", "plain.png", "two@2x.png"})
        put(name, pngOfWidth(name.find("@3x") != name.npos   ? 3
                             : name.find("@2x") != name.npos ? 2
                                                             : 1));
    put("broken@2x.png", "this is not a png");
    fs::create_directories(bundle.parent_path() / "outside");
    std::ofstream(bundle.parent_path() / "secret.png", std::ios::binary) << pngOfWidth(5);

    const std::tuple<int, const char*, const char*> cases[] = {
        {2, "icon", "2 @2"},        {2, "big", "3 @3"},        {2, "plain", "1 @1"},
        {3, "icon", "3 @3"},        {3, "two", "2 @2"},        {1, "icon", "1 @1"},
        {1, "big", "3 @3"},         {2, "icon@3x", "3 @3"},    {2, "icon.png", "1 @1"},
        {2, "icon@3x.png", "3 @3"}, {2, "icon@1x", "none"},    {2, "nothing", "none"},
        {2, "broken", "none"},      {2, "", "none"},           {2, "../secret.png", "none"},
        {2, "../secret", "none"},   {2, "/etc/passwd", "none"}};
    for (const auto& [scale, name, expected] : cases) {
        platform.device->scale = scale;
        EXPECT_EQ(lookup(name), expected) << name << " at scale " << scale;
    }
    EXPECT_EQ(PeloraTool::imageWithName("icon")->name, "icon@2x.png");
    EXPECT_FALSE(PeloraTool::loadNib("../outside/x"));

    platform.imageDecoder = nullptr;
    platform.install();
    EXPECT_EQ(lookup("plain"), "none");
}

TEST_F(BundleTest, ShippedArtworkResolvesAtBothScales) {
    platform.device->bundlePath = std::string(PELORA_SOURCE_DIR) + "/resources";
    for (int scale : {2, 3}) {
        platform.device->scale = scale;
        for (const char* name : {"bu_play", "bu_voice", "bu_voice_silent", "bu_splashClose"}) {
            auto image = PeloraTool::imageWithName(name);
            ASSERT_TRUE(image) << name;
            EXPECT_EQ(image->pixelWidth, 30 * scale) << name;
            EXPECT_EQ(image->width(), 30) << name;
        }
    }
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
    auto good = std::dynamic_pointer_cast<pelora::ui::Label>(PeloraTool::loadNib("good"));
    ASSERT_TRUE(good);  // the first top-level object
    EXPECT_EQ(good->text(), "hi");
    EXPECT_TRUE(PeloraTool::loadNib("good.json"));
}

}  // namespace
