#include "pelora/testing/FakeDeviceInfo.h"

#include <cstdio>

#include "pelora/desktop/DesktopDeviceInfo.h"

namespace pelora::testing {

std::optional<std::string> FakeDeviceInfo::infoValue(const std::string& key) {
    auto it = info.find(key);
    if (it == info.end()) return std::nullopt;
    return it->second;
}

std::string FakeDeviceInfo::makeUUID() {
    std::string id;
    if (randomUUIDs) {
        id = desktop::DesktopDeviceInfo::randomUUID();
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

}  // namespace pelora::testing
