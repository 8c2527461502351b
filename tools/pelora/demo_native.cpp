// `pelora demo`, native ads: a data-flow load, the first ad drawn in the host's own card
// (icon, title, picture, description), registered and tapped.

#include <memory>
#include <string>
#include <vector>

#include "DemoHost.h"
#include "pelora/Pelora.h"

namespace pelora::cli::demo {

namespace {

using pelora::platform::Error;
using pelora::platform::makeRect;

class NativeHost : public PeloraDataFlowAdManagerDelegate, public PeloraNativeAdDelegate {
  public:
    explicit NativeHost(Demo& demo) : demo_(demo) {}
    void dataFlowAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraDataFlowAdManager>,
        std::vector<std::shared_ptr<PeloraNativeAd>> list) override {
        ads = std::move(list);
        done = true;
        json ids = json::array();
        for (const auto& ad : ads) ids.push_back(ad->adData()->adId.value_or(""));
        demo_.note("native", "dataFlowAdManagerDidSuccessLoad", std::to_string(ads.size()) + " ads",
                   {{"ads", ids}});
    }
    void dataFlowAdManagerDidFailWithError(std::shared_ptr<PeloraDataFlowAdManager>,
                                           const Error& e) override {
        done = true;
        demo_.note("native", "dataFlowAdManagerDidFailWithError",
                   e.domain + " " + std::to_string(e.code),
                   {{"domain", e.domain}, {"code", e.code}});
    }
    void nativeAdDidDidShow(std::shared_ptr<PeloraNativeAd> ad) override {
        shown = true;
        demo_.note("native", "nativeAdDidDidShow", ad->adData()->adId.value_or(""));
    }
    void nativeAdDidClickWithView(std::shared_ptr<PeloraNativeAd> ad,
                                  std::shared_ptr<ui::View> view) override {
        ++clicks;
        demo_.note("native", "nativeAdDidClickWithView",
                   ad->adData()->adId.value_or("") + " on " + (view ? view->className() : "?"));
    }

    std::vector<std::shared_ptr<PeloraNativeAd>> ads;
    bool done = false, shown = false;
    int clicks = 0;

  private:
    Demo& demo_;
};

// The host's own card for the first ad: icon and title on top, the picture, the description.
// Registers it and taps the picture.
void showNativeCard(DemoHost& host, NativeHost& nativeHost,
                    const std::shared_ptr<NativeHost>& delegate,
                    std::shared_ptr<PeloraNativeRenderView>& container) {
    auto& demo = host.demo;
    auto& run = host.run;
    for (size_t i = 0; i < nativeHost.ads.size(); ++i) {
        auto data = nativeHost.ads[i]->adData();
        demo.note("host", "native ad " + std::to_string(i + 1),
                  data->adId.value_or("") + ": \"" + data->title.value_or("") + "\" — " +
                      data->desc.value_or("") + " (" + data->source.value_or("") + ")",
                  {{"adId", data->adId.value_or("")}, {"title", data->title.value_or("")}});
    }
    auto ad = nativeHost.ads[0];
    auto data = ad->adData();
    container = std::make_shared<PeloraNativeRenderView>(makeRect(16, 80, 343, 300));
    auto icon = std::make_shared<ui::ImageView>(makeRect(0, 0, 48, 48));
    auto title = std::make_shared<ui::Label>(makeRect(56, 0, 287, 48));
    auto picture = std::make_shared<ui::ImageView>(makeRect(0, 56, 343, 193));
    auto desc = std::make_shared<ui::Label>(makeRect(0, 256, 343, 44));
    // The host's own look: a rounded card, a bold title, two lines of grey description.
    container->setBackgroundColor(ui::Color::rgba(0.96, 0.96, 0.97));
    container->setCornerRadius(12);
    container->setClipsToBounds(true);
    title->setText(data->title);
    title->setFontSize(17);
    title->setFontWeight(ui::FontWeight::Bold);
    title->setNumberOfLines(2);
    desc->setText(data->desc);
    desc->setFontSize(14);
    desc->setTextColor(ui::Color::rgba(0.35, 0.36, 0.4));
    desc->setNumberOfLines(2);
    for (const auto& v : std::vector<std::shared_ptr<ui::View>>{icon, title, picture, desc})
        container->addSubview(v);
    host.root->view()->addSubview(container);
    if (data->icons && !data->icons->empty()) {
        pl_setImageUrl(*icon, data->icons->front());
        run.images.push_back({"native icon", icon});
    }
    if (data->images && !data->images->empty()) {
        pl_setImageUrl(*picture, data->images->front());
        run.images.push_back({"native image", picture});
    }
    ad->setDelegate(delegate);
    ad->setRootViewController(host.root);
    demo.note("host", "registerContainer", "title and picture clickable");
    ad->registerContainer(container, {title, picture});
    run.pumpUntil(
        [&] {
            for (const auto& w : run.images)
                if (!w.reported) return false;
            return demo.record(kNativeSlot, 1) != nullptr;
        },
        3);
    host.screenshot("native");
    if (host.person) {
        demo.note("host", "waiting for a tap on the native ad", "up to 30 s");
        run.pumpUntil([&] { return nativeHost.clicks > 0; }, 30);
    } else {
        host.tapCenter(picture, "taps the native ad");
    }
    if (nativeHost.clicks > 0)
        run.pumpUntil([&] { return demo.record(kNativeSlot, 2) != nullptr; }, 3);
    run.pumpUntil([] { return false; }, host.options.fast ? 0.05 : 0.2);  // deep-link reports
}

}  // namespace

void runNativePart(DemoHost& host) {
    auto& demo = host.demo;
    auto nativeHost = std::make_shared<NativeHost>(demo);
    auto slot = std::make_shared<PeloraDataFlowSlot>();
    slot->slotId = kNativeSlot;
    slot->slotWidth = 686;
    slot->slotHeight = 600;
    auto manager = PeloraDataFlowAdManager::initWithSlot(slot);
    manager->setDelegate(nativeHost);
    demo.note("host", "loadAdData", std::string("native slot ") + kNativeSlot);
    manager->loadAdData();
    host.run.pumpUntil([&] { return nativeHost->done; }, 10);

    std::shared_ptr<PeloraNativeRenderView> container;
    if (!nativeHost->ads.empty()) showNativeCard(host, *nativeHost, nativeHost, container);

    demo.check("native ads loaded", !nativeHost->ads.empty(),
               std::to_string(nativeHost->ads.size()) + " ads");
    demo.check("native ad shown (nativeAdDidDidShow)", nativeHost->shown);
    // A person may let the ad be: then there is no click to check.
    const bool clickExpected = !host.person || nativeHost->clicks > 0;
    if (clickExpected)
        demo.check("native ad clicked (nativeAdDidClickWithView)", nativeHost->clicks == 1);
    auto imp = demo.record(kNativeSlot, 1);
    demo.check("native impression tracking received, macros substituted",
               imp && !macrosLeft(imp->url + imp->body),
               imp ? imp->method + " " + imp->url : "none");
    auto click = demo.record(kNativeSlot, 2);
    if (clickExpected)
        demo.check("native click tracking received, macros substituted",
                   click && !macrosLeft(click->url + click->body), click ? click->url : "none");

    // The host is done with its ads.
    if (container) container->removeFromSuperview();
    container.reset();
    nativeHost->ads.clear();
    manager.reset();
    demo.drain();
}

}  // namespace pelora::cli::demo
