#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "pelora/platform/Device.h"
#include "pelora/platform/Export.h"

namespace pelora::testing {

// Device identity with fixed, realistic values that a test can change field by field.
// Defaults: a 375x667-point portrait phone at scale 2 running "14.2", model "iPhone", the
// DemoHost bundle (com.example.demohost 2.5.0 build 1.2.3), no carrier and no radio.
// makeUUID() hands out a predictable sequence unless `randomUUIDs` is set.
class PELORA_EXPORT FakeDeviceInfo final : public platform::DeviceInfo {
  public:
    static constexpr const char* kVendorId = "6F1C7B2A-3D4E-4F50-8A61-72B3C4D5E6F7";
    static constexpr const char* kZeroId = "00000000-0000-0000-0000-000000000000";

    std::optional<std::string> vendorId = std::string(kVendorId);
    std::string advertisingId = kZeroId;
    std::string version = "14.2";
    std::string modelName = "iPhone";
    platform::Rect bounds = platform::makeRect(0, 0, 375, 667);
    double scale = 2;
    int64_t orientation = platform::InterfaceOrientation::kPortrait;
    std::map<std::string, std::string> info = {
        {platform::kCFBundleName, "DemoHost"},
        {platform::kCFBundleIdentifier, "com.example.demohost"},
        {platform::kCFBundleShortVersionString, "2.5.0"},
        {platform::kCFBundleVersion, "1.2.3"},
    };
    std::optional<std::string> countryCode;
    std::optional<std::string> networkCode;
    std::optional<std::string> radioTechnology;
    std::string bundlePath;
    bool randomUUIDs = false;

    std::optional<std::string> identifierForVendor() override { return vendorId; }
    std::string advertisingIdentifier() override { return advertisingId; }
    std::string systemVersion() override { return version; }
    std::string model() override { return modelName; }
    platform::Rect screenBounds() override { return bounds; }
    double screenScale() override { return scale; }
    int64_t statusBarOrientation() override { return orientation; }
    std::optional<std::string> infoValue(const std::string& key) override;
    std::string makeUUID() override;
    std::optional<std::string> mobileCountryCode() override { return countryCode; }
    std::optional<std::string> mobileNetworkCode() override { return networkCode; }
    std::optional<std::string> currentRadioAccessTechnology() override { return radioTechnology; }
    std::string mainBundlePath() override { return bundlePath; }

    // UUIDs handed out so far by makeUUID(), oldest first.
    std::vector<std::string> issuedUUIDs() const;
    // Forgets them (a long-running test keeps the record from growing with every request).
    void forgetIssuedUUIDs();

  private:
    mutable std::mutex mutex_;
    uint64_t uuidCounter_ = 0;
    std::vector<std::string> issued_;
};

}  // namespace pelora::testing
