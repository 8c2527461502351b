#pragma once

#include <memory>
#include <string>

#include "pelora/platform/Export.h"
#include "pelora/platform/MediaPlayer.h"
#include "pelora/platform/RunLoop.h"

namespace pelora::desktop {

// Video playback on GStreamer: decoding runs on GStreamer's own threads; status changes,
// frames (RGBA, through an application sink) and time observations are handed to the main
// run loop. Audio goes to the default output, or to a null sink when the machine has none.
//
// Only http and https URLs, and file URLs of files inside `cachesDirectory` (after resolving
// links and ".."), are ever opened; any other URL gives an item that fails with
// URLError::kUnsupportedURL without touching GStreamer. TLS certificates are verified.
// The GStreamer-error-to-code table is in docs/PLATFORM.md.
class PELORA_EXPORT GstMediaPlayerService final : public platform::MediaPlayerService {
  public:
    GstMediaPlayerService(std::shared_ptr<platform::RunLoop> mainLoop, std::string cachesDirectory);
    ~GstMediaPlayerService() override;

    std::shared_ptr<platform::PlayerItem> createItem(const std::string& url) override;
    std::shared_ptr<platform::Player> createPlayer(
        std::shared_ptr<platform::PlayerItem> item) override;

    // Whether GStreamer could be initialised (false: every item fails).
    static bool available();

  private:
    std::shared_ptr<platform::RunLoop> loop_;
    std::string cachesDirectory_;
};

}  // namespace pelora::desktop
