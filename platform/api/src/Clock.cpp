#include "pelora/platform/Clock.h"

#include <chrono>

namespace pelora::platform {

double SystemClock::monotonicSeconds() const {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

double SystemClock::wallSeconds() const {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

}  // namespace pelora::platform
