#include "reward/PeloraAdCache.h"

#include <utility>

#include "core/PeloraNetwork.h"
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

bool keptInFileURL(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
        case '-':
        case '.':
        case '_':
        case '~':
        case '/':
        case '!':
        case '$':
        case '&':
        case '\'':
        case '(':
        case ')':
        case '*':
        case '+':
        case ',':
        case ';':
        case '=':
        case ':':
        case '@':
            return true;
        default:
            return false;
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string pl_fileURLWithPath(const std::string& path) {
    static const char* kHex = "0123456789ABCDEF";
    std::string url = "file://";
    url.reserve(url.size() + path.size());
    for (unsigned char c : path) {
        if (keptInFileURL(c)) {
            url.push_back(static_cast<char>(c));
        } else {
            url.push_back('%');
            url.push_back(kHex[c >> 4]);
            url.push_back(kHex[c & 15]);
        }
    }
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
    std::string path;
    path.reserve(rest.size());
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == '?' || rest[i] == '#') break;
        if (rest[i] == '%' && i + 2 < rest.size() && hexValue(rest[i + 1]) >= 0 &&
            hexValue(rest[i + 2]) >= 0) {
            path.push_back(static_cast<char>(hexValue(rest[i + 1]) * 16 + hexValue(rest[i + 2])));
            i += 2;
        } else {
            path.push_back(rest[i]);
        }
    }
    return path;
}
