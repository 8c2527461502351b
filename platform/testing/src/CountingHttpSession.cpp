#include "pelora/testing/CountingHttpSession.h"

#include <utility>

namespace pelora::testing {

namespace {

class CountingSession final : public platform::HttpSession {
  public:
    CountingSession(std::shared_ptr<platform::HttpSession> inner,
                    std::shared_ptr<std::atomic<int>> count, std::weak_ptr<platform::RunLoop> wake)
        : inner_(std::move(inner)), count_(std::move(count)), wake_(std::move(wake)) {}

    std::shared_ptr<platform::HttpTask> dataTask(platform::HttpRequest request,
                                                 platform::DataTaskCompletion completion) override {
        ++*count_;
        return inner_->dataTask(
            std::move(request), [count = count_, completion = std::move(completion)](
                                    auto data, auto response, auto error) {
                --*count;
                if (completion) completion(std::move(data), std::move(response), std::move(error));
            });
    }
    std::shared_ptr<platform::HttpTask> downloadTask(
        platform::HttpRequest request, platform::DownloadTaskCompletion completion) override {
        ++*count_;
        return inner_->downloadTask(
            std::move(request), [count = count_, completion = std::move(completion)](
                                    auto location, auto response, auto error) {
                --*count;
                if (completion)
                    completion(std::move(location), std::move(response), std::move(error));
            });
    }
    void invalidateAndCancel() override { inner_->invalidateAndCancel(); }

  private:
    static void finished(std::atomic<int>& count, const std::weak_ptr<platform::RunLoop>& wake) {
        if (--count != 0) return;
        if (auto loop = wake.lock()) loop->post([] {});
    }

    std::shared_ptr<platform::HttpSession> inner_;
    std::shared_ptr<std::atomic<int>> count_;
    std::weak_ptr<platform::RunLoop> wake_;
};

}  // namespace

CountingHttpSessionFactory::CountingHttpSessionFactory(
    std::shared_ptr<platform::HttpSessionFactory> inner, std::shared_ptr<platform::RunLoop> wake)
    : inner_(std::move(inner)), wake_(wake) {}

std::shared_ptr<platform::HttpSession> CountingHttpSessionFactory::createSession(
    const platform::HttpSessionConfiguration& config) {
    return std::make_shared<CountingSession>(inner_->createSession(config), inFlight_, wake_);
}

}  // namespace pelora::testing
