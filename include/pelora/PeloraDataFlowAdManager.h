#pragma once

#include "pelora/platform/Export.h"

// Native ads ("data-flow" ads): the manager loads the ads of one slot and hands the host one
// PeloraNativeAd per ad, in the server's order.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/PeloraNativeAd.h"
#include "pelora/PeloraSDKManager.h"
#include "pelora/platform/Error.h"

// The slot the host asks ads for.
struct PELORA_EXPORT PeloraDataFlowSlot {
    std::optional<std::string> slotId;
    // Whole seconds; the ad request's time-out.
    int64_t tolerateTimeout = kPeloraDefaultTolerateTimeout;
    // The size the host will give the ad, sent to the server as is.
    int64_t slotWidth = 0;
    int64_t slotHeight = 0;
};

class PeloraDataFlowAdManager;

// Callbacks of the manager, on the main thread. Override the ones you need.
class PELORA_EXPORT PeloraDataFlowAdManagerDelegate {
  public:
    virtual ~PeloraDataFlowAdManagerDelegate() = default;
    // At least one ad, in the server's order.
    virtual void dataFlowAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraDataFlowAdManager> /*manager*/,
        std::vector<std::shared_ptr<PeloraNativeAd>> /*nativeAds*/) {}
    // Transport failures keep the URL error domain and code (-1001 for a time-out); an answer
    // without payload or without ads gives domain "sdk.data.err", code -1.
    virtual void dataFlowAdManagerDidFailWithError(
        std::shared_ptr<PeloraDataFlowAdManager> /*manager*/,
        const pelora::platform::Error& /*error*/) {}
};

class PeloraDataFlowAdManagerImpl;

class PELORA_EXPORT PeloraDataFlowAdManager final
    : public std::enable_shared_from_this<PeloraDataFlowAdManager> {
    struct PrivateTag {
        explicit PrivateTag() = default;
    };

  public:
    // Made by initWithSlot() (or the inert init()) only.
    explicit PeloraDataFlowAdManager(PrivateTag);
    ~PeloraDataFlowAdManager();
    PeloraDataFlowAdManager(const PeloraDataFlowAdManager&) = delete;
    PeloraDataFlowAdManager& operator=(const PeloraDataFlowAdManager&) = delete;

    // The manager for one slot.
    static std::shared_ptr<PeloraDataFlowAdManager> initWithSlot(
        std::shared_ptr<PeloraDataFlowSlot> slot);
    // Deliberately inert: no slot, no set-up. Not a way to make a working manager.
    static std::shared_ptr<PeloraDataFlowAdManager> init();

    const std::shared_ptr<PeloraDataFlowSlot>& adSlot() const;
    std::shared_ptr<PeloraDataFlowAdManagerDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<PeloraDataFlowAdManagerDelegate>& delegate);

    // Starts one fetch; its result arrives through exactly one delegate callback, unless the
    // manager is released first. Loads may overlap and each reports on its own.
    void loadAdData();

  private:
    std::unique_ptr<PeloraDataFlowAdManagerImpl> impl_;
};
