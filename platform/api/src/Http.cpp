#include "pelora/platform/Http.h"

#include <algorithm>
#include <cctype>

namespace pelora::platform {
namespace {

bool equalsIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

std::optional<std::string> findHeader(const HeaderList& headers, const std::string& name) {
    for (const auto& [key, value] : headers) {
        if (equalsIgnoringCase(key, name)) return value;
    }
    return std::nullopt;
}

}  // namespace

void HttpRequest::setValue(const std::string& value, const std::string& header) {
    std::erase_if(headers, [&](const auto& h) { return equalsIgnoringCase(h.first, header); });
    headers.emplace_back(header, value);
}

void HttpRequest::addValue(const std::string& value, const std::string& header) {
    for (auto& [key, existing] : headers) {
        if (equalsIgnoringCase(key, header)) {
            existing += "," + value;
            return;
        }
    }
    headers.emplace_back(header, value);
}

std::optional<std::string> HttpRequest::valueForHeader(const std::string& header) const {
    return findHeader(headers, header);
}

std::optional<std::string> HttpResponse::valueForHeader(const std::string& header) const {
    return findHeader(headers, header);
}

bool isFetchableURL(const std::string& url) {
    auto colon = url.find(':');
    if (colon == std::string::npos) return false;
    std::string scheme = url.substr(0, colon);
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return (scheme == "http" || scheme == "https") && url.compare(colon, 3, "://") == 0;
}

namespace {

bool isTokenChar(unsigned char c) {
    if (std::isalnum(c)) return true;
    return std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(c)) != std::string_view::npos;
}

}  // namespace

int64_t requestProblem(const HttpRequest& request) {
    if (!isFetchableURL(request.url)) return URLError::kUnsupportedURL;
    for (unsigned char c : request.url)
        if (c <= 0x20 || c == 0x7f) return URLError::kBadURL;
    for (const auto& [name, value] : request.headers) {
        if (name.empty()) return URLError::kBadURL;
        for (unsigned char c : name)
            if (!isTokenChar(c)) return URLError::kBadURL;
        for (unsigned char c : value)
            if (c == '\r' || c == '\n' || c == '\0') return URLError::kBadURL;
    }
    return 0;
}

}  // namespace pelora::platform
