#include "pelora/platform/UrlOpener.h"

#include <cctype>

namespace pelora::platform {

namespace {

bool isHex(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

bool isWellFormedURL(std::string_view text) {
    if (text.empty()) return false;
    int hashes = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c <= 0x20 || c >= 0x7f) return false;
        switch (c) {
            case '"':
            case '<':
            case '>':
            case '\\':
            case '^':
            case '`':
            case '{':
            case '|':
            case '}':
                return false;
            case '#':
                if (++hashes > 1) return false;
                break;
            case '%':
                if (i + 2 >= text.size()) return false;
                if (!isHex(text[i + 1]) || !isHex(text[i + 2])) return false;
                break;
            default:
                break;
        }
    }
    return true;
}

std::string urlScheme(std::string_view url) {
    size_t colon = url.find(':');
    if (colon == std::string_view::npos || colon == 0) return {};
    std::string scheme;
    for (size_t i = 0; i < colon; ++i) {
        unsigned char c = static_cast<unsigned char>(url[i]);
        bool ok =
            std::isalpha(c) || (i > 0 && (std::isdigit(c) || c == '+' || c == '-' || c == '.'));
        if (!ok) return {};
        scheme += static_cast<char>(std::tolower(c));
    }
    return scheme;
}

bool isOpenableURL(std::string_view url, UrlOpenPurpose purpose) {
    if (!isWellFormedURL(url)) return false;
    std::string scheme = urlScheme(url);
    if (scheme.empty()) return false;
    // Both kinds go to the system, which hands them to the browser or to whichever app owns
    // the scheme (an app-store link, a custom scheme); only the local ones never leave.
    (void)purpose;
    return scheme != "file" && scheme != "data" && scheme != "javascript";
}

bool isWebURL(std::string_view url) {
    if (!isWellFormedURL(url)) return false;
    std::string scheme = urlScheme(url);
    return scheme == "http" || scheme == "https";
}

}  // namespace pelora::platform
