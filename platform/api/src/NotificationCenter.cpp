#include "pelora/platform/NotificationCenter.h"

namespace pelora::platform {

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationCenter::Token NotificationCenter::addObserver(
    const std::string& name, std::function<void(const Notification&)> block) {
    std::lock_guard lock(mutex_);
    Token token = next_++;
    entries_.push_back(
        {token, name,
         std::make_shared<std::function<void(const Notification&)>>(std::move(block))});
    return token;
}

void NotificationCenter::removeObserver(Token token) {
    std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&](const Entry& e) { return e.token == token; });
}

void NotificationCenter::post(const std::string& name, std::shared_ptr<void> object) {
    // Copy the matching observers first: observers may add or remove observers while they run.
    // One removed by an earlier observer of the same post is not called any more (its owner
    // may be gone).
    std::vector<Entry> targets;
    {
        std::lock_guard lock(mutex_);
        for (const auto& e : entries_) {
            if (e.name == name) targets.push_back(e);
        }
    }
    Notification note{name, std::move(object)};
    for (const auto& target : targets) {
        {
            std::lock_guard lock(mutex_);
            bool live = false;
            for (const auto& e : entries_) live = live || e.token == target.token;
            if (!live) continue;
        }
        if (*target.block) (*target.block)(note);
    }
}

}  // namespace pelora::platform
