#pragma once

#include <memory>

#include "pelora/platform/MediaPlayer.h"

// The media service the SDK falls back to when the platform installed none: every item it
// makes fails (on the main run loop's next turn, like a real load) with a media error saying
// so, so a rewarded video on such a platform ends in the player's error path instead of a crash.
std::shared_ptr<pelora::platform::MediaPlayerService> unplayableMediaService();
