#include "pelora/testing/FakeHttpSession.h"

#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <utility>

#include "pelora/platform/Services.h"

namespace pelora::testing {

namespace {

using Response = FakeHttpSessionFactory::Response;

std::string withoutQuery(const std::string& url) {
    return url.substr(0, url.find('?'));
}

class FakeTask;

}  // namespace

struct FakeHttpSessionFactory::State {
    std::shared_ptr<platform::RunLoop> fixedLoop;
    std::string temporaryDirectory;
    mutable std::mutex mutex;
    std::map<std::string, Response> responses;
    FakeHttpSessionFactory::Responder responder;
    std::optional<Response> defaultResponse;
    bool simulateTimeouts = false;
    std::vector<Request> requests;
    // Started and not completed, in the order they were started. The fake keeps them alive,
    // as a real session keeps its running tasks.
    std::deque<std::shared_ptr<FakeTask>> inflight;
    uint64_t nextId = 1;

    std::shared_ptr<platform::RunLoop> loop() const {
        if (fixedLoop) return fixedLoop;
        return platform::hasServices() ? platform::services().mainRunLoop : nullptr;
    }
    std::optional<Response> responseFor(const platform::HttpRequest& request) const {
        const std::string& url = request.url;
        auto it = responses.find(url);
        if (it != responses.end()) return it->second;
        it = responses.find(withoutQuery(url));
        if (it != responses.end() && it->first.find('?') == std::string::npos) return it->second;
        return defaultResponse;
    }
    static bool matches(const std::string& key, const std::string& url) {
        if (key == url) return true;
        return key.find('?') == std::string::npos && key == withoutQuery(url);
    }
};

namespace {

class FakeTask final : public platform::HttpTask, public std::enable_shared_from_this<FakeTask> {
  public:
    using State = FakeHttpSessionFactory::State;

    FakeTask(std::shared_ptr<State> state, uint64_t id, platform::HttpRequest request,
             platform::DataTaskCompletion data, platform::DownloadTaskCompletion file)
        : state_(std::move(state)),
          id_(id),
          request_(std::move(request)),
          data_(std::move(data)),
          file_(std::move(file)) {}

    bool isDownload() const { return static_cast<bool>(file_) || download_; }
    void markDownload() { download_ = true; }
    // The body bound of the session and the request, as a real session applies it.
    void limitBody(const platform::HttpSessionConfiguration& config) {
        maxBytes_ = isDownload() ? config.maxDownloadBytes : config.maxBodyBytes;
        if (request_.maxBodyBytes) maxBytes_ = std::min(maxBytes_, *request_.maxBodyBytes);
    }
    uint64_t id() const { return id_; }
    const platform::HttpRequest& request() const { return request_; }

    void resume() override {
        if (resumed_) return;
        resumed_ = true;
        auto state = state_.lock();
        if (!state) return;
        std::optional<Response> answer;
        FakeHttpSessionFactory::Responder responder;
        {
            std::lock_guard lock(state->mutex);
            state->requests.push_back({id_, request_, isDownload()});
            state->inflight.push_back(shared_from_this());
            responder = state->responder;
        }
        // Like a real session: only well-formed http and https requests are ever fetched.
        if (int64_t problem = platform::requestProblem(request_))
            answer = Response::failure(problem);
        // The responder is the test's code: it runs without the fake's lock held.
        if (!answer && responder) answer = responder(request_);
        if (!answer) {
            std::lock_guard lock(state->mutex);
            answer = state->responseFor(request_);
        }
        if (answer && answer->never) answer.reset();
        if (answer) {
            deliverLater(*answer);
        } else if (state->simulateTimeouts) {
            if (auto loop = state->loop()) {
                std::weak_ptr<FakeTask> weak = weak_from_this();
                timeout_ = loop->scheduleTimer(request_.timeoutInterval, false, [weak](auto&) {
                    if (auto task = weak.lock())
                        task->complete(Response::failure(platform::URLError::kTimedOut));
                });
            }
        }
    }

    void cancel() override {
        if (delayed_) {
            delayed_->invalidate();
            delayed_.reset();
            scheduled_ = false;
        }
        deliverLater(Response::failure(platform::URLError::kCancelled));
    }
    uint64_t taskIdentifier() const override { return id_; }
    const platform::HttpRequest& originalRequest() const override { return request_; }

    // Completes on the loop's next turn (never inside the caller's call), or after the
    // answer's delay on the loop's clock.
    void deliverLater(Response response) {
        if (completed_ || scheduled_) return;
        auto state = state_.lock();
        auto loop = state ? state->loop() : nullptr;
        if (!loop) return;
        scheduled_ = true;
        std::weak_ptr<FakeTask> weak = weak_from_this();
        if (response.delay > 0) {
            delayed_ =
                loop->scheduleTimer(response.delay, false, [weak, response](platform::Timer&) {
                    if (auto task = weak.lock()) task->complete(response);
                });
            return;
        }
        loop->post([weak, response = std::move(response)] {
            if (auto task = weak.lock()) task->complete(response);
        });
    }

    void complete(const Response& response) {
        if (completed_) return;
        completed_ = true;
        if (timeout_) timeout_->invalidate();
        if (delayed_) delayed_->invalidate();
        auto keep = shared_from_this();
        std::string tmp;
        if (auto state = state_.lock()) {
            std::lock_guard lock(state->mutex);
            tmp = state->temporaryDirectory;
            for (auto it = state->inflight.begin(); it != state->inflight.end(); ++it) {
                if (it->get() == this) {
                    state->inflight.erase(it);
                    break;
                }
            }
        }
        std::optional<platform::Error> error;
        std::optional<platform::HttpResponse> httpResponse;
        std::optional<int64_t> failure = response.error;
        if (!failure && response.body.size() > maxBytes_)
            failure = platform::URLError::kDataLengthExceedsMaximum;
        if (failure) {
            error = platform::Error{platform::kURLErrorDomain, *failure,
                                    "simulated failure " + std::to_string(*failure)};
        } else {
            httpResponse = platform::HttpResponse{response.status, response.headers, request_.url};
        }
        if (!isDownload()) {
            auto completion = std::exchange(data_, nullptr);
            if (completion)
                completion(error ? std::nullopt : std::optional<std::string>(response.body),
                           httpResponse, error);
            return;
        }
        auto completion = std::exchange(file_, nullptr);
        if (error) {
            if (completion) completion(std::nullopt, std::nullopt, error);
            return;
        }
        // Like a real session: a temporary file that is gone once the completion returned.
        if (tmp.empty()) tmp = std::filesystem::temp_directory_path().string();
        std::error_code ec;
        std::filesystem::create_directories(tmp, ec);
        const std::string path = tmp + "/fake-download-" + std::to_string(id_);
        std::ofstream(path, std::ios::binary) << response.body;
        if (completion) completion(path, httpResponse, std::nullopt);
        std::filesystem::remove(path, ec);
    }

  private:
    std::weak_ptr<State> state_;
    uint64_t id_;
    platform::HttpRequest request_;
    platform::DataTaskCompletion data_;
    platform::DownloadTaskCompletion file_;
    std::shared_ptr<platform::Timer> timeout_;
    std::shared_ptr<platform::Timer> delayed_;
    bool download_ = false;
    uint64_t maxBytes_ = UINT64_MAX;
    bool resumed_ = false;
    bool scheduled_ = false;
    bool completed_ = false;
};

class FakeSession final : public platform::HttpSession {
  public:
    FakeSession(std::shared_ptr<FakeHttpSessionFactory::State> state,
                platform::HttpSessionConfiguration config)
        : state_(std::move(state)), config_(std::move(config)) {}

    std::shared_ptr<platform::HttpTask> dataTask(platform::HttpRequest request,
                                                 platform::DataTaskCompletion completion) override {
        auto task = std::make_shared<FakeTask>(state_, nextId(), std::move(request),
                                               std::move(completion), nullptr);
        task->limitBody(config_);
        return task;
    }
    std::shared_ptr<platform::HttpTask> downloadTask(
        platform::HttpRequest request, platform::DownloadTaskCompletion completion) override {
        auto task = std::make_shared<FakeTask>(state_, nextId(), std::move(request), nullptr,
                                               std::move(completion));
        task->markDownload();
        task->limitBody(config_);
        return task;
    }
    void invalidateAndCancel() override {
        std::deque<std::shared_ptr<FakeTask>> tasks;
        {
            std::lock_guard lock(state_->mutex);
            tasks = state_->inflight;
        }
        for (auto& task : tasks) task->cancel();
    }

  private:
    uint64_t nextId() {
        std::lock_guard lock(state_->mutex);
        return state_->nextId++;
    }
    std::shared_ptr<FakeHttpSessionFactory::State> state_;
    const platform::HttpSessionConfiguration config_;
};

}  // namespace

FakeHttpSessionFactory::FakeHttpSessionFactory(std::shared_ptr<platform::RunLoop> loop,
                                               std::string temporaryDirectory)
    : state_(std::make_shared<State>()) {
    state_->fixedLoop = std::move(loop);
    state_->temporaryDirectory = std::move(temporaryDirectory);
}

FakeHttpSessionFactory::~FakeHttpSessionFactory() {
    // Unanswered tasks die with the fake; their completions never run.
    std::deque<std::shared_ptr<FakeTask>> tasks;
    std::lock_guard lock(state_->mutex);
    tasks.swap(state_->inflight);
}

std::shared_ptr<platform::HttpSession> FakeHttpSessionFactory::createSession(
    const platform::HttpSessionConfiguration& config) {
    return std::make_shared<FakeSession>(state_, config);
}

void FakeHttpSessionFactory::addResponse(const std::string& url, Response response) {
    std::lock_guard lock(state_->mutex);
    state_->responses[url] = std::move(response);
}

void FakeHttpSessionFactory::removeResponse(const std::string& url) {
    std::lock_guard lock(state_->mutex);
    state_->responses.erase(url);
}

void FakeHttpSessionFactory::setDefaultResponse(std::optional<Response> response) {
    std::lock_guard lock(state_->mutex);
    state_->defaultResponse = std::move(response);
}

void FakeHttpSessionFactory::setResponder(Responder responder) {
    std::lock_guard lock(state_->mutex);
    state_->responder = std::move(responder);
}

void FakeHttpSessionFactory::setSimulateTimeouts(bool simulate) {
    std::lock_guard lock(state_->mutex);
    state_->simulateTimeouts = simulate;
}

bool FakeHttpSessionFactory::respond(const std::string& url, Response response) {
    std::shared_ptr<FakeTask> task;
    {
        std::lock_guard lock(state_->mutex);
        for (auto& t : state_->inflight) {
            if (State::matches(url, t->request().url)) {
                task = t;
                break;
            }
        }
    }
    if (!task) return false;
    task->deliverLater(std::move(response));
    return true;
}

std::vector<FakeHttpSessionFactory::Request> FakeHttpSessionFactory::requests() const {
    std::lock_guard lock(state_->mutex);
    return state_->requests;
}

std::vector<FakeHttpSessionFactory::Request> FakeHttpSessionFactory::pending() const {
    std::lock_guard lock(state_->mutex);
    std::vector<Request> out;
    for (const auto& t : state_->inflight) out.push_back({t->id(), t->request(), t->isDownload()});
    return out;
}

size_t FakeHttpSessionFactory::requestCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->requests.size();
}

size_t FakeHttpSessionFactory::pendingCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->inflight.size();
}

std::vector<std::string> FakeHttpSessionFactory::urlsStartingWith(const std::string& prefix) const {
    std::lock_guard lock(state_->mutex);
    std::vector<std::string> out;
    for (const auto& r : state_->requests)
        if (r.request.url.rfind(prefix, 0) == 0) out.push_back(r.request.url);
    return out;
}

void FakeHttpSessionFactory::clearRequests() {
    std::lock_guard lock(state_->mutex);
    state_->requests.clear();
}

}  // namespace pelora::testing
