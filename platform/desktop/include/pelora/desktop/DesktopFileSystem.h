#pragma once

#include <string>

#include "pelora/platform/Export.h"
#include "pelora/platform/FileSystem.h"

namespace pelora::desktop {

// Files on Linux. The caches directory is `<user cache dir>/<bundle id>`, where the user cache
// dir is $XDG_CACHE_HOME, else ~/.cache, and the bundle id is reduced to one safe path
// component. Every operation reports failure by its result, never by an exception.
class PELORA_EXPORT DesktopFileSystem final : public platform::FileSystem {
  public:
    struct Options {
        // The host's bundle identifier; names the caches directory.
        std::string bundleIdentifier = "pelora.host";
        // When set, used as the caches directory as is (tests, sandboxed hosts).
        std::string cachesDirectoryOverride;
        // When set, used as the temporary directory; otherwise $TMPDIR or /tmp.
        std::string temporaryDirectoryOverride;
    };

    DesktopFileSystem();
    explicit DesktopFileSystem(Options options);

    std::string cachesDirectory() override;
    std::string temporaryDirectory() override;
    bool fileExists(const std::string& path, bool* isDirectory = nullptr) override;
    bool createDirectory(const std::string& path, bool withIntermediates) override;
    bool moveItem(const std::string& from, const std::string& to) override;
    bool removeItem(const std::string& path) override;
    std::optional<std::string> readFile(const std::string& path) override;
    bool writeFile(const std::string& path, const std::string& data) override;

    // "com.example/app" -> "com.example_app"; empty, "." and ".." become "pelora.host".
    static std::string sanitizePathComponent(const std::string& name);
    // The user's cache directory by the XDG rule, or empty when neither variable is usable.
    static std::string userCacheDirectory();

  private:
    Options options_;
};

}  // namespace pelora::desktop
