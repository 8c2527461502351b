#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "pelora/platform/Device.h"
#include "pelora/platform/Export.h"

namespace pelora::desktop {

// Device and application identity on a Linux machine.
//  - identifierForVendor: derived from the machine id and the bundle identifier, so it is
//    stable across runs and differs between hosts; without a machine id a generated one is
//    kept in `vendorIdFile`.
//  - advertisingIdentifier: all zeros (a desktop has no advertising identifier).
//  - bundle info: `bundleInfo` when given, else `Info.json` in `mainBundlePath`.
class PELORA_EXPORT DesktopDeviceInfo final : public platform::DeviceInfo {
  public:
    struct Options {
        // Info keys; when empty they are read from <mainBundlePath>/Info.json.
        std::map<std::string, std::string> bundleInfo;
        // Defaults to the directory of the running executable.
        std::string mainBundlePath;
        // Headless default: a 375x667-point portrait screen at scale 2.
        double screenWidth = 375;
        double screenHeight = 667;
        double screenScale = 2;
        int64_t orientation = platform::InterfaceOrientation::kPortrait;
        // Overrides for what the machine reports.
        std::optional<std::string> systemVersion;
        std::optional<std::string> model;
        std::string machineIdPath = "/etc/machine-id";
        // Where a generated vendor id is kept when the machine has no id. Empty: not kept.
        std::string vendorIdFile;
    };

    DesktopDeviceInfo();
    explicit DesktopDeviceInfo(Options options);

    std::optional<std::string> identifierForVendor() override;
    std::string advertisingIdentifier() override;
    std::string systemVersion() override;
    std::string model() override;
    platform::Rect screenBounds() override;
    double screenScale() override;
    int64_t statusBarOrientation() override;
    std::optional<std::string> infoValue(const std::string& key) override;
    std::string makeUUID() override;
    std::optional<std::string> mobileCountryCode() override;
    std::optional<std::string> mobileNetworkCode() override;
    std::optional<std::string> currentRadioAccessTechnology() override;
    std::string mainBundlePath() override;

    // Canonical upper-case UUID text of 16 bytes.
    static std::string formatUUID(const unsigned char bytes[16]);
    // A name-based UUID (version 5 layout) of `name` within `ns`, from a 128-bit hash.
    static std::string derivedUUID(const std::string& ns, const std::string& name);
    static std::string randomUUID();
    // The directory of the running executable.
    static std::string executableDirectory();
    // Reads the info keys of an Info.json text: an object of string (or number) values.
    static std::map<std::string, std::string> parseInfoJson(const std::string& text);

  private:
    Options options_;
    std::map<std::string, std::string> info_;  // fixed after construction
    std::mutex vendorMutex_;
    std::optional<std::string> vendorId_;
};

}  // namespace pelora::desktop
