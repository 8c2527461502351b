#pragma once

#include "pelora/platform/Export.h"

// Ad images into the host's image views (a native ad's icon and picture): fetched over HTTP
// and put into the view on the main run loop.

#include <optional>
#include <string>

#include "pelora/ui/ImageView.h"

// Downloads `url` into `view`, cancelling the view's previous download. The view keeps its
// current image until the new one arrives; failures only write "sdk: image error <code>" to
// the log. An absent or unusable URL fails in the transport like any other request.
PELORA_EXPORT void pl_setImageUrl(pelora::ui::ImageView& view,
                                  const std::optional<std::string>& url);
