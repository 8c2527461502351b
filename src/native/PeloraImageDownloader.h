#pragma once

// Ad images: fetched over HTTP for every request (no memory or disk cache) and put into image
// views. pl_setImageUrl is what the rest of the SDK calls; it keeps one running download per
// image view so a view reused quickly never ends up showing an older image.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "pelora/PeloraImageUrl.h"
#include "pelora/platform/Http.h"
#include "pelora/platform/Image.h"
#include "pelora/ui/ImageView.h"

class PeloraImageDownloader {
    struct PrivateTag {};

  public:
    using Success = std::function<void(std::shared_ptr<pelora::platform::Image> image)>;
    using Failure = std::function<void(int64_t code, std::optional<std::string> message)>;

    explicit PeloraImageDownloader(PrivateTag) {}

    // The process-wide instance, created on first use from any thread.
    static std::shared_ptr<PeloraImageDownloader> shareInstance();
    // Gives an instance that is not the shared one. The downloader keeps no state, so it
    // works, but SDK code always goes through shareInstance().
    static std::shared_ptr<PeloraImageDownloader> init();

    // Starts the request at once. On the main run loop: a 2xx answer with a body calls
    // `success` with the decoded image (null when the bytes are not an image); anything else
    // (status outside 2xx, empty body, transport failure, cancellation) calls `failure` with
    // the code and message of the transport. Either callback may be empty.
    std::shared_ptr<pelora::platform::HttpTask> downloadImageRequest(
        pelora::platform::HttpRequest request, Success success, Failure failure);

  private:
    static std::shared_ptr<PeloraImageDownloader> _init();
};

// pl_setImageUrl is declared in the public header.

// The download currently attached to `view` (the last one started), or null.
std::shared_ptr<pelora::platform::HttpTask> pl_downingTask(const pelora::ui::ImageView& view);
void setPl_downingTask(pelora::ui::ImageView& view,
                       std::shared_ptr<pelora::platform::HttpTask> task);
