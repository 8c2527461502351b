#include "reward/PeloraAdCache.h"

#include <algorithm>
#include <utility>

#include "core/PeloraNetwork.h"
#include "support/PeloraPercent.h"
#include "support/PeloraTool.h"

std::map<std::string, std::string>& plFileCaches() {
    // Lives until the process ends, like the downloads it remembers.
    static auto* caches = new std::map<std::string, std::string>();
    return *caches;
}

void PeloraAdCache::storeFilePath(const std::optional<std::string>& path,
                                  const std::optional<std::string>& url) {
    if (PeloraTool::stringIsEmpty(url)) return;
    if (path) {
        caches()[*url] = *path;
    } else {
        caches().erase(*url);
    }
}

bool PeloraAdCache::isDownloadUrl(const std::optional<std::string>& url) const {
    auto path = filePathForRequestUrl(url);
    return !PeloraTool::stringIsEmpty(path);
}

std::optional<std::string> PeloraAdCache::filePathForRequestUrl(
    const std::optional<std::string>& url) const {
    if (PeloraTool::stringIsEmpty(url)) return std::nullopt;
    auto it = caches().find(*url);
    if (it == caches().end()) return std::nullopt;
    return it->second;
}

std::shared_ptr<pelora::platform::HttpTask> PeloraFileDownloader::downloadTaskWithUrl(
    const std::string& url, Success success, Failure failure) {
    return PeloraNetwork::downloadTaskWithUrl(
        url, nullptr, std::nullopt,
        [success = std::move(success), failure = std::move(failure)](
            std::optional<std::string> location, std::optional<pelora::platform::HttpResponse>,
            std::optional<pelora::platform::Error> error) {
            if (location && !error) {
                if (success) success(pl_fileURLWithPath(*location));
                return;
            }
            int64_t code = error ? error->code : 0;
            if (code == 0) code = -1;
            std::optional<std::string> message;
            if (error) message = error->description;
            if (failure) failure(code, std::move(message));
        });
}

namespace {

// Everything a path may hold in a URL stays; "?", "#", "%", blanks, controls and non-ASCII
// bytes are escaped.
constexpr PeloraPercentEncoder kFileURLEncoder("-._~/!$&'()*+,;=:@");

}  // namespace

std::string pl_fileURLWithPath(const std::string& path) {
    std::string url = "file://";
    kFileURLEncoder.append(url, path);
    return url;
}

std::optional<std::string> pl_pathOfFileURL(const std::string& url) {
    static const std::string kPrefix = "file://";
    if (url.size() < kPrefix.size()) return std::nullopt;
    for (size_t i = 0; i < kPrefix.size(); ++i) {
        char c = url[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != kPrefix[i]) return std::nullopt;
    }
    std::string rest = url.substr(kPrefix.size());
    // "file://localhost/path" names the same file as "file:///path".
    if (rest.rfind("localhost/", 0) == 0) rest.erase(0, 9);
    if (rest.empty() || rest[0] != '/') return std::nullopt;
    // The path ends where a query or a fragment begins; an escape that is not one stays text.
    rest.resize(std::min(rest.size(), rest.find_first_of("?#")));
    return pl_percentDecode(rest, PeloraBadEscape::KeepAsText);
}
