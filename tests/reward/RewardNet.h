#pragma once

// The network as the rewarded video tests need it: ad fetches answered with a body (or a URL
// error), video files served by URL (or failed, or held), every request recorded as sent.
// Completions arrive through the main run loop, as the real backend's do.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TestPlatform.h"
#include "pelora/platform/Http.h"

namespace rewardtest {

class RewardNet {
  public:
    void install(pelora::testing::TestPlatform& tp) {
        state_->loop = tp.loop;
        state_->tmp = tp.rootDirectory() + "/tmp";
    }
    std::shared_ptr<pelora::platform::HttpSessionFactory> factory() {
        return std::make_shared<Factory>(state_);
    }

    // --- answers ---------------------------------------------------------------------------
    void answerFetches(std::string body) {
        state_->fetchBody = std::move(body);
        state_->fetchError.reset();
    }
    void failFetches(int64_t code) { state_->fetchError = code; }
    void serve(const std::string& url, std::string bytes) { state_->files[url] = std::move(bytes); }
    void failDownloads(int64_t code) { state_->downloadError = code; }
    // Held downloads complete only when cancelled.
    void holdDownloads(bool hold) { state_->holdDownloads = hold; }
    void reset() {
        state_->fetchError.reset();
        state_->downloadError.reset();
        state_->holdDownloads = false;
    }

    // --- what was sent ---------------------------------------------------------------------
    std::vector<std::string> urlsStartingWith(const std::string& prefix) const {
        std::vector<std::string> out;
        for (const auto& r : state_->requests)
            if (r.url.rfind(prefix, 0) == 0) out.push_back(r.url);
        return out;
    }
    bool requested(const std::string& url) const {
        for (const auto& r : state_->requests)
            if (r.url == url) return true;
        return false;
    }
    std::optional<pelora::platform::HttpRequest> lastFetch() const {
        std::optional<pelora::platform::HttpRequest> last;
        for (const auto& r : state_->requests)
            if (r.url.find("/api/v1/advert/fetch") != std::string::npos) last = r;
        return last;
    }
    size_t downloads() const { return state_->downloads; }

  private:
    struct State {
        // Weak: tasks waiting in the loop hold this state, which must not hold the loop back.
        std::weak_ptr<pelora::platform::RunLoop> loop;
        std::string tmp;
        std::optional<std::string> fetchBody;
        std::optional<int64_t> fetchError;
        std::map<std::string, std::string> files;
        std::optional<int64_t> downloadError;
        bool holdDownloads = false;
        std::vector<pelora::platform::HttpRequest> requests;
        size_t downloads = 0;
        uint64_t nextId = 1;
    };

    class Task final : public pelora::platform::HttpTask,
                       public std::enable_shared_from_this<Task> {
      public:
        Task(std::shared_ptr<State> state, pelora::platform::HttpRequest request, bool download,
             pelora::platform::DataTaskCompletion data,
             pelora::platform::DownloadTaskCompletion file)
            : state_(std::move(state)),
              request_(std::move(request)),
              download_(download),
              data_(std::move(data)),
              file_(std::move(file)),
              id_(state_->nextId++) {}

        void resume() override {
            if (resumed_) return;
            resumed_ = true;
            state_->requests.push_back(request_);
            if (download_) ++state_->downloads;
            if (download_ && state_->holdDownloads) return;
            post([self = shared_from_this()] { self->answer(); });
        }
        void cancel() override {
            post([self = shared_from_this()] {
                self->finish(pelora::platform::URLError::kCancelled, std::nullopt, 0);
            });
        }
        uint64_t taskIdentifier() const override { return id_; }
        const pelora::platform::HttpRequest& originalRequest() const override { return request_; }

      private:
        void post(std::function<void()> work) {
            if (auto loop = state_->loop.lock()) loop->post(std::move(work));
        }
        void answer() {
            const bool fetch = request_.url.find("/api/v1/advert/fetch") != std::string::npos;
            if (fetch) {
                if (state_->fetchError) return finish(*state_->fetchError, std::nullopt, 0);
                return finish(0, state_->fetchBody.value_or(""), 200);
            }
            if (download_ && state_->downloadError)
                return finish(*state_->downloadError, std::nullopt, 0);
            auto it = state_->files.find(request_.url);
            if (it != state_->files.end()) return finish(0, it->second, 200);
            finish(0, std::string(), 204);  // beacons, images
        }

        void finish(int64_t error, std::optional<std::string> body, int64_t status) {
            if (done_) return;
            done_ = true;
            std::optional<pelora::platform::Error> err;
            std::optional<pelora::platform::HttpResponse> response;
            if (error != 0) {
                err = pelora::platform::Error{pelora::platform::kURLErrorDomain, error, "fake"};
            } else {
                response = pelora::platform::HttpResponse{status, {}, request_.url};
            }
            if (!download_) {
                if (data_) data_(err ? std::nullopt : body, response, err);
                return;
            }
            if (err) {
                if (file_) file_(std::nullopt, std::nullopt, err);
                return;
            }
            // Like a real session: a temporary file, removed once the completion returned.
            std::filesystem::create_directories(state_->tmp);
            std::string path = state_->tmp + "/download-" + std::to_string(id_);
            std::ofstream(path, std::ios::binary) << body.value_or("");
            if (file_) file_(path, response, std::nullopt);
            std::error_code ec;
            std::filesystem::remove(path, ec);
        }

        std::shared_ptr<State> state_;
        pelora::platform::HttpRequest request_;
        bool download_;
        pelora::platform::DataTaskCompletion data_;
        pelora::platform::DownloadTaskCompletion file_;
        uint64_t id_;
        bool resumed_ = false;
        bool done_ = false;
    };

    class Session final : public pelora::platform::HttpSession {
      public:
        explicit Session(std::shared_ptr<State> state) : state_(std::move(state)) {}
        std::shared_ptr<pelora::platform::HttpTask> dataTask(
            pelora::platform::HttpRequest request,
            pelora::platform::DataTaskCompletion completion) override {
            return std::make_shared<Task>(state_, std::move(request), false, std::move(completion),
                                          nullptr);
        }
        std::shared_ptr<pelora::platform::HttpTask> downloadTask(
            pelora::platform::HttpRequest request,
            pelora::platform::DownloadTaskCompletion completion) override {
            return std::make_shared<Task>(state_, std::move(request), true, nullptr,
                                          std::move(completion));
        }
        void invalidateAndCancel() override {}

      private:
        std::shared_ptr<State> state_;
    };

    class Factory final : public pelora::platform::HttpSessionFactory {
      public:
        explicit Factory(std::shared_ptr<State> state) : state_(std::move(state)) {}
        std::shared_ptr<pelora::platform::HttpSession> createSession(
            const pelora::platform::HttpSessionConfiguration&) override {
            return std::make_shared<Session>(state_);
        }

      private:
        std::shared_ptr<State> state_;
    };

    std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace rewardtest
