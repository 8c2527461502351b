#include "pelora/platform/Services.h"

#include <cstdio>
#include <cstdlib>

namespace pelora::platform {
namespace {
Services& slot() {
    static Services s;
    return s;
}
bool& installed() {
    static bool b = false;
    return b;
}
}  // namespace

void installServices(Services services) {
    slot() = std::move(services);
    installed() = true;
}

const Services& services() {
    if (!installed()) {
        std::fprintf(stderr,
                     "pelora: no platform services installed; call "
                     "pelora::desktop::installDesktopPlatform() (or install your own) first\n");
        std::abort();
    }
    return slot();
}

bool hasServices() {
    return installed();
}

}  // namespace pelora::platform
