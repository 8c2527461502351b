#include "pelora/testing/FakeReachability.h"

#include <algorithm>
#include <functional>

#include "pelora/platform/RunLoop.h"

namespace pelora::testing {

class FakeHandle;

struct FakeReachabilityService::State {
    mutable std::mutex mutex;
    uint32_t flags = platform::ReachabilityFlags::kReachable;
    bool readable = true;
    bool refuseCreation = false;
    bool refuseScheduling = false;
    std::vector<std::string> targets;
    std::vector<FakeHandle*> scheduled;
};

class FakeHandle final : public platform::ReachabilityHandle {
  public:
    explicit FakeHandle(std::shared_ptr<FakeReachabilityService::State> state)
        : state_(std::move(state)), alive_(std::make_shared<bool>(true)) {}
    ~FakeHandle() override {
        *alive_ = false;
        unschedule();
    }

    bool getFlags(uint32_t& flags) override {
        std::lock_guard lock(state_->mutex);
        if (!state_->readable) return false;
        flags = state_->flags;
        return true;
    }

    bool setCallback(std::function<void(uint32_t)> callback) override {
        callback_ = std::move(callback);
        return true;
    }

    bool scheduleWithRunLoop(platform::RunLoop& loop) override {
        std::lock_guard lock(state_->mutex);
        if (state_->refuseScheduling) return false;
        loop_ = &loop;
        if (std::find(state_->scheduled.begin(), state_->scheduled.end(), this) ==
            state_->scheduled.end()) {
            state_->scheduled.push_back(this);
        }
        return true;
    }

    void unscheduleFromRunLoop(platform::RunLoop& loop) override {
        if (loop_ == &loop) unschedule();
    }

    // Called with the state's lock held.
    void notify(uint32_t flags) {
        std::weak_ptr<bool> alive = alive_;
        loop_->post([this, alive, flags] {
            // The handle may have been destroyed or unscheduled before the loop ran this.
            auto a = alive.lock();
            if (!a || !*a || !loop_ || !callback_) return;
            callback_(flags);
        });
    }

  private:
    void unschedule() {
        std::lock_guard lock(state_->mutex);
        std::erase(state_->scheduled, this);
        loop_ = nullptr;
    }

    std::shared_ptr<FakeReachabilityService::State> state_;
    std::shared_ptr<bool> alive_;
    std::function<void(uint32_t)> callback_;
    platform::RunLoop* loop_ = nullptr;
};

FakeReachabilityService::FakeReachabilityService() : state_(std::make_shared<State>()) {}
FakeReachabilityService::~FakeReachabilityService() = default;

void FakeReachabilityService::setFlags(uint32_t flags) {
    std::lock_guard lock(state_->mutex);
    state_->flags = flags;
}

uint32_t FakeReachabilityService::flags() const {
    std::lock_guard lock(state_->mutex);
    return state_->flags;
}

void FakeReachabilityService::setFlagsReadable(bool readable) {
    std::lock_guard lock(state_->mutex);
    state_->readable = readable;
}

void FakeReachabilityService::setRefuseCreation(bool refuse) {
    std::lock_guard lock(state_->mutex);
    state_->refuseCreation = refuse;
}

void FakeReachabilityService::setRefuseScheduling(bool refuse) {
    std::lock_guard lock(state_->mutex);
    state_->refuseScheduling = refuse;
}

size_t FakeReachabilityService::fireChange() {
    std::lock_guard lock(state_->mutex);
    for (FakeHandle* handle : state_->scheduled) handle->notify(state_->flags);
    return state_->scheduled.size();
}

std::vector<std::string> FakeReachabilityService::requestedTargets() const {
    std::lock_guard lock(state_->mutex);
    return state_->targets;
}

size_t FakeReachabilityService::scheduledHandleCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->scheduled.size();
}

std::unique_ptr<platform::ReachabilityHandle> FakeReachabilityService::createWithName(
    const std::string& hostName) {
    {
        std::lock_guard lock(state_->mutex);
        state_->targets.push_back(hostName);
        if (state_->refuseCreation || hostName.empty()) return nullptr;
    }
    return std::make_unique<FakeHandle>(state_);
}

std::unique_ptr<platform::ReachabilityHandle> FakeReachabilityService::createWithAddress(
    const platform::SocketAddressRecord& address) {
    {
        std::lock_guard lock(state_->mutex);
        state_->targets.push_back(
            std::to_string(address.family) + ":" + std::to_string(address.port) + ":" +
            std::to_string(address.address[0]) + "." + std::to_string(address.address[1]) + "." +
            std::to_string(address.address[2]) + "." + std::to_string(address.address[3]));
        if (state_->refuseCreation) return nullptr;
    }
    return std::make_unique<FakeHandle>(state_);
}

}  // namespace pelora::testing
