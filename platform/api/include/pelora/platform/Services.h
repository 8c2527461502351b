#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "pelora/platform/Clock.h"
#include "pelora/platform/Device.h"
#include "pelora/platform/Export.h"
#include "pelora/platform/FileSystem.h"
#include "pelora/platform/Http.h"
#include "pelora/platform/Image.h"
#include "pelora/platform/MediaPlayer.h"
#include "pelora/platform/Reachability.h"
#include "pelora/platform/RunLoop.h"
#include "pelora/platform/UrlOpener.h"

namespace pelora::platform {

// The most one exchange may bring in. A body past its bound is cut off as it arrives and the
// exchange fails with the transport's "data length exceeds maximum" error (-1103), so a broken
// or hostile server cannot make one ad load cost more than a small multiple of these in memory
// (answers and images are held in memory, videos go to a file).
struct PELORA_EXPORT Limits {
    uint64_t answerBytes = 1024 * 1024;          // an ad answer, a tracking reply
    uint64_t imageBytes = 16 * 1024 * 1024;      // one image
    uint64_t videoBytes = 256ull * 1024 * 1024;  // one video file, on disk
};

// What the SDK takes from the host once, with the services. They hold until the services are
// installed again: install, use the SDK, PeloraSDKManager::shutdown(), install anew to change
// them (the SDK's HTTP sessions and resource bundle are made on first use, from these).
struct PELORA_EXPORT SdkOptions {
    // The ad server's origin (scheme and host, no trailing slash) in place of the compiled-in
    // one: a sandbox or a staging server.
    std::optional<std::string> serverOrigin;
    // The SDK's resource bundle ("PeloraSDKBundle.bundle": interface files, button artwork),
    // as the path of the bundle directory itself. Without one the SDK looks beside the host's
    // executable (its main bundle), then where the SDK was installed (<prefix>/share/pelora).
    // A missing bundle is logged once; the views that need it are then not made.
    std::optional<std::string> resourceBundlePath;
    Limits limits;
};

// The platform services the SDK runs on. A host installs one set at start-up, before its
// first SDK call (pelora::desktop::installDesktopPlatform() on Linux); tests install the
// deterministic set of pelora/testing. The SDK reads them through services().
struct PELORA_EXPORT Services {
    std::shared_ptr<Clock> clock;
    std::shared_ptr<RunLoop> mainRunLoop;
    std::shared_ptr<HttpSessionFactory> http;
    std::shared_ptr<FileSystem> files;
    std::shared_ptr<DeviceInfo> device;
    std::shared_ptr<ReachabilityService> reachability;
    std::shared_ptr<UrlOpener> urlOpener;
    std::shared_ptr<ImageDecoder> imageDecoder;
    // Video playback for rewarded video ads; null on a platform that cannot play video (a
    // rewarded video then fails as a player item error).
    std::shared_ptr<MediaPlayerService> mediaPlayer;
    SdkOptions options;
};

// Replace the installed services. Not thread-safe against concurrent services() readers:
// install once at start-up (or per test, on the test's thread).
PELORA_EXPORT void installServices(Services services);
// The installed services. Aborts with a clear message when nothing was installed.
PELORA_EXPORT const Services& services();
PELORA_EXPORT bool hasServices();

}  // namespace pelora::platform
