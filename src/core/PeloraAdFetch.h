#pragma once

// The one way every ad kind asks the server for ads: the request body for a kind and slot,
// the POST under the slot's time-out, and the transport's failure as an error. Each loader
// keeps only what its kind does with the answer.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/PeloraAdKinds.h"
#include "pelora/platform/Error.h"

struct PeloraRespObject;
class PeloraNativeAd;

struct PeloraAdFetchRequest {
    PeloraAdKind::Kind kind;
    std::optional<std::string> slotId;
    // The slot's size in pixels; absent: the screen's.
    std::optional<std::pair<int64_t, int64_t>> size;
    // The request's time-out in seconds, as the slot gives it.
    double timeout = 0;
};

// On the main run loop, exactly once per fetch: an error in the URL error domain with the
// transport's code (-1001 for a time-out, -1 for an answer without payload), or the payload.
using PeloraAdFetchCompletion = std::function<void(std::optional<pelora::platform::Error> error,
                                                   std::shared_ptr<PeloraRespObject> payload)>;

void PeloraFetchAds(const PeloraAdFetchRequest& request, PeloraAdFetchCompletion completion);

// The payload's ads, each wrapped as a native ad (empty for a payload without ads).
std::vector<std::shared_ptr<PeloraNativeAd>> PeloraNativeAdsOf(const PeloraRespObject* payload);
