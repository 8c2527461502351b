#include "pelora/desktop/FramePresenter.h"

#include "pelora/ui/Window.h"

namespace pelora::desktop {

FramePresenter::FramePresenter(std::shared_ptr<ui::Window> window, platform::RunLoop& loop,
                               double scale, Sink sink)
    : window_(window),
      loop_(loop),
      renderer_(scale),
      sink_(std::move(sink)),
      self_(std::make_shared<FramePresenter*>(this)) {
    if (!window) return;
    window->setNeedsDisplayHandler([this] { schedule(); });
    schedule();
}

FramePresenter::~FramePresenter() {
    if (auto window = window_.lock()) window->setNeedsDisplayHandler(nullptr);
}

void FramePresenter::schedule() {
    if (scheduled_) return;
    scheduled_ = true;
    std::weak_ptr<FramePresenter*> weak = self_;
    loop_.post([weak] {
        auto self = weak.lock();
        if (!self) return;
        (*self)->scheduled_ = false;
        (*self)->presentNow();
    });
}

void FramePresenter::presentNow() {
    auto window = window_.lock();
    if (!window || !renderer_.update(*window)) return;
    ++framesPresented_;
    if (sink_) sink_(renderer_.frame());
}

}  // namespace pelora::desktop
