#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pelora/platform/Error.h"
#include "pelora/platform/Export.h"

namespace pelora::platform {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

enum class CachePolicy {
    UseProtocolCachePolicy = 0,
    ReloadIgnoringLocalCacheData = 1,
    ReturnCacheDataElseLoad = 2,
    ReturnCacheDataDontLoad = 3,
};

// A mutable HTTP request, the shape the SDK's request modifiers change before sending.
struct PELORA_EXPORT HttpRequest {
    std::string url;
    std::string method = "GET";
    HeaderList headers;
    std::string body;
    double timeoutInterval = 60.0;  // seconds
    CachePolicy cachePolicy = CachePolicy::UseProtocolCachePolicy;
    // A tighter bound on this request's body than its session's (the smaller one applies).
    std::optional<uint64_t> maxBodyBytes;

    // Header names compare case-insensitively; setting replaces an existing value.
    void setValue(const std::string& value, const std::string& header);
    void addValue(const std::string& value, const std::string& header);
    std::optional<std::string> valueForHeader(const std::string& header) const;
};

struct PELORA_EXPORT HttpResponse {
    int64_t statusCode = 0;
    HeaderList headers;  // as received, in order
    std::string url;     // final URL after redirects
    std::optional<std::string> valueForHeader(const std::string& header) const;
};

// Completion of a data task: body bytes (absent on failure), response, error.
using DataTaskCompletion =
    std::function<void(std::optional<std::string> data, std::optional<HttpResponse> response,
                       std::optional<Error> error)>;
// Completion of a download task: path of the temporary file (absent on failure).
// The file is deleted when the completion returns unless the caller moved it away.
using DownloadTaskCompletion =
    std::function<void(std::optional<std::string> location, std::optional<HttpResponse> response,
                       std::optional<Error> error)>;

class PELORA_EXPORT HttpTask {
  public:
    virtual ~HttpTask() = default;
    // Start the task (tasks are created suspended). Resuming twice does nothing.
    virtual void resume() = 0;
    // Cancel; the completion then runs with URLError::kCancelled unless it already ran.
    virtual void cancel() = 0;
    virtual uint64_t taskIdentifier() const = 0;
    virtual const HttpRequest& originalRequest() const = 0;
};

struct PELORA_EXPORT HttpSessionConfiguration {
    // A data task's body is held in memory: one larger than this (counted after any content
    // decoding, so a small compressed body that inflates past it counts as large) is aborted
    // with URLError::kDataLengthExceedsMaximum.
    uint64_t maxBodyBytes = 64ull * 1024 * 1024;
    // The same bound for a download task's file.
    uint64_t maxDownloadBytes = 1024ull * 1024 * 1024;
    // Redirects followed before failing with URLError::kHTTPTooManyRedirects.
    int maxRedirects = 8;
    // Directory for download tasks' temporary files; empty means the system temp directory.
    std::string temporaryDirectory;
    // Extra CA bundle file to trust in addition to the system store (tests); verification of
    // certificates and host names is always on.
    std::string caBundlePath;
};

// One session: connections are pooled per session. Completions arrive on the session's own
// background thread; the SDK's transport moves them to the main run loop.
class PELORA_EXPORT HttpSession {
  public:
    virtual ~HttpSession() = default;
    virtual std::shared_ptr<HttpTask> dataTask(HttpRequest request,
                                               DataTaskCompletion completion) = 0;
    virtual std::shared_ptr<HttpTask> downloadTask(HttpRequest request,
                                                   DownloadTaskCompletion completion) = 0;
    // Cancel every task and stop the background thread. The destructor does the same.
    virtual void invalidateAndCancel() = 0;
};

class PELORA_EXPORT HttpSessionFactory {
  public:
    virtual ~HttpSessionFactory() = default;
    virtual std::shared_ptr<HttpSession> createSession(const HttpSessionConfiguration& config) = 0;
};

// True for the only schemes the SDK ever fetches: http and https (case-insensitive).
PELORA_EXPORT bool isFetchableURL(const std::string& url);

// Why a request must not be sent as it stands, as a URL error code, or 0 when it may:
//  - URLError::kUnsupportedURL for a scheme other than http and https;
//  - URLError::kBadURL for a URL holding a NUL, another control character or a space (a URL
//    carries them only percent-escaped: sent raw they would cut or change the request line),
//    or a header whose name is not an HTTP token or whose value holds CR, LF or NUL (which
//    would let a value from the network add headers of its own).
// Every backend checks this before anything reaches the network.
PELORA_EXPORT int64_t requestProblem(const HttpRequest& request);

}  // namespace pelora::platform
