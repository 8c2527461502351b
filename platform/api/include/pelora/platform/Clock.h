#pragma once

#include "pelora/platform/Export.h"

namespace pelora::platform {

// Source of time for the run loop, timers and timestamps. Tests install a manual clock
// (pelora/testing/ManualClock.h) and advance it, so a five-second countdown runs instantly.
class PELORA_EXPORT Clock {
  public:
    virtual ~Clock() = default;
    // Seconds on a monotonic scale; only differences are meaningful. Timers use this.
    virtual double monotonicSeconds() const = 0;
    // Wall-clock seconds since 1970-01-01 UTC, with fractions. Wire timestamps use this.
    virtual double wallSeconds() const = 0;
};

// std::chrono-backed clock used by the real backends.
class PELORA_EXPORT SystemClock final : public Clock {
  public:
    double monotonicSeconds() const override;
    double wallSeconds() const override;
};

}  // namespace pelora::platform
