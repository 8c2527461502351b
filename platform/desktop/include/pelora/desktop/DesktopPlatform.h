#pragma once

#include <map>
#include <memory>
#include <string>

#include "pelora/desktop/DesktopDeviceInfo.h"
#include "pelora/platform/Export.h"
#include "pelora/platform/Services.h"

namespace pelora::desktop {

struct PELORA_EXPORT DesktopOptions {
    // Host identity; when empty, read from Info.json beside the executable.
    std::map<std::string, std::string> bundleInfo;
    std::string mainBundlePath;
    // Screen in points and its scale; the headless default is a 375x667 portrait phone at 2x.
    double screenWidth = 375;
    double screenHeight = 667;
    double screenScale = 2;
    int64_t orientation = platform::InterfaceOrientation::kPortrait;
    // Caches directory as is; empty means $XDG_CACHE_HOME (or ~/.cache) / <bundle id>.
    std::string cachesDirectory;
    // Clock for the main run loop; null means the system clock.
    std::shared_ptr<platform::Clock> clock;
    // PEM file of extra certificates the HTTP sessions trust (a staging server's private
    // authority, a TLS-inspecting proxy); empty means the system store only.
    std::string caBundlePath;
    // What the SDK takes once from the host: server origin, resource bundle, limits.
    platform::SdkOptions sdk;
};

// Builds every real Linux service (system clock, event run loop, libcurl sessions, files,
// identity, netlink reachability, GStreamer video) without installing them.
PELORA_EXPORT platform::Services makeDesktopServices(const DesktopOptions& options = {});
// Builds and installs them; returns what was installed.
PELORA_EXPORT platform::Services installDesktopPlatform(const DesktopOptions& options = {});

// The application's life cycle, as the host's window system reports it (focus lost and
// regained, minimised and restored). Thread-safe: the notifications are posted on the main
// run loop, where a rewarded video that was playing remembers to resume.
PELORA_EXPORT void applicationDidEnterBackground();
PELORA_EXPORT void applicationWillEnterForeground();

}  // namespace pelora::desktop
