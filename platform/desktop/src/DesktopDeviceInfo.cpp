#include "pelora/desktop/DesktopDeviceInfo.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

namespace pelora::desktop {

namespace fs = std::filesystem;

namespace {

std::optional<std::string> readSmallFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::string text(4096, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(in.gcount()));
    return text;
}

std::string trimmed(std::string s) {
    const char* ws = " \t\r\n";
    s.erase(0, s.find_first_not_of(ws));
    s.erase(s.find_last_not_of(ws) + 1);
    return s;
}

// Two FNV-1a streams with different offsets give the 128 bits; identity only needs
// stability and spread, not secrecy (the machine id is already readable by every user).
void hash128(const std::string& text, unsigned char out[16]) {
    uint64_t a = 0xcbf29ce484222325ull;
    uint64_t b = 0x84222325cbf29ce4ull;
    for (unsigned char c : text) {
        a = (a ^ c) * 0x100000001b3ull;
        b = (b ^ static_cast<unsigned char>(c + 0x5b)) * 0x100000001b3ull;
        b ^= b >> 29;
    }
    for (int i = 0; i < 8; ++i) {
        out[i] = static_cast<unsigned char>(a >> (56 - 8 * i));
        out[8 + i] = static_cast<unsigned char>(b >> (56 - 8 * i));
    }
}

}  // namespace

DesktopDeviceInfo::DesktopDeviceInfo() : DesktopDeviceInfo(Options{}) {}
DesktopDeviceInfo::DesktopDeviceInfo(Options options) : options_(std::move(options)) {
    info_ = options_.bundleInfo;
    if (info_.empty()) {
        std::ifstream in(fs::path(mainBundlePath()) / "Info.json", std::ios::binary);
        if (in) {
            std::ostringstream text;
            text << in.rdbuf();
            info_ = parseInfoJson(text.str());
        }
    }
}

std::string DesktopDeviceInfo::formatUUID(const unsigned char bytes[16]) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
        out.push_back(hex[bytes[i] >> 4]);
        out.push_back(hex[bytes[i] & 0xF]);
    }
    return out;
}

std::string DesktopDeviceInfo::derivedUUID(const std::string& ns, const std::string& name) {
    unsigned char bytes[16];
    hash128(ns + '\n' + name, bytes);
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x50);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    return formatUUID(bytes);
}

std::string DesktopDeviceInfo::randomUUID() {
    thread_local std::random_device device;
    unsigned char bytes[16];
    for (int i = 0; i < 16; i += 4) {
        uint32_t r = device();
        for (int k = 0; k < 4; ++k) bytes[i + k] = static_cast<unsigned char>(r >> (8 * k));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    return formatUUID(bytes);
}

std::string DesktopDeviceInfo::executableDirectory() {
    std::error_code ec;
    fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    if (ec || exe.empty()) return fs::current_path(ec).string();
    return exe.parent_path().string();
}

std::map<std::string, std::string> DesktopDeviceInfo::parseInfoJson(const std::string& text) {
    std::map<std::string, std::string> out;
    auto json = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (!json.is_object()) return out;
    for (const auto& [key, value] : json.items()) {
        if (value.is_string()) {
            out[key] = value.get<std::string>();
        } else if (value.is_number()) {
            out[key] = value.dump();
        }
    }
    return out;
}

std::optional<std::string> DesktopDeviceInfo::identifierForVendor() {
    std::lock_guard lock(vendorMutex_);
    if (vendorId_) return vendorId_;
    const std::string bundleId = infoValue(platform::kCFBundleIdentifier).value_or("");
    if (auto machine = readSmallFile(options_.machineIdPath)) {
        std::string id = trimmed(*machine);
        if (!id.empty()) {
            vendorId_ = derivedUUID(id, bundleId);
            return vendorId_;
        }
    }
    if (!options_.vendorIdFile.empty()) {
        if (auto kept = readSmallFile(options_.vendorIdFile)) {
            std::string id = trimmed(*kept);
            if (id.size() == 36) {
                vendorId_ = id;
                return vendorId_;
            }
        }
        std::string fresh = randomUUID();
        std::error_code ec;
        fs::create_directories(fs::path(options_.vendorIdFile).parent_path(), ec);
        std::ofstream(options_.vendorIdFile, std::ios::trunc) << fresh << '\n';
        vendorId_ = fresh;
        return vendorId_;
    }
    // Nothing to derive from and nowhere to keep it: stable for this process only.
    vendorId_ = randomUUID();
    return vendorId_;
}

std::string DesktopDeviceInfo::advertisingIdentifier() {
    return "00000000-0000-0000-0000-000000000000";
}

std::string DesktopDeviceInfo::systemVersion() {
    if (options_.systemVersion) return *options_.systemVersion;
    if (auto release = readSmallFile("/etc/os-release")) {
        std::istringstream lines(*release);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("VERSION_ID=", 0) == 0) {
                std::string v = line.substr(11);
                if (v.size() >= 2 && v.front() == '"' && v.back() == '"') {
                    v = v.substr(1, v.size() - 2);
                }
                if (!v.empty()) return v;
            }
        }
    }
    utsname u{};
    if (::uname(&u) == 0) {
        std::string r = u.release;
        size_t end = r.find_first_not_of("0123456789.");
        r = r.substr(0, end);
        if (!r.empty()) return r;
    }
    return "0";
}

std::string DesktopDeviceInfo::model() {
    if (options_.model) return *options_.model;
    if (auto product = readSmallFile("/sys/class/dmi/id/product_name")) {
        std::string p = trimmed(*product);
        if (!p.empty() && p != "To Be Filled By O.E.M.") return p;
    }
    return "Linux PC";
}

platform::Rect DesktopDeviceInfo::screenBounds() {
    double w = options_.screenWidth;
    double h = options_.screenHeight;
    // Bounds follow the interface orientation, as on a phone.
    bool landscape = options_.orientation == platform::InterfaceOrientation::kLandscapeLeft ||
                     options_.orientation == platform::InterfaceOrientation::kLandscapeRight;
    if (landscape == (w < h)) std::swap(w, h);
    return platform::makeRect(0, 0, w, h);
}

double DesktopDeviceInfo::screenScale() {
    return options_.screenScale;
}

int64_t DesktopDeviceInfo::statusBarOrientation() {
    return options_.orientation;
}

std::optional<std::string> DesktopDeviceInfo::infoValue(const std::string& key) {
    auto it = info_.find(key);
    if (it == info_.end()) return std::nullopt;
    return it->second;
}

std::string DesktopDeviceInfo::makeUUID() {
    return randomUUID();
}

std::optional<std::string> DesktopDeviceInfo::mobileCountryCode() {
    return std::nullopt;
}
std::optional<std::string> DesktopDeviceInfo::mobileNetworkCode() {
    return std::nullopt;
}

// A modem's access technology is not exposed uniformly on Linux, so none is claimed; the
// reachability flags still mark a WWAN path, which reads as "cellular, generation unknown".
std::optional<std::string> DesktopDeviceInfo::currentRadioAccessTechnology() {
    return std::nullopt;
}

std::string DesktopDeviceInfo::mainBundlePath() {
    if (!options_.mainBundlePath.empty()) return options_.mainBundlePath;
    return executableDirectory();
}

}  // namespace pelora::desktop
