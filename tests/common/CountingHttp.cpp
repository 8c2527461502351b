#include "CountingHttp.h"

#include <utility>

namespace pelora::testing {
namespace {

using State = CountingHttpSessionFactory::State;

class FailingTask final : public platform::HttpTask {
  public:
    FailingTask(platform::HttpRequest request, int64_t code,
                platform::DataTaskCompletion completion)
        : request_(std::move(request)), code_(code), completion_(std::move(completion)) {}
    void resume() override {
        if (!completion_) return;
        auto completion = std::move(completion_);
        completion_ = nullptr;
        completion(std::nullopt, std::nullopt,
                   platform::Error{platform::kURLErrorDomain, code_, "scripted failure"});
    }
    void cancel() override {}
    uint64_t taskIdentifier() const override { return 0; }
    const platform::HttpRequest& originalRequest() const override { return request_; }

  private:
    platform::HttpRequest request_;
    int64_t code_;
    platform::DataTaskCompletion completion_;
};

class CountingSession final : public platform::HttpSession {
  public:
    CountingSession(std::shared_ptr<platform::HttpSession> inner, std::shared_ptr<State> state)
        : inner_(std::move(inner)), state_(std::move(state)) {}

    std::shared_ptr<platform::HttpTask> dataTask(platform::HttpRequest request,
                                                 platform::DataTaskCompletion completion) override {
        std::optional<int64_t> failure;
        {
            std::lock_guard lock(state_->mutex);
            state_->requests.push_back(request);
            failure = state_->failure;
        }
        ++state_->created;
        platform::DataTaskCompletion counted = [state = state_, completion = std::move(completion)](
                                                   auto data, auto response, auto error) {
            if (completion) completion(data, response, error);
            ++state->completed;
        };
        if (failure) {
            return std::make_shared<FailingTask>(std::move(request), *failure, std::move(counted));
        }
        return inner_->dataTask(std::move(request), std::move(counted));
    }

    std::shared_ptr<platform::HttpTask> downloadTask(
        platform::HttpRequest request, platform::DownloadTaskCompletion completion) override {
        ++state_->created;
        return inner_->downloadTask(std::move(request),
                                    [state = state_, completion = std::move(completion)](
                                        auto location, auto response, auto error) {
                                        if (completion) completion(location, response, error);
                                        ++state->completed;
                                    });
    }

    void invalidateAndCancel() override { inner_->invalidateAndCancel(); }

  private:
    std::shared_ptr<platform::HttpSession> inner_;
    std::shared_ptr<State> state_;
};

}  // namespace

CountingHttpSessionFactory::CountingHttpSessionFactory(
    std::shared_ptr<platform::HttpSessionFactory> inner)
    : inner_(std::move(inner)) {}

std::shared_ptr<platform::HttpSession> CountingHttpSessionFactory::createSession(
    const platform::HttpSessionConfiguration& config) {
    return std::make_shared<CountingSession>(inner_->createSession(config), state_);
}

std::vector<platform::HttpRequest> CountingHttpSessionFactory::requests() const {
    std::lock_guard lock(state_->mutex);
    return state_->requests;
}

void CountingHttpSessionFactory::failWith(std::optional<int64_t> code) {
    std::lock_guard lock(state_->mutex);
    state_->failure = code;
}

}  // namespace pelora::testing
