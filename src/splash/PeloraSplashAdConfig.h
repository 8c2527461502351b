#pragma once

// Loading one splash ad: one ad fetch under the slot's time-out, and its three outcomes
// (time-out, failure, data) turned into one call each on the delegate.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "core/PeloraConfig.h"
#include "pelora/PeloraApiAd.h"
#include "pelora/PeloraSDKManager.h"
#include "splash/PeloraSplashAdViewInternal.h"

// What the caller asks for: the slot and how long the ad request may take.
struct PeloraSplashSlot {
    std::optional<std::string> slotId;
    // Whole seconds; becomes the request's time-out as is (0 stays 0).
    int64_t requestTimeout = kPeloraDefaultTolerateTimeout;
};

// The loaded splash ad: the first ad of the answer, or null when the answer had none.
struct PeloraSplashAd {
    std::shared_ptr<PeloraApiAd> ad;
};

class PeloraSplashAdConfig : public PeloraConfig,
                             public std::enable_shared_from_this<PeloraSplashAdConfig> {
  public:
    PeloraSplashAdConfig() : PeloraConfig("PeloraSplashAdConfig") {}

    static std::shared_ptr<PeloraSplashAdConfig> init() {
        return PeloraConfig::initAs<PeloraSplashAdConfig>();
    }

    std::shared_ptr<PeloraSplashAdConfigDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(const std::shared_ptr<PeloraSplashAdConfigDelegate>& delegate) {
        delegate_ = delegate;
    }

    // Starts one fetch; its outcome arrives later through exactly one delegate operation
    // (none when the configuration is gone by then, or for a success without payload).
    // Loads may overlap: each has its own request and completion.
    void loadSplashAd(const std::shared_ptr<PeloraSplashSlot>& slot);

  private:
    std::weak_ptr<PeloraSplashAdConfigDelegate> delegate_;
};
