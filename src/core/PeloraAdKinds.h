#pragma once

#include <cstdint>

// What each kind of slot asks the ad server for: the request's ad type and position.
namespace PeloraAdKind {

struct Kind {
    int64_t adType;
    int64_t position;
};

inline constexpr Kind kSplash{0, 5};
inline constexpr Kind kNative{5, 3};
inline constexpr Kind kRewardVideo{4, 5};

}  // namespace PeloraAdKind
