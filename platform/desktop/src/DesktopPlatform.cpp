#include "pelora/desktop/DesktopPlatform.h"

#include "pelora/desktop/CurlHttpSession.h"
#include "pelora/desktop/DesktopFileSystem.h"
#include "pelora/desktop/EventRunLoop.h"
#include "pelora/desktop/GstMediaPlayer.h"
#include "pelora/desktop/LinuxReachability.h"
#include "pelora/desktop/StbImageDecoder.h"
#include "pelora/desktop/XdgUrlOpener.h"
#include "pelora/platform/NotificationCenter.h"

namespace pelora::desktop {

platform::Services makeDesktopServices(const DesktopOptions& options) {
    platform::Services s;
    s.options = options.sdk;
    s.clock = options.clock ? options.clock : std::make_shared<platform::SystemClock>();
    s.mainRunLoop = std::make_shared<EventRunLoop>(s.clock);
    s.http = std::make_shared<CurlHttpSessionFactory>(options.caBundlePath);

    DesktopDeviceInfo::Options device;
    device.bundleInfo = options.bundleInfo;
    device.mainBundlePath = options.mainBundlePath;
    device.screenWidth = options.screenWidth;
    device.screenHeight = options.screenHeight;
    device.screenScale = options.screenScale;
    device.orientation = options.orientation;
    auto deviceInfo = std::make_shared<DesktopDeviceInfo>(device);

    DesktopFileSystem::Options files;
    files.bundleIdentifier = deviceInfo->infoValue(platform::kCFBundleIdentifier).value_or("");
    files.cachesDirectoryOverride = options.cachesDirectory;
    auto fileSystem = std::make_shared<DesktopFileSystem>(files);
    s.files = fileSystem;

    // Without a machine id the generated vendor id is kept with the caches.
    device.vendorIdFile = fileSystem->cachesDirectory() + "/vendor-id";
    s.device = std::make_shared<DesktopDeviceInfo>(device);

    s.reachability = std::make_shared<LinuxReachabilityService>();
    s.imageDecoder = std::make_shared<StbImageDecoder>();
    s.urlOpener = std::make_shared<XdgUrlOpener>("xdg-open", s.mainRunLoop);
    // Only files of our own caches directory are ever played from disk.
    s.mediaPlayer =
        std::make_shared<GstMediaPlayerService>(s.mainRunLoop, fileSystem->cachesDirectory());
    return s;
}

namespace {

void postLifeCycle(const char* name) {
    if (!platform::hasServices() || !platform::services().mainRunLoop) return;
    std::string notification = name;
    platform::services().mainRunLoop->post(
        [notification] { platform::NotificationCenter::defaultCenter().post(notification); });
}

}  // namespace

void applicationDidEnterBackground() {
    postLifeCycle(platform::kApplicationDidEnterBackgroundNotification);
}

void applicationWillEnterForeground() {
    postLifeCycle(platform::kApplicationWillEnterForegroundNotification);
}

platform::Services installDesktopPlatform(const DesktopOptions& options) {
    platform::Services s = makeDesktopServices(options);
    platform::installServices(s);
    return s;
}

}  // namespace pelora::desktop
