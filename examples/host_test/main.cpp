// A host testing its own ad integration without a network or a clock: the SDK's test
// environment answers the ad request, and the test checks what the host's feed received and
// what the SDK sent. Exit status 0 when every check holds.

#include <pelora/Pelora.h>
#include <pelora/testing/TestEnvironment.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

int failures = 0;

void check(bool ok, const char* what) {
    std::printf("%s: %s\n", ok ? "ok" : "FAILED", what);
    if (!ok) ++failures;
}

// The host's feed, as the host would write it.
class Feed : public PeloraDataFlowAdManagerDelegate {
  public:
    void dataFlowAdManagerDidSuccessLoad(
        std::shared_ptr<PeloraDataFlowAdManager>,
        std::vector<std::shared_ptr<PeloraNativeAd>> ads) override {
        for (const auto& ad : ads) titles.push_back(ad->adData()->title.value_or(""));
    }
    void dataFlowAdManagerDidFailWithError(std::shared_ptr<PeloraDataFlowAdManager>,
                                           const pelora::platform::Error& error) override {
        errors.push_back(error.code);
    }
    std::vector<std::string> titles;
    std::vector<int64_t> errors;
};

}  // namespace

int main() {
    // [doc:host-test]
    pelora::platform::SdkOptions options;
    options.serverOrigin = "https://ads.test";
    pelora::testing::TestEnvironment env(options);  // fakes installed; SDK shut down at the end
    env.fake->addResponse(
        "https://ads.test/api/v1/advert/fetch",
        pelora::testing::FakeHttpSessionFactory::Response::ok(
            R"({"code":0,"data":{"reqId":"r1","ads":[{"adId":"a1","title":"Spring sale"}]}})"));

    auto feed = std::make_shared<Feed>();
    auto slot = std::make_shared<PeloraDataFlowSlot>();
    slot->slotId = "feed-slot";
    auto manager = PeloraDataFlowAdManager::initWithSlot(slot);
    manager->setDelegate(feed);
    manager->loadAdData();
    env.pump();  // the answer arrives on the (manual) main run loop

    check(feed->titles == std::vector<std::string>{"Spring sale"}, "the feed got the ad");
    check(env.fake->requestCount() == 1, "one request was sent");
    // [doc:end]
    return failures == 0 ? 0 : 1;
}
