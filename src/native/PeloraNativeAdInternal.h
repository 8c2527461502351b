#pragma once

// What the SDK itself reads of a native ad and hosts do not: its tracker.

#include <memory>

#include "pelora/PeloraNativeAd.h"

struct PeloraNativeAdInternal {
    static const std::shared_ptr<PeloraTrackEvent>& trackEvent(const PeloraNativeAd& ad) {
        return ad.trackEvent_;
    }
};
