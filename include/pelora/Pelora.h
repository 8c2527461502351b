#pragma once

// Everything a host application includes to show ads: the three ad kinds, their delegates and
// data, the platform services (run loop, logging, notifications) and the view tree the ads are
// built in (windows, views, taps). Install the platform services first (on Linux:
// pelora::desktop::installDesktopPlatform() from "pelora/desktop/Desktop.h"), then call
// PeloraSDKManager::setAppID() and create ad views and managers on the main run loop's thread.

#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraDataFlowAdManager.h"
#include "pelora/PeloraImageUrl.h"
#include "pelora/PeloraNativeAd.h"
#include "pelora/PeloraNetReachable.h"
#include "pelora/PeloraRewardVideoAdManager.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/PeloraSplashAdView.h"
#include "pelora/platform/Log.h"
#include "pelora/platform/NotificationCenter.h"
#include "pelora/platform/RunLoop.h"
#include "pelora/platform/Services.h"
#include "pelora/ui/UI.h"
