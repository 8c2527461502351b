#include "pelora/desktop/CurlHttpSession.h"

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "pelora/platform/Log.h"

namespace pelora::desktop {

using platform::CachePolicy;
using platform::DataTaskCompletion;
using platform::DownloadTaskCompletion;
using platform::Error;
using platform::HttpRequest;
using platform::HttpResponse;
using platform::HttpSessionConfiguration;
namespace URLError = platform::URLError;

int64_t urlErrorCodeForCurlCode(int curlCode, bool bodyTooLarge, bool fileWriteFailed) {
    if (bodyTooLarge) return URLError::kDataLengthExceedsMaximum;
    switch (static_cast<CURLcode>(curlCode)) {
        case CURLE_OK:
            return 0;
        case CURLE_UNSUPPORTED_PROTOCOL:
            return URLError::kUnsupportedURL;
        case CURLE_URL_MALFORMAT:
            return URLError::kBadURL;
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_RESOLVE_HOST:
            return URLError::kCannotFindHost;
        case CURLE_COULDNT_CONNECT:
        case CURLE_NO_CONNECTION_AVAILABLE:
            return URLError::kCannotConnectToHost;
        case CURLE_OPERATION_TIMEDOUT:
            return URLError::kTimedOut;
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_PARTIAL_FILE:
        case CURLE_GOT_NOTHING:
        case CURLE_HTTP2_STREAM:
            return URLError::kNetworkConnectionLost;
        case CURLE_TOO_MANY_REDIRECTS:
            return URLError::kHTTPTooManyRedirects;
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_HTTP2:
        case CURLE_HTTP3:
        case CURLE_QUIC_CONNECT_ERROR:
            return URLError::kBadServerResponse;
        case CURLE_FILESIZE_EXCEEDED:
            return URLError::kDataLengthExceedsMaximum;
        case CURLE_WRITE_ERROR:
            return fileWriteFailed ? URLError::kCannotWriteToFile : URLError::kUnknown;
        case CURLE_BAD_CONTENT_ENCODING:
            return URLError::kCannotDecodeContentData;
        case CURLE_ABORTED_BY_CALLBACK:
            return URLError::kCancelled;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_INVALIDCERTSTATUS:
            return URLError::kServerCertificateUntrusted;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_USE_SSL_FAILED:
            return URLError::kSecureConnectionFailed;
        default:
            return URLError::kUnknown;
    }
}

std::string urlErrorDescription(int64_t code) {
    switch (code) {
        case URLError::kCancelled:
            return "cancelled";
        case URLError::kBadURL:
            return "bad URL";
        case URLError::kTimedOut:
            return "The request timed out.";
        case URLError::kUnsupportedURL:
            return "unsupported URL";
        case URLError::kCannotFindHost:
            return "A server with the specified hostname could not be found.";
        case URLError::kCannotConnectToHost:
            return "Could not connect to the server.";
        case URLError::kNetworkConnectionLost:
            return "The network connection was lost.";
        case URLError::kHTTPTooManyRedirects:
            return "too many HTTP redirects";
        case URLError::kResourceUnavailable:
            return "The requested resource is unavailable.";
        case URLError::kBadServerResponse:
            return "The server returned a bad response.";
        case URLError::kCannotDecodeContentData:
            return "The response could not be decoded.";
        case URLError::kDataLengthExceedsMaximum:
            return "The resource exceeds the maximum size.";
        case URLError::kSecureConnectionFailed:
            return "A TLS error occurred and a secure connection to the server cannot be made.";
        case URLError::kServerCertificateHasBadDate:
            return "The certificate for this server has expired or is not yet valid.";
        case URLError::kServerCertificateUntrusted:
            return "The certificate for this server is invalid.";
        case URLError::kCannotCreateFile:
            return "The download file could not be created.";
        case URLError::kCannotWriteToFile:
            return "The download file could not be written.";
        default:
            return "An unknown error occurred.";
    }
}

Error makeURLError(int64_t code) {
    return Error{platform::kURLErrorDomain, code, urlErrorDescription(code)};
}

namespace {

void initCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::string upper(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return s;
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

class Core;

enum class TaskKind { Data, Download };

class CurlTask final : public platform::HttpTask, public std::enable_shared_from_this<CurlTask> {
  public:
    CurlTask(uint64_t id, HttpRequest request, TaskKind kind, std::weak_ptr<Core> core)
        : id_(id), request_(std::move(request)), kind_(kind), core_(std::move(core)) {}

    void resume() override;
    void cancel() override;
    uint64_t taskIdentifier() const override { return id_; }
    const HttpRequest& originalRequest() const override { return request_; }

    const uint64_t id_;
    const HttpRequest request_;
    const TaskKind kind_;
    std::weak_ptr<Core> core_;
    DataTaskCompletion dataDone;
    DownloadTaskCompletion downloadDone;
    std::atomic<bool> resumed{false};
    std::atomic<bool> finished{false};

    // Transfer state, touched only on the session thread.
    CURL* easy = nullptr;
    curl_slist* headerList = nullptr;
    std::string body;
    std::FILE* file = nullptr;
    std::string filePath;
    uint64_t received = 0;
    uint64_t maxBytes = 0;
    bool tooLarge = false;
    bool writeFailed = false;
    HttpResponse response;
};

// Whether the peer's certificate failed verification only for its dates (X.509 verification
// results 9 "not yet valid" and 10 "expired", as OpenSSL numbers them).
bool certificateOutOfDate(CURL* easy) {
    long verify = 0;
    if (curl_easy_getinfo(easy, CURLINFO_SSL_VERIFYRESULT, &verify) != CURLE_OK) return false;
    return verify == 9 || verify == 10;
}

// Appends to a data task's body without ever reserving past the cap: the usual doubling
// would leave a body just over half the cap holding twice its size. The announced length
// (when there is one, and within the cap) sizes the buffer once.
void appendBounded(CurlTask& task, const char* data, size_t len) {
    std::string& body = task.body;
    const size_t needed = body.size() + len;
    if (needed > body.capacity()) {
        size_t want = std::max(needed, body.capacity() * 2);
        curl_off_t announced = -1;
        if (body.empty() &&
            curl_easy_getinfo(task.easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced) ==
                CURLE_OK &&
            announced > 0 && static_cast<uint64_t>(announced) <= task.maxBytes) {
            want = std::max(needed, static_cast<size_t>(announced));
        }
        body.reserve(static_cast<size_t>(std::min<uint64_t>(want, task.maxBytes)));
    }
    body.append(data, len);
}

size_t onBody(char* data, size_t size, size_t count, void* user) {
    auto* task = static_cast<CurlTask*>(user);
    const size_t len = size * count;
    // Counted here rather than trusted to libcurl's size option, which cannot stop a body of
    // unknown length.
    if (task->received + len > task->maxBytes) {
        task->tooLarge = true;
        return 0;
    }
    task->received += len;
    if (task->file) {
        if (std::fwrite(data, 1, len, task->file) != len) {
            task->writeFailed = true;
            return 0;
        }
    } else {
        appendBounded(*task, data, len);
    }
    return len;
}

size_t onHeader(char* data, size_t size, size_t count, void* user) {
    auto* task = static_cast<CurlTask*>(user);
    const size_t len = size * count;
    std::string_view line = trim(std::string_view(data, len));
    if (line.starts_with("HTTP/")) {
        // A new status line: redirects and interim answers start over, so the headers
        // reported are those of the final response.
        task->response.headers.clear();
    } else if (auto colon = line.find(':'); colon != std::string_view::npos && colon > 0) {
        task->response.headers.emplace_back(std::string(trim(line.substr(0, colon))),
                                            std::string(trim(line.substr(colon + 1))));
    }
    return len;
}

struct Op {
    enum Kind { Start, Cancel, CancelAll } kind;
    std::shared_ptr<CurlTask> task;
};

// The shared state of one session: the multi handle and the queue of operations that other
// threads hand to the session thread. Owned jointly by the session object and its thread, so a
// session released from inside one of its own completions stays valid until the thread ends.
class Core : public std::enable_shared_from_this<Core> {
  public:
    explicit Core(HttpSessionConfiguration config) : config_(std::move(config)) {
        initCurlOnce();
        multi_ = curl_multi_init();
    }
    ~Core() {
        for (CURL* easy : idleHandles_) curl_easy_cleanup(easy);
        if (multi_) curl_multi_cleanup(multi_);
    }

    // Any thread. False when the session thread has already ended.
    bool submit(Op op) {
        {
            std::lock_guard lock(mutex_);
            if (quit_) return false;
            ops_.push_back(std::move(op));
        }
        curl_multi_wakeup(multi_);
        return true;
    }

    void registerTask(const std::shared_ptr<CurlTask>& task) {
        std::lock_guard lock(mutex_);
        known_[task->id_] = task;
    }

    void invalidate() {
        {
            std::lock_guard lock(mutex_);
            invalidated_ = true;
            ops_.push_back({Op::CancelAll, nullptr});
        }
        curl_multi_wakeup(multi_);
    }

    void quit() {
        {
            std::lock_guard lock(mutex_);
            quit_ = true;
        }
        curl_multi_wakeup(multi_);
    }

    // As good as forever: curl_multi_wakeup() ends the wait whenever there is work.
    static constexpr int kIdleWaitMs = 24 * 60 * 60 * 1000;

    void loop() {
        for (;;) {
            std::vector<Op> ops;
            bool quit;
            bool invalidated;
            {
                std::lock_guard lock(mutex_);
                ops.swap(ops_);
                quit = quit_;
                invalidated = invalidated_;
            }
            for (auto& op : ops) handle(op, invalidated);
            if (quit) break;
            int running = 0;
            curl_multi_perform(multi_, &running);
            collectFinished();
            // Transfers bring their own deadlines to the wait; with none running the
            // thread sleeps until a new task or the end of the session wakes it.
            curl_multi_poll(multi_, nullptr, 0, active_.empty() ? kIdleWaitMs : 1000, nullptr);
        }
        cancelAll();
    }

  private:
    void handle(Op& op, bool invalidated) {
        switch (op.kind) {
            case Op::Start:
                if (invalidated) {
                    finishWithError(op.task, URLError::kCancelled);
                } else {
                    start(op.task);
                }
                break;
            case Op::Cancel:
                finishWithError(op.task, URLError::kCancelled);
                break;
            case Op::CancelAll:
                cancelAll();
                break;
        }
    }

    void cancelAll() {
        std::vector<std::shared_ptr<CurlTask>> tasks;
        {
            std::lock_guard lock(mutex_);
            for (auto& [id, weak] : known_) {
                if (auto t = weak.lock()) tasks.push_back(std::move(t));
            }
        }
        for (auto& [easy, task] : active_) tasks.push_back(task);
        std::sort(tasks.begin(), tasks.end(),
                  [](const auto& a, const auto& b) { return a->id_ < b->id_; });
        tasks.erase(std::unique(tasks.begin(), tasks.end()), tasks.end());
        for (auto& t : tasks) finishWithError(t, URLError::kCancelled);
    }

    void start(const std::shared_ptr<CurlTask>& task) {
        if (task->finished) return;
        const HttpRequest& req = task->request_;
        if (int64_t problem = platform::requestProblem(req)) {
            finishWithError(task, problem);
            return;
        }
        if (req.cachePolicy == CachePolicy::ReturnCacheDataDontLoad) {
            // This backend keeps no response cache, so "cache only" has nothing to return.
            finishWithError(task, URLError::kResourceUnavailable);
            return;
        }
        if (task->kind_ == TaskKind::Download && !openDownloadFile(*task)) {
            finishWithError(task, URLError::kCannotCreateFile);
            return;
        }
        CURL* easy = takeHandle();
        if (!easy) {
            finishWithError(task, URLError::kUnknown);
            return;
        }
        task->easy = easy;
        task->maxBytes =
            task->kind_ == TaskKind::Download ? config_.maxDownloadBytes : config_.maxBodyBytes;
        if (req.maxBodyBytes) task->maxBytes = std::min(task->maxBytes, *req.maxBodyBytes);
        configure(*task);
        active_[easy] = task;
        curl_multi_add_handle(multi_, easy);
    }

    bool openDownloadFile(CurlTask& task) {
        std::error_code ec;
        std::filesystem::path dir = config_.temporaryDirectory.empty()
                                        ? std::filesystem::temp_directory_path(ec)
                                        : std::filesystem::path(config_.temporaryDirectory);
        if (dir.empty()) dir = "/tmp";
        std::filesystem::create_directories(dir, ec);
        std::string templ = (dir / "pelora-download-XXXXXX").string();
        int fd = ::mkstemp(templ.data());
        if (fd < 0) return false;
        task.file = ::fdopen(fd, "wb");
        if (!task.file) {
            ::close(fd);
            ::unlink(templ.c_str());
            return false;
        }
        task.filePath = templ;
        return true;
    }

    void configure(CurlTask& task) {
        CURL* easy = task.easy;
        const HttpRequest& req = task.request_;
        curl_easy_setopt(easy, CURLOPT_URL, req.url.c_str());
        curl_easy_setopt(easy, CURLOPT_PRIVATE, &task);
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(easy, CURLOPT_MAXREDIRS,
                         static_cast<long>(std::max(0, config_.maxRedirects)));
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
        if (!config_.caBundlePath.empty()) {
            curl_easy_setopt(easy, CURLOPT_CAINFO, config_.caBundlePath.c_str());
        }
        curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
        curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE,
                         static_cast<curl_off_t>(std::min<uint64_t>(task.maxBytes, INT64_MAX)));
        double timeout = req.timeoutInterval;
        if (!(timeout > 0) || !std::isfinite(timeout)) timeout = kDefaultRequestTimeout;
        long ms = static_cast<long>(std::clamp(std::llround(timeout * 1000.0), 1LL, 86400000LL));
        curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, ms);
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &onBody);
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, &task);
        curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &onHeader);
        curl_easy_setopt(easy, CURLOPT_HEADERDATA, &task);

        const std::string method = req.method.empty() ? std::string("GET") : upper(req.method);
        if (method == "GET") {
            curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
        } else if (method == "HEAD") {
            curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
        } else {
            if (method == "POST" || !req.body.empty()) {
                curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                                 static_cast<curl_off_t>(req.body.size()));
                curl_easy_setopt(easy, CURLOPT_POSTFIELDS, req.body.data());
            }
            if (method != "POST") curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
        }

        bool hasExpect = false;
        for (const auto& [name, value] : req.headers) {
            std::string line = value.empty() ? name + ";" : name + ": " + value;
            task.headerList = curl_slist_append(task.headerList, line.c_str());
            if (upper(name) == "EXPECT") hasExpect = true;
        }
        // Without this libcurl waits for "100 Continue" before sending bodies over 1 KB, a
        // round trip (or a one-second stall) that the phone platform never makes.
        if (!hasExpect) task.headerList = curl_slist_append(task.headerList, "Expect:");
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, task.headerList);
    }

    void collectFinished() {
        int left = 0;
        while (CURLMsg* msg = curl_multi_info_read(multi_, &left)) {
            if (msg->msg != CURLMSG_DONE) continue;
            auto it = active_.find(msg->easy_handle);
            if (it == active_.end()) continue;
            std::shared_ptr<CurlTask> task = it->second;
            const CURLcode result = msg->data.result;
            if (result == CURLE_OK) {
                long status = 0;
                curl_easy_getinfo(task->easy, CURLINFO_RESPONSE_CODE, &status);
                char* effective = nullptr;
                curl_easy_getinfo(task->easy, CURLINFO_EFFECTIVE_URL, &effective);
                task->response.statusCode = status;
                task->response.url = effective ? effective : task->request_.url;
                finishWithSuccess(task);
            } else if (result == CURLE_PEER_FAILED_VERIFICATION &&
                       certificateOutOfDate(task->easy)) {
                finishWithError(task, URLError::kServerCertificateHasBadDate);
            } else {
                finishWithError(task,
                                urlErrorCodeForCurlCode(result, task->tooLarge, task->writeFailed));
            }
        }
    }

    // Easy handles are kept for reuse: setting one up from scratch costs a noticeable share
    // of a loopback exchange. Connections live in the multi handle either way.
    CURL* takeHandle() {
        if (idleHandles_.empty()) return curl_easy_init();
        CURL* easy = idleHandles_.back();
        idleHandles_.pop_back();
        curl_easy_reset(easy);
        return easy;
    }

    void release(CurlTask& task) {
        if (task.easy) {
            curl_multi_remove_handle(multi_, task.easy);
            active_.erase(task.easy);
            if (idleHandles_.size() < kMaxIdleHandles) {
                idleHandles_.push_back(task.easy);
            } else {
                curl_easy_cleanup(task.easy);
            }
            task.easy = nullptr;
        }
        if (task.headerList) {
            curl_slist_free_all(task.headerList);
            task.headerList = nullptr;
        }
        if (task.file) {
            std::fclose(task.file);
            task.file = nullptr;
        }
        std::lock_guard lock(mutex_);
        known_.erase(task.id_);
    }

    void finishWithSuccess(const std::shared_ptr<CurlTask>& task) {
        if (task->finished.exchange(true)) return;
        bool fileOk = true;
        if (task->file) fileOk = std::fflush(task->file) == 0;
        release(*task);
        if (!fileOk) {
            deliverError(*task, URLError::kCannotWriteToFile);
            return;
        }
        if (task->kind_ == TaskKind::Data) {
            auto done = std::move(task->dataDone);
            task->dataDone = nullptr;
            if (done) done(std::move(task->body), std::move(task->response), std::nullopt);
        } else {
            auto done = std::move(task->downloadDone);
            task->downloadDone = nullptr;
            if (done) done(task->filePath, std::move(task->response), std::nullopt);
            // The file belongs to the completion only while it runs; what it did not move
            // away is removed so temporary files never pile up.
            ::unlink(task->filePath.c_str());
        }
    }

    void finishWithError(const std::shared_ptr<CurlTask>& task, int64_t code) {
        if (task->finished.exchange(true)) return;
        release(*task);
        deliverError(*task, code);
    }

    void deliverError(CurlTask& task, int64_t code) {
        if (!task.filePath.empty()) ::unlink(task.filePath.c_str());
        Error error = makeURLError(code);
        if (task.kind_ == TaskKind::Data) {
            auto done = std::move(task.dataDone);
            task.dataDone = nullptr;
            if (done) done(std::nullopt, std::nullopt, std::move(error));
        } else {
            auto done = std::move(task.downloadDone);
            task.downloadDone = nullptr;
            if (done) done(std::nullopt, std::nullopt, std::move(error));
        }
    }

    static constexpr size_t kMaxIdleHandles = 8;

    const HttpSessionConfiguration config_;
    CURLM* multi_ = nullptr;
    std::vector<CURL*> idleHandles_;  // session thread only
    std::mutex mutex_;
    std::vector<Op> ops_;
    bool quit_ = false;
    bool invalidated_ = false;
    std::unordered_map<uint64_t, std::weak_ptr<CurlTask>> known_;
    std::unordered_map<CURL*, std::shared_ptr<CurlTask>> active_;  // session thread only
};

void CurlTask::resume() {
    if (resumed.exchange(true) || finished) return;
    if (auto core = core_.lock()) core->submit({Op::Start, shared_from_this()});
}

void CurlTask::cancel() {
    if (finished) return;
    if (auto core = core_.lock()) core->submit({Op::Cancel, shared_from_this()});
}

class CurlHttpSession final : public platform::HttpSession {
  public:
    explicit CurlHttpSession(const HttpSessionConfiguration& config)
        : core_(std::make_shared<Core>(config)) {
        thread_ = std::thread([core = core_] { core->loop(); });
    }

    ~CurlHttpSession() override {
        core_->quit();
        // Released from inside one of its own completions: the thread finishes on its own
        // and keeps the shared state alive until then.
        if (thread_.get_id() == std::this_thread::get_id()) {
            thread_.detach();
        } else {
            thread_.join();
        }
    }

    std::shared_ptr<platform::HttpTask> dataTask(HttpRequest request,
                                                 DataTaskCompletion completion) override {
        auto task =
            std::make_shared<CurlTask>(++nextId_, std::move(request), TaskKind::Data, core_);
        task->dataDone = std::move(completion);
        core_->registerTask(task);
        return task;
    }

    std::shared_ptr<platform::HttpTask> downloadTask(HttpRequest request,
                                                     DownloadTaskCompletion completion) override {
        auto task =
            std::make_shared<CurlTask>(++nextId_, std::move(request), TaskKind::Download, core_);
        task->downloadDone = std::move(completion);
        core_->registerTask(task);
        return task;
    }

    void invalidateAndCancel() override { core_->invalidate(); }

  private:
    std::shared_ptr<Core> core_;
    std::thread thread_;
    std::atomic<uint64_t> nextId_{0};
};

}  // namespace

CurlHttpSessionFactory::CurlHttpSessionFactory(std::string caBundlePath)
    : caBundlePath_(std::move(caBundlePath)) {}

std::shared_ptr<platform::HttpSession> CurlHttpSessionFactory::createSession(
    const HttpSessionConfiguration& config) {
    if (config.caBundlePath.empty() && !caBundlePath_.empty()) {
        HttpSessionConfiguration withBundle = config;
        withBundle.caBundlePath = caBundlePath_;
        return std::make_shared<CurlHttpSession>(withBundle);
    }
    return std::make_shared<CurlHttpSession>(config);
}

}  // namespace pelora::desktop
