#include "pelora/testing/FakeDeviceInfo.h"

#include <cstdint>
#include <cstdio>
#include <random>

namespace pelora::testing {

std::optional<std::string> FakeDeviceInfo::infoValue(const std::string& key) {
    auto it = info.find(key);
    if (it == info.end()) return std::nullopt;
    return it->second;
}

namespace {

// A version 4 UUID in upper-case text.
std::string randomUUID() {
    thread_local std::mt19937_64 engine{std::random_device{}()};
    const uint64_t hi = (engine() & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;
    const uint64_t lo = (engine() & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%08llX-%04llX-%04llX-%04llX-%012llX",
                  static_cast<unsigned long long>(hi >> 32),
                  static_cast<unsigned long long>((hi >> 16) & 0xFFFF),
                  static_cast<unsigned long long>(hi & 0xFFFF),
                  static_cast<unsigned long long>(lo >> 48),
                  static_cast<unsigned long long>(lo & 0xFFFFFFFFFFFFull));
    return buffer;
}

}  // namespace

std::string FakeDeviceInfo::makeUUID() {
    std::string id;
    if (randomUUIDs) {
        id = randomUUID();
    } else {
        std::lock_guard lock(mutex_);
        // "00000000-0000-4000-8000-000000000001", "...002", ...: valid, distinct and readable.
        char buffer[40];
        std::snprintf(buffer, sizeof buffer, "00000000-0000-4000-8000-%012llX",
                      static_cast<unsigned long long>(++uuidCounter_));
        id = buffer;
    }
    std::lock_guard lock(mutex_);
    issued_.push_back(id);
    return id;
}

std::vector<std::string> FakeDeviceInfo::issuedUUIDs() const {
    std::lock_guard lock(mutex_);
    return issued_;
}

void FakeDeviceInfo::forgetIssuedUUIDs() {
    std::lock_guard lock(mutex_);
    issued_ = {};
}

}  // namespace pelora::testing
