#include "pelora/platform/MediaPlayer.h"

#include <cmath>

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

}  // namespace pelora::platform
