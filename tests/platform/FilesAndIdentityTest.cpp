#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "TestPlatform.h"
#include "pelora/desktop/DesktopDeviceInfo.h"
#include "pelora/desktop/DesktopFileSystem.h"
#include "pelora/desktop/DesktopPlatform.h"

namespace {

namespace fs = std::filesystem;
using pelora::desktop::DesktopDeviceInfo;
using pelora::desktop::DesktopFileSystem;

const std::regex kUpperUUID("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$");

// A scratch directory and environment overrides, undone at the end of each test.
class ScratchTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string templ = (fs::temp_directory_path() / "pelora-files-XXXXXX").string();
        ASSERT_TRUE(::mkdtemp(templ.data()));
        root = templ;
        saveEnv("XDG_CACHE_HOME");
        saveEnv("HOME");
    }
    void TearDown() override {
        for (auto& [name, value] : savedEnv) {
            if (value) {
                ::setenv(name.c_str(), value->c_str(), 1);
            } else {
                ::unsetenv(name.c_str());
            }
        }
        std::error_code ec;
        fs::remove_all(root, ec);
    }
    void saveEnv(const std::string& name) {
        const char* v = std::getenv(name.c_str());
        savedEnv.emplace_back(name, v ? std::optional<std::string>(v) : std::nullopt);
    }
    void write(const fs::path& p, const std::string& text) {
        fs::create_directories(p.parent_path());
        std::ofstream(p) << text;
    }

    fs::path root;
    std::vector<std::pair<std::string, std::optional<std::string>>> savedEnv;
};

using CachesDirectoryTest = ScratchTest;

TEST_F(CachesDirectoryTest, LivesUnderXdgCacheHomeNamedBySanitizedBundleId) {
    ::setenv("XDG_CACHE_HOME", (root / "xdg").c_str(), 1);
    DesktopFileSystem files({.bundleIdentifier = "com.example/../evil app"});
    std::string caches = files.cachesDirectory();
    EXPECT_EQ(fs::path(caches).parent_path(), root / "xdg");
    EXPECT_EQ(fs::path(caches).filename(), "com.example_.._evil_app");
    EXPECT_TRUE(fs::is_directory(caches));
    EXPECT_EQ(fs::status(caches).permissions() & fs::perms::all, fs::perms::owner_all);
}

TEST_F(CachesDirectoryTest, FallsBackToHomeDotCacheAndRefusesUnsafeNames) {
    ::unsetenv("XDG_CACHE_HOME");
    ::setenv("HOME", (root / "home").c_str(), 1);
    DesktopFileSystem dots({.bundleIdentifier = ".."});
    EXPECT_EQ(fs::path(dots.cachesDirectory()), root / "home/.cache/pelora.host");
    ::setenv("XDG_CACHE_HOME", "relative/dir", 1);  // not absolute: ignored
    DesktopFileSystem app({.bundleIdentifier = "com.example.demohost"});
    EXPECT_EQ(fs::path(app.cachesDirectory()), root / "home/.cache/com.example.demohost");
}

using FileOperationsTest = ScratchTest;

TEST_F(FileOperationsTest, CreateMoveRemoveAndExists) {
    DesktopFileSystem files;
    const std::string deep = (root / "a/b/c").string();
    EXPECT_FALSE(files.createDirectory(deep, false));  // parents missing
    EXPECT_TRUE(files.createDirectory(deep, true));
    bool isDir = false;
    EXPECT_TRUE(files.fileExists(deep, &isDir));
    EXPECT_TRUE(isDir);
    EXPECT_TRUE(files.createDirectory(deep, true));  // already there: still fine
    EXPECT_FALSE(files.createDirectory(deep, false));

    const std::string file = deep + "/v.mp4";
    ASSERT_TRUE(files.writeFile(file, std::string("\0bytes", 6)));
    EXPECT_TRUE(files.fileExists(file, &isDir));
    EXPECT_FALSE(isDir);
    EXPECT_EQ(files.readFile(file), std::string("\0bytes", 6));

    const std::string moved = (root / "moved.mp4").string();
    EXPECT_TRUE(files.moveItem(file, moved));
    EXPECT_FALSE(files.fileExists(file));
    EXPECT_EQ(files.readFile(moved), std::string("\0bytes", 6));
    ASSERT_TRUE(files.writeFile(file, "other"));
    EXPECT_FALSE(files.moveItem(file, moved));  // never replaces an existing item
    EXPECT_EQ(files.readFile(moved), std::string("\0bytes", 6));

    EXPECT_TRUE(files.removeItem((root / "a").string()));  // recursive
    EXPECT_FALSE(files.fileExists(deep));
    EXPECT_FALSE(files.removeItem((root / "a").string()));
    EXPECT_FALSE(files.readFile((root / "a").string()));
    EXPECT_FALSE(files.moveItem((root / "nothing").string(), (root / "x").string()));
}

using DeviceIdentityTest = ScratchTest;

TEST_F(DeviceIdentityTest, UUIDTextsAreUpperCaseAndDistinct) {
    DesktopDeviceInfo device({.machineIdPath = (root / "none").string()});
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        std::string id = device.makeUUID();
        ASSERT_EQ(id.size(), 36u);
        ASSERT_TRUE(std::regex_match(id, kUpperUUID)) << id;
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), 100u);
    EXPECT_EQ(device.advertisingIdentifier(), "00000000-0000-0000-0000-000000000000");
}

TEST_F(DeviceIdentityTest, VendorIdIsStablePerMachineAndHostAndDiffersBetweenHosts) {
    write(root / "machine-id", "0123456789abcdef0123456789abcdef\n");
    auto make = [&](const std::string& bundleId) {
        DesktopDeviceInfo::Options o;
        o.machineIdPath = (root / "machine-id").string();
        o.bundleInfo = {{"CFBundleIdentifier", bundleId}};
        return DesktopDeviceInfo(o).identifierForVendor();
    };
    auto first = make("com.example.demohost");
    ASSERT_TRUE(first);
    EXPECT_TRUE(std::regex_match(*first, kUpperUUID)) << *first;
    EXPECT_EQ(make("com.example.demohost"), first);
    EXPECT_NE(make("com.example.other"), first);
}

TEST_F(DeviceIdentityTest, WithoutMachineIdTheGeneratedVendorIdIsKept) {
    DesktopDeviceInfo::Options o;
    o.machineIdPath = (root / "missing").string();
    o.vendorIdFile = (root / "caches/vendor-id").string();
    auto first = DesktopDeviceInfo(o).identifierForVendor();
    auto second = DesktopDeviceInfo(o).identifierForVendor();
    ASSERT_TRUE(first);
    EXPECT_TRUE(std::regex_match(*first, kUpperUUID));
    EXPECT_EQ(first, second);
}

TEST_F(DeviceIdentityTest, BundleInfoComesFromInfoJsonBesideTheExecutable) {
    write(root / "bundle/Info.json",
          R"({"CFBundleName":"DemoHost","CFBundleIdentifier":"com.example.demohost",
              "CFBundleShortVersionString":"2.5.0","CFBundleVersion":123,"Nested":{"x":1}})");
    DesktopDeviceInfo device({.mainBundlePath = (root / "bundle").string()});
    EXPECT_EQ(device.infoValue("CFBundleName"), "DemoHost");
    EXPECT_EQ(device.infoValue("CFBundleShortVersionString"), "2.5.0");
    EXPECT_EQ(device.infoValue("CFBundleVersion"), "123");
    EXPECT_FALSE(device.infoValue("Nested"));
    EXPECT_FALSE(device.infoValue("CFBundleMissing"));
    EXPECT_EQ(device.mainBundlePath(), (root / "bundle").string());

    write(root / "broken/Info.json", "{not json");
    DesktopDeviceInfo broken({.mainBundlePath = (root / "broken").string()});
    EXPECT_FALSE(broken.infoValue("CFBundleName"));
}

TEST_F(DeviceIdentityTest, ScreenAndMachineDescription) {
    DesktopDeviceInfo portrait;
    EXPECT_EQ(portrait.screenBounds(), pelora::platform::makeRect(0, 0, 375, 667));
    EXPECT_EQ(portrait.screenScale(), 2);
    EXPECT_EQ(portrait.statusBarOrientation(), pelora::platform::InterfaceOrientation::kPortrait);
    DesktopDeviceInfo landscape(
        {.orientation = pelora::platform::InterfaceOrientation::kLandscapeLeft});
    EXPECT_EQ(landscape.screenBounds(), pelora::platform::makeRect(0, 0, 667, 375));
    EXPECT_FALSE(portrait.systemVersion().empty());
    EXPECT_FALSE(portrait.model().empty());
    EXPECT_FALSE(portrait.mobileCountryCode());
    EXPECT_FALSE(portrait.mobileNetworkCode());
    EXPECT_FALSE(portrait.currentRadioAccessTechnology());
    EXPECT_EQ(portrait.mainBundlePath(), DesktopDeviceInfo::executableDirectory());
}

TEST_F(DeviceIdentityTest, DesktopPlatformInstallsEveryRealService) {
    ::setenv("XDG_CACHE_HOME", (root / "xdg").c_str(), 1);
    auto s = pelora::desktop::makeDesktopServices(
        {.bundleInfo = {{"CFBundleIdentifier", "com.example.demohost"}}});
    ASSERT_TRUE(s.clock && s.mainRunLoop && s.http && s.files && s.device && s.reachability &&
                s.urlOpener && s.imageDecoder);
    EXPECT_EQ(fs::path(s.files->cachesDirectory()), root / "xdg/com.example.demohost");
    EXPECT_TRUE(s.reachability->createWithName("www.example.com"));
}

TEST(FakeDeviceInfoTest, DefaultsDescribeTheDemoHostOnAPortraitPhone) {
    pelora::testing::FakeDeviceInfo device;
    EXPECT_EQ(device.infoValue("CFBundleIdentifier"), "com.example.demohost");
    EXPECT_EQ(device.infoValue("CFBundleVersion"), "1.2.3");
    EXPECT_TRUE(std::regex_match(*device.identifierForVendor(), kUpperUUID));
    std::string a = device.makeUUID(), b = device.makeUUID();
    EXPECT_TRUE(std::regex_match(a, kUpperUUID)) << a;
    EXPECT_NE(a, b);
    EXPECT_EQ(device.issuedUUIDs(), (std::vector<std::string>{a, b}));
}

}  // namespace
