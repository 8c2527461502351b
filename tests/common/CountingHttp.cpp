#include "CountingHttp.h"

namespace pelora::testing {
namespace {

class CountingSession final : public platform::HttpSession {
  public:
    CountingSession(std::shared_ptr<platform::HttpSession> inner,
                    std::shared_ptr<std::atomic<long>> created,
                    std::shared_ptr<std::atomic<long>> completed)
        : inner_(std::move(inner)),
          created_(std::move(created)),
          completed_(std::move(completed)) {}

    std::shared_ptr<platform::HttpTask> dataTask(platform::HttpRequest request,
                                                 platform::DataTaskCompletion completion) override {
        ++*created_;
        return inner_->dataTask(std::move(request),
                                [done = completed_, completion = std::move(completion)](
                                    auto data, auto response, auto error) {
                                    if (completion) completion(data, response, error);
                                    ++*done;
                                });
    }

    std::shared_ptr<platform::HttpTask> downloadTask(
        platform::HttpRequest request, platform::DownloadTaskCompletion completion) override {
        ++*created_;
        return inner_->downloadTask(std::move(request),
                                    [done = completed_, completion = std::move(completion)](
                                        auto location, auto response, auto error) {
                                        if (completion) completion(location, response, error);
                                        ++*done;
                                    });
    }

    void invalidateAndCancel() override { inner_->invalidateAndCancel(); }

  private:
    std::shared_ptr<platform::HttpSession> inner_;
    std::shared_ptr<std::atomic<long>> created_;
    std::shared_ptr<std::atomic<long>> completed_;
};

}  // namespace

CountingHttpSessionFactory::CountingHttpSessionFactory(
    std::shared_ptr<platform::HttpSessionFactory> inner)
    : inner_(std::move(inner)) {}

std::shared_ptr<platform::HttpSession> CountingHttpSessionFactory::createSession(
    const platform::HttpSessionConfiguration& config) {
    return std::make_shared<CountingSession>(inner_->createSession(config), created_, completed_);
}

}  // namespace pelora::testing
