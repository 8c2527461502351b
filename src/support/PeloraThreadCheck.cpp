#include "support/PeloraThreadCheck.h"

#include <cstdio>
#include <cstdlib>

#include "pelora/platform/Services.h"

namespace pelora_internal {

void checkOnMainThread(const char* where) {
    if (!pelora::platform::hasServices()) return;
    const auto& loop = pelora::platform::services().mainRunLoop;
    // Before it first runs, a loop belongs to the thread that made it.
    if (!loop || loop->isLoopThread()) return;
    std::fprintf(stderr,
                 "pelora: %s was called off the main run loop's thread; call the SDK only on "
                 "that thread (post work there with services().mainRunLoop->post)\n",
                 where);
    std::abort();
}

}  // namespace pelora_internal
