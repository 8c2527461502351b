#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"

namespace pelora::platform {

struct PELORA_EXPORT Notification {
    std::string name;
    std::shared_ptr<void> object;  // the poster, type-erased
};

// Post and observe notifications by name. Observers run synchronously on the posting thread,
// in the order they were added; the center holds no lock while calling them.
class PELORA_EXPORT NotificationCenter {
  public:
    using Token = uint64_t;
    static NotificationCenter& defaultCenter();

    Token addObserver(const std::string& name, std::function<void(const Notification&)> block);
    void removeObserver(Token token);
    void post(const std::string& name, std::shared_ptr<void> object = nullptr);

  private:
    struct Entry {
        Token token;
        std::string name;
        std::shared_ptr<std::function<void(const Notification&)>> block;
    };
    std::mutex mutex_;
    std::vector<Entry> entries_;
    Token next_ = 1;
};

}  // namespace pelora::platform
