#pragma once

#include <cstdint>
#include <memory>

#include "pelora/platform/Export.h"
#include "pelora/platform/MediaPlayer.h"
#include "pelora/ui/View.h"

namespace pelora::ui {

// The drawing layer of a video player: a view that holds the latest frame its player
// decoded. A renderer draws the frame scaled to fit the bounds (aspect kept, black bars);
// tests and engines read it from latestFrame(). Main thread only.
class PELORA_EXPORT PlayerLayer : public View {
  public:
    // Becomes the player's video output (replacing any earlier one). The layer holds the
    // player strongly, as a phone platform's player layer does.
    static std::shared_ptr<PlayerLayer> playerLayerWithPlayer(
        std::shared_ptr<platform::Player> player);
    ~PlayerLayer() override;

    std::string className() const override { return "PlayerLayer"; }

    const std::shared_ptr<platform::Player>& player() const { return player_; }
    std::shared_ptr<const platform::VideoFrame> latestFrame() const { return frame_; }
    // Frames received since the layer was made.
    uint64_t framesReceived() const { return framesReceived_; }
    // Replaces the frame (the player's output calls this; tests may too).
    void setVideoFrame(std::shared_ptr<const platform::VideoFrame> frame);

    std::string describeDetails() const override;

  private:
    std::shared_ptr<platform::Player> player_;
    std::shared_ptr<const platform::VideoFrame> frame_;
    uint64_t framesReceived_ = 0;
};

}  // namespace pelora::ui
