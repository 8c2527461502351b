#include <cstdio>

#include "pelora/ui/PlayerLayer.h"
#include "pelora/ui/WebView.h"

namespace pelora::ui {

void WebView::loadHTMLString(std::string html, std::optional<std::string> baseURL) {
    html_ = std::move(html);
    baseURL_ = std::move(baseURL);
    setNeedsDisplay();
}

std::string WebView::describeDetails() const {
    if (!html_) return "html=none";
    return "html=" + std::to_string(html_->size()) + " bytes";
}

std::shared_ptr<PlayerLayer> PlayerLayer::playerLayerWithPlayer(
    std::shared_ptr<platform::Player> player) {
    auto layer = std::make_shared<PlayerLayer>();
    layer->setUserInteractionEnabled(false);
    layer->player_ = std::move(player);
    if (layer->player_) {
        std::weak_ptr<PlayerLayer> weak = layer;
        layer->player_->setVideoOutput([weak](std::shared_ptr<const platform::VideoFrame> frame) {
            if (auto strong = weak.lock()) strong->setVideoFrame(std::move(frame));
        });
    }
    return layer;
}

PlayerLayer::~PlayerLayer() {
    if (player_) player_->setVideoOutput(nullptr);
}

void PlayerLayer::setVideoFrame(std::shared_ptr<const platform::VideoFrame> frame) {
    if (!frame) return;
    frame_ = std::move(frame);
    ++framesReceived_;
    setNeedsDisplay();
}

std::string PlayerLayer::describeDetails() const {
    if (!frame_) return "frame=none";
    char buf[96];
    std::snprintf(buf, sizeof buf, "frame=%dx%d #%llu", frame_->width, frame_->height,
                  static_cast<unsigned long long>(frame_->sequence));
    return buf;
}

}  // namespace pelora::ui
