#include "pelora/platform/MediaPlayer.h"

#include <cmath>
#include <map>
#include <utility>

namespace pelora::platform {

MediaTime MediaTime::fromSeconds(double seconds, int32_t timescale) {
    if (timescale < 1) timescale = 1;
    if (!std::isfinite(seconds)) return MediaTime{};
    return MediaTime{static_cast<int64_t>(std::llround(seconds * timescale)), timescale};
}

double MediaTime::seconds() const {
    double scale = timescale < 1 ? 1.0 : static_cast<double>(timescale);
    return static_cast<double>(value) / scale;
}

void CallbackObservation::invalidate() {
    if (auto end = std::exchange(end_, nullptr)) end();
}

struct StatusObservers::State {
    std::map<uint64_t, std::function<void()>> observers;
    uint64_t next = 1;
};

StatusObservers::StatusObservers() : state_(std::make_shared<State>()) {}

std::shared_ptr<MediaObservation> StatusObservers::add(std::function<void()> changed,
                                                       bool initial) {
    const uint64_t id = state_->next++;
    state_->observers[id] = changed;
    if (initial && changed) changed();
    std::weak_ptr<State> weak = state_;
    return std::make_shared<CallbackObservation>([weak, id] {
        if (auto state = weak.lock()) state->observers.erase(id);
    });
}

void StatusObservers::notify() {
    auto state = state_;  // an observer may release the item and this list with it
    auto observers = state->observers;
    for (auto& [id, observer] : observers)
        if (observer && state->observers.count(id)) observer();
}

}  // namespace pelora::platform
