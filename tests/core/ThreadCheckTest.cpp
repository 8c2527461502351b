// The SDK's entry points belong to the main run loop's thread: debug builds stop a call from
// any other thread with a message instead of letting it race the loop.

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "TestPlatform.h"
#include "pelora/PeloraDataFlowAdManager.h"
#include "pelora/PeloraRewardVideoAdManager.h"

using pelora::testing::TestPlatform;

namespace {

TEST(SdkThreadCheckDeathTest, LoadsAndShowsOffTheLoopsThreadStopDebugBuilds) {
#ifdef NDEBUG
    GTEST_SKIP() << "release builds compile the check out";
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    tp.pump();  // the loop now belongs to this thread
    auto native = PeloraDataFlowAdManager::initWithSlot(std::make_shared<PeloraDataFlowSlot>());
    auto reward =
        PeloraRewardVideoAdManager::initWithSlot(std::make_shared<PeloraRewardVideoSlot>());
    EXPECT_DEATH(std::thread([&] { native->loadAdData(); }).join(),
                 "PeloraDataFlowAdManager::loadAdData was called off the main run loop");
    EXPECT_DEATH(std::thread([&] { reward->showAdFromRootViewController(nullptr); }).join(),
                 "showAdFromRootViewController was called off");
    // On the loop's thread nothing happens.
    native->loadAdData();
#endif
}

}  // namespace
