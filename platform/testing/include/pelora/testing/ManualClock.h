#pragma once

#include <atomic>

#include "pelora/platform/Clock.h"
#include "pelora/platform/Export.h"

namespace pelora::testing {

// A clock that moves only when told. Wall time starts at a fixed, realistic instant
// (2026-01-01T00:00:00Z) so wire timestamps are predictable in tests.
class PELORA_EXPORT ManualClock final : public platform::Clock {
  public:
    static constexpr double kDefaultWallStart = 1767225600.0;

    double monotonicSeconds() const override { return monotonic_.load(); }
    double wallSeconds() const override { return wallStart_.load() + monotonic_.load(); }

    void advance(double seconds) { monotonic_.store(monotonic_.load() + seconds); }
    void setWallStart(double secondsSince1970) { wallStart_.store(secondsSince1970); }

  private:
    std::atomic<double> monotonic_{1000.0};
    std::atomic<double> wallStart_{kDefaultWallStart - 1000.0};
};

}  // namespace pelora::testing
