#pragma once

#include <optional>
#include <string>

#include "pelora/platform/Export.h"

namespace pelora::platform {

// File services. Paths are plain POSIX paths (no "file://" prefix).
class PELORA_EXPORT FileSystem {
  public:
    virtual ~FileSystem() = default;
    // The application's private caches directory (created on demand), named by the host's
    // bundle identifier under the user's cache directory.
    virtual std::string cachesDirectory() = 0;
    virtual std::string temporaryDirectory() = 0;
    virtual bool fileExists(const std::string& path, bool* isDirectory = nullptr) = 0;
    virtual bool createDirectory(const std::string& path, bool withIntermediates) = 0;
    virtual bool moveItem(const std::string& from, const std::string& to) = 0;
    virtual bool removeItem(const std::string& path) = 0;
    virtual std::optional<std::string> readFile(const std::string& path) = 0;
    virtual bool writeFile(const std::string& path, const std::string& data) = 0;
};

}  // namespace pelora::platform
