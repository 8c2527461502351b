// The desktop file system's caches directory and the device's identity. Placing a download
// (its directory made, an older file of its name removed, the new one moved in) is held where
// the SDK does it: tests/core TransportTest and FaultInjectionTest.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "pelora/desktop/DesktopDeviceInfo.h"
#include "pelora/desktop/DesktopFileSystem.h"

namespace {

namespace fs = std::filesystem;
using pelora::desktop::DesktopDeviceInfo;
using pelora::desktop::DesktopFileSystem;
using pelora::platform::makeRect;

bool isUpperUUID(const std::string& s) {
    static const std::regex upper("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$");
    return std::regex_match(s, upper);
}

// A scratch directory, and the environment restored at the end of each test.
class ScratchTest : public ::testing::Test {
  protected:
    void TearDown() override {
        for (auto& [name, value] : savedEnv)
            value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
        fs::remove_all(root);
    }
    void write(const fs::path& p, const std::string& text) {
        fs::create_directories(p.parent_path());
        std::ofstream(p) << text;
    }
    static std::optional<std::string> env(const char* name) {
        const char* v = std::getenv(name);
        return v ? std::optional<std::string>(v) : std::nullopt;
    }

    std::pair<const char*, std::optional<std::string>> savedEnv[2] = {
        {"XDG_CACHE_HOME", env("XDG_CACHE_HOME")}, {"HOME", env("HOME")}};
    fs::path root = [] {
        std::string templ = (fs::temp_directory_path() / "pelora-files-XXXXXX").string();
        return fs::path(::mkdtemp(templ.data()));
    }();
};

using FileSystemTest = ScratchTest;

TEST_F(FileSystemTest, CachesLiveUnderTheUsersCacheHomeNamedBySafeBundleId) {
    ::setenv("XDG_CACHE_HOME", (root / "xdg").c_str(), 1);
    const std::string caches =
        DesktopFileSystem({.bundleIdentifier = "com.example/../evil app"}).cachesDirectory();
    EXPECT_EQ(fs::path(caches), root / "xdg/com.example_.._evil_app");
    EXPECT_EQ(fs::status(caches).permissions() & fs::perms::all, fs::perms::owner_all);
    const fs::path longName =
        DesktopFileSystem({.bundleIdentifier = std::string(300, 'a')}).cachesDirectory();
    EXPECT_EQ(longName.filename(), std::string(200, 'a'));  // cut to what a file system takes
    ::setenv("XDG_CACHE_HOME", "relative/dir", 1);          // not absolute: ignored
    ::setenv("HOME", (root / "home").c_str(), 1);
    EXPECT_EQ(fs::path(DesktopFileSystem({.bundleIdentifier = ".."}).cachesDirectory()),
              root / "home/.cache/pelora.host");
}

using DeviceIdentityTest = ScratchTest;

TEST_F(DeviceIdentityTest, UUIDsAreDistinctAndTheVendorIdStablePerMachineAndHostOrKept) {
    std::set<std::string> uuids;
    DesktopDeviceInfo device({.machineIdPath = (root / "none").string()});
    for (int i = 0; i < 100; ++i) uuids.insert(device.makeUUID());
    EXPECT_EQ(uuids.size(), 100u);
    EXPECT_TRUE(isUpperUUID(*uuids.begin())) << *uuids.begin();

    write(root / "machine-id", "0123456789abcdef0123456789abcdef\n");
    auto vendorId = [&](const std::string& bundleId, const char* machineId) {
        return DesktopDeviceInfo({.bundleInfo = {{"CFBundleIdentifier", bundleId}},
                                  .machineIdPath = (root / machineId).string(),
                                  .vendorIdFile = (root / "caches/vendor-id").string()})
            .identifierForVendor()
            .value_or("none");
    };
    const auto first = vendorId("com.example.demohost", "machine-id");
    EXPECT_TRUE(isUpperUUID(first)) << first;
    EXPECT_EQ(vendorId("com.example.demohost", "machine-id"), first);
    EXPECT_NE(vendorId("com.example.other", "machine-id"), first);
    const auto generated = vendorId("com.example.demohost", "missing");  // then kept
    EXPECT_TRUE(isUpperUUID(generated)) << generated;
    EXPECT_EQ(vendorId("com.example.demohost", "missing"), generated);
}

TEST_F(DeviceIdentityTest, BundleInfoComesFromInfoJsonBesideTheExecutable) {
    write(root / "bundle/Info.json",
          R"({"CFBundleName":"DemoHost","CFBundleVersion":123,"Nested":{"x":1}})");
    write(root / "broken/Info.json", "{not json");
    auto info = [&](const char* bundle, const char* key) {
        return DesktopDeviceInfo({.mainBundlePath = (root / bundle).string()})
            .infoValue(key)
            .value_or("none");
    };
    EXPECT_EQ(info("bundle", "CFBundleName"), "DemoHost");
    EXPECT_EQ(info("bundle", "CFBundleVersion"), "123");
    EXPECT_EQ(info("broken", "CFBundleName"), "none");
    // Bounds follow the interface orientation, as on a phone.
    const auto landscape = pelora::platform::InterfaceOrientation::kLandscapeLeft;
    EXPECT_EQ(DesktopDeviceInfo({.orientation = landscape}).screenBounds(),
              makeRect(0, 0, 667, 375));
}

}  // namespace
