#include "pelora/desktop/DesktopFileSystem.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace pelora::desktop {

namespace fs = std::filesystem;

DesktopFileSystem::DesktopFileSystem() : DesktopFileSystem(Options{}) {}
DesktopFileSystem::DesktopFileSystem(Options options) : options_(std::move(options)) {}

std::string DesktopFileSystem::sanitizePathComponent(const std::string& name) {
    std::string out;
    out.reserve(name.size());
    for (unsigned char c : name) {
        bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '.' || c == '-' || c == '_';
        out.push_back(safe ? static_cast<char>(c) : '_');
    }
    if (out.size() > 200) out.resize(200);
    if (out.empty() || out == "." || out == "..") return "pelora.host";
    return out;
}

std::string DesktopFileSystem::userCacheDirectory() {
    // Relative values of XDG_CACHE_HOME are invalid by the XDG rules and ignored.
    if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && xdg[0] == '/') return xdg;
    if (const char* home = std::getenv("HOME"); home && home[0] == '/') {
        return (fs::path(home) / ".cache").string();
    }
    return {};
}

std::string DesktopFileSystem::cachesDirectory() {
    std::string dir = options_.cachesDirectoryOverride;
    if (dir.empty()) {
        std::string base = userCacheDirectory();
        if (base.empty()) base = (fs::path(temporaryDirectory()) / "pelora-cache").string();
        dir = (fs::path(base) / sanitizePathComponent(options_.bundleIdentifier)).string();
    }
    std::error_code ec;
    fs::create_directories(dir, ec);
    fs::permissions(dir, fs::perms::owner_all, fs::perm_options::replace, ec);
    return dir;
}

std::string DesktopFileSystem::temporaryDirectory() {
    if (!options_.temporaryDirectoryOverride.empty()) return options_.temporaryDirectoryOverride;
    if (const char* tmp = std::getenv("TMPDIR"); tmp && tmp[0] == '/') return tmp;
    return "/tmp";
}

bool DesktopFileSystem::fileExists(const std::string& path, bool* isDirectory) {
    std::error_code ec;
    auto st = fs::status(path, ec);
    bool exists = !ec && fs::exists(st);
    if (isDirectory) *isDirectory = exists && fs::is_directory(st);
    return exists;
}

bool DesktopFileSystem::createDirectory(const std::string& path, bool withIntermediates) {
    if (path.empty()) return false;
    std::error_code ec;
    if (withIntermediates) {
        fs::create_directories(path, ec);
        return !ec && fs::is_directory(path, ec);
    }
    // Like the phone platform, creating an existing directory without intermediates fails.
    return fs::create_directory(path, ec) && !ec;
}

bool DesktopFileSystem::moveItem(const std::string& from, const std::string& to) {
    std::error_code ec;
    if (from.empty() || to.empty() || !fs::exists(fs::symlink_status(from, ec))) return false;
    // Moving onto an existing item fails; callers remove the target first.
    if (fs::exists(fs::symlink_status(to, ec))) return false;
    fs::rename(from, to, ec);
    if (!ec) return true;
    if (ec != std::errc::cross_device_link) return false;
    ec.clear();
    fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    if (ec) {
        fs::remove_all(to, ec);
        return false;
    }
    fs::remove_all(from, ec);
    return true;
}

bool DesktopFileSystem::removeItem(const std::string& path) {
    std::error_code ec;
    if (path.empty() || !fs::exists(fs::symlink_status(path, ec))) return false;
    fs::remove_all(path, ec);
    return !ec;
}

std::optional<std::string> DesktopFileSystem::readFile(const std::string& path) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return std::nullopt;
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream out;
    out << in.rdbuf();
    if (in.bad()) return std::nullopt;
    return std::move(out).str();
}

bool DesktopFileSystem::writeFile(const std::string& path, const std::string& data) {
    if (path.empty()) return false;
    // Write beside the target and rename, so readers never see half a file.
    std::string tmp = path + ".part";
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        if (!out) return false;
        out.write(data.data(), static_cast<std::streamsize>(data.size()));
        out.flush();
        if (!out) {
            std::error_code ec;
            fs::remove(tmp, ec);
            return false;
        }
    }
    std::error_code ec;
    fs::rename(tmp, path, ec);
    if (!ec) return true;
    fs::remove(tmp, ec);
    return false;
}

}  // namespace pelora::desktop
