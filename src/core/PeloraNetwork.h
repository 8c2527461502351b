#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "core/PeloraApiAdSchema.h"
#include "pelora/platform/Error.h"
#include "pelora/platform/Http.h"

struct PeloraUrlQuery;
struct PeloraReqBody;
struct PeloraRespObject;
struct PeloraRespData;

// Changes the request about to be sent (URL, headers, time-out...). Runs once, synchronously,
// on the caller's thread, before the task exists.
using PeloraRequestModifier = std::function<void(pelora::platform::HttpRequest&)>;

// One HTTP session shared by every exchange of one purpose, so connections are pooled.
class PeloraCoreSessionManager {
    struct PrivateTag {};

  public:
    PeloraCoreSessionManager(PrivateTag, std::shared_ptr<pelora::platform::HttpSession> session)
        : session_(std::move(session)) {}

    // The platform's default session configuration.
    static std::shared_ptr<PeloraCoreSessionManager> init();
    static std::shared_ptr<PeloraCoreSessionManager> initWithConfig(
        const pelora::platform::HttpSessionConfiguration& config);

    // Tasks come back suspended; the caller resumes them.
    std::shared_ptr<pelora::platform::HttpTask> dataTaskWithRequest(
        pelora::platform::HttpRequest request, pelora::platform::DataTaskCompletion completion);
    std::shared_ptr<pelora::platform::HttpTask> downloadTaskWithRequest(
        pelora::platform::HttpRequest request, pelora::platform::DownloadTaskCompletion completion);

    std::shared_ptr<pelora::platform::HttpSession> session() const { return session_; }
    void setSession(std::shared_ptr<pelora::platform::HttpSession> session) {
        session_ = std::move(session);
    }

  private:
    std::shared_ptr<pelora::platform::HttpSession> session_;
};

// Every network exchange of the SDK. Each completion runs on the main run loop, posted
// asynchronously (never from inside the call that started the exchange).
class PeloraNetwork {
  public:
    PeloraNetwork() = delete;

    // (code, message, payload): 0 with the payload when the answer had "data"; -1 with
    // "response error" for a non-HTTP answer or no body; -1 without message when the body had
    // no "data"; the platform's error code and description when the task failed.
    using AdFetchCompletion = std::function<void(int64_t code, std::optional<std::string> msg,
                                                 std::shared_ptr<PeloraRespObject> resp)>;
    // (code, message, raw body): 0 for 2xx, otherwise the status; "sdk: upload error" with the
    // platform's code when the task failed.
    using ReportCompletion = std::function<void(int64_t code, std::optional<std::string> msg,
                                                std::optional<std::string> resp)>;
    // (file path, response, error).
    using DownloadCompletion = std::function<void(std::optional<std::string> location,
                                                  std::optional<pelora::platform::HttpResponse>,
                                                  std::optional<pelora::platform::Error>)>;

    // The ad fetch: POST of the body as JSON with the query appended to the URL; 3 s time-out
    // unless the modifier changes it.
    static void post(const std::optional<std::string>& url, std::shared_ptr<PeloraUrlQuery> query,
                     std::shared_ptr<PeloraReqBody> body, PeloraRequestModifier modifier,
                     AdFetchCompletion complete);
    // The request the ad fetch sends, modifier applied; `post` sends exactly this. Tools use it
    // to show a request without sending it.
    static pelora::platform::HttpRequest adFetchRequest(const std::optional<std::string>& url,
                                                        const PeloraUrlQuery* query,
                                                        const PeloraReqBody* body,
                                                        const PeloraRequestModifier& modifier);
    // Report GET; does nothing at all when the URL is absent.
    static void get(const std::optional<std::string>& url, std::shared_ptr<PeloraUrlQuery> query,
                    PeloraRequestModifier modifier, ReportCompletion complete);
    // Report POST of raw bytes (no content type unless the modifier sets one); does nothing at
    // all when the URL is absent.
    static void post(const std::optional<std::string>& url, std::optional<std::string> body,
                     PeloraRequestModifier modifier, ReportCompletion complete);
    // Starts a data task on apiSession(); the result goes through onUploadResp(). `prepare`,
    // when given, runs on the session's thread with the body of a successful (2xx, non-empty)
    // answer before the completion is posted: work on the body (decoding an image) then never
    // happens on the main run loop.
    using BodyPreparation = std::function<void(const std::string& body)>;
    static std::shared_ptr<pelora::platform::HttpTask> dataTaskWithRequest(
        pelora::platform::HttpRequest request, ReportCompletion complete,
        BodyPreparation prepare = nullptr);
    // The result mapping shared by reports and raw data tasks (called on the main run loop).
    static void onUploadResp(std::optional<std::string> data,
                             std::optional<pelora::platform::HttpResponse> httpResponse,
                             std::optional<pelora::platform::Error> error,
                             const ReportCompletion& complete);
    // Downloads into `destination` (a directory path) or, when absent, into the caches
    // subdirectory "/Pelora", named by the last path component of the URL. A file of the same
    // name is replaced.
    static std::shared_ptr<pelora::platform::HttpTask> downloadTaskWithUrl(
        const std::string& url, PeloraRequestModifier modifier,
        std::optional<std::string> destination, DownloadCompletion handler);

    // "key=value" pairs joined by "&", both sides percent-escaped; a null value gives the bare
    // key. Pairs come in the object's own order, which callers must not rely on.
    static std::string urlEncodeQuryWithDictionary(const nlohmann::json& dictionary);

    static std::shared_ptr<PeloraCoreSessionManager> apiSession();
    static std::shared_ptr<PeloraCoreSessionManager> fileSession();

    // The main-thread part of an ad-fetch completion: parse and map the answer, then stamp the
    // request's slot size onto every ad. Null when the bytes give no envelope.
    static std::shared_ptr<PeloraRespData> mapAdFetchAnswer(std::string_view body, int64_t slotW,
                                                            int64_t slotH);

    // Cancels every exchange of both shared sessions and releases them, joining their threads;
    // the next exchange makes new ones on the services installed then. Part of the SDK's
    // shutdown; on the main thread.
    static void shutdownSessions();

    // Appends an encoded query to a URL text: "&" when it already has a query, "?" otherwise.
    static std::string appendQuery(const std::string& url, const std::string& query);
};

// Percent-escapes text for a URL query: letters, digits, "-._~/?" stay, every other byte
// becomes "%XX" (upper-case hex).
std::string pl_AFPercentEscapedStringFromString(const std::string& text);
