#pragma once

// Everything a host application includes to show ads. Install the platform services first
// (on Linux: pelora::desktop::installDesktopPlatform()), then call
// PeloraSDKManager::setAppID() and create ad views and managers on the main run loop's thread.

#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraDataFlowAdManager.h"
#include "pelora/PeloraImageUrl.h"
#include "pelora/PeloraNativeAd.h"
#include "pelora/PeloraNetReachable.h"
#include "pelora/PeloraRewardVideoAdManager.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/PeloraSplashAdView.h"
