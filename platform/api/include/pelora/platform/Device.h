#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "pelora/platform/Export.h"
#include "pelora/platform/Geometry.h"

namespace pelora::platform {

// Status-bar orientation values as the phone platform numbers them.
namespace InterfaceOrientation {
inline constexpr int64_t kUnknown = 0;
inline constexpr int64_t kPortrait = 1;
inline constexpr int64_t kPortraitUpsideDown = 2;
inline constexpr int64_t kLandscapeRight = 3;
inline constexpr int64_t kLandscapeLeft = 4;
}  // namespace InterfaceOrientation

// Radio access technology names reported by currentRadioAccessTechnology().
namespace RadioAccessTechnology {
inline constexpr const char* kGPRS = "GPRS";
inline constexpr const char* kEdge = "Edge";
inline constexpr const char* kWCDMA = "WCDMA";
inline constexpr const char* kHSDPA = "HSDPA";
inline constexpr const char* kHSUPA = "HSUPA";
inline constexpr const char* kCDMA1x = "CDMA1x";
inline constexpr const char* kCDMAEVDORev0 = "CDMAEVDORev0";
inline constexpr const char* kCDMAEVDORevA = "CDMAEVDORevA";
inline constexpr const char* kCDMAEVDORevB = "CDMAEVDORevB";
inline constexpr const char* keHRPD = "eHRPD";
inline constexpr const char* kLTE = "LTE";
}  // namespace RadioAccessTechnology

// Main bundle information keys.
inline constexpr const char* kCFBundleName = "CFBundleName";
inline constexpr const char* kCFBundleIdentifier = "CFBundleIdentifier";
inline constexpr const char* kCFBundleShortVersionString = "CFBundleShortVersionString";
inline constexpr const char* kCFBundleVersion = "CFBundleVersion";

// Device and application identity.
class PELORA_EXPORT DeviceInfo {
  public:
    virtual ~DeviceInfo() = default;
    // Per-vendor identifier, canonical upper-case UUID text (36 characters), stable per machine.
    virtual std::optional<std::string> identifierForVendor() = 0;
    // Advertising identifier; all zeros ("00000000-0000-0000-0000-000000000000") when none.
    virtual std::string advertisingIdentifier() = 0;
    virtual std::string systemVersion() = 0;
    virtual std::string model() = 0;
    // Main screen bounds in points (orientation-dependent) and its scale factor.
    virtual Rect screenBounds() = 0;
    virtual double screenScale() = 0;
    virtual int64_t statusBarOrientation() = 0;
    // Value of a main bundle information key, absent when missing.
    virtual std::optional<std::string> infoValue(const std::string& key) = 0;
    // A fresh random UUID in canonical upper-case text form with hyphens.
    virtual std::string makeUUID() = 0;
    // Carrier codes of the subscriber's provider; absent on machines without one.
    virtual std::optional<std::string> mobileCountryCode() = 0;
    virtual std::optional<std::string> mobileNetworkCode() = 0;
    // One of RadioAccessTechnology, or absent when there is no cellular radio.
    virtual std::optional<std::string> currentRadioAccessTechnology() = 0;
    // Directory that holds the host's resources ("main bundle"), where PeloraSDKBundle.bundle
    // is looked up.
    virtual std::string mainBundlePath() = 0;
};

}  // namespace pelora::platform
