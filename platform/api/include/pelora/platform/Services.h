#pragma once

#include <memory>

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
};

// Replace the installed services. Not thread-safe against concurrent services() readers:
// install once at start-up (or per test, on the test's thread).
PELORA_EXPORT void installServices(Services services);
// The installed services. Aborts with a clear message when nothing was installed.
PELORA_EXPORT const Services& services();
PELORA_EXPORT bool hasServices();

}  // namespace pelora::platform
