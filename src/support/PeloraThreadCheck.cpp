#include "support/PeloraThreadCheck.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "pelora/platform/Services.h"

namespace pelora_internal {

void checkOnMainThread(const char* where) {
    if (!pelora::platform::hasServices()) return;
    const auto& loop = pelora::platform::services().mainRunLoop;
    if (loop && loop->isLoopThread()) return;
    // Before the loop ran, the first caller's thread is the SDK's.
    static std::atomic<std::thread::id> firstCaller;
    std::thread::id none;
    const auto me = std::this_thread::get_id();
    if (firstCaller.compare_exchange_strong(none, me) || none == me) return;
    std::fprintf(stderr,
                 "pelora: %s was called off the main run loop's thread; call the SDK only on "
                 "that thread (post work there with services().mainRunLoop->post)\n",
                 where);
    std::abort();
}

}  // namespace pelora_internal
