#pragma once

// The WHATWG URL test data in tests/data/wpt-url, as a list of URL texts, and a reading of a
// URL's scheme the way a browser reads it (leading and trailing spaces and control characters
// dropped, tabs and line breaks removed anywhere, case ignored), independent of the SDK's own
// rules, so a URL that only looks harmless to a strict reader is still caught.

#include <cctype>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace pelora::testing {

// Every distinct URL text of the corpus: the inputs, bases and results of the parsing and
// setter cases, at any depth, and the host names of the IDNA cases as web URLs.
inline std::vector<std::string> corpusUrls() {
    std::set<std::string> urls;
    std::function<void(const nlohmann::json&, bool)> walk = [&](const nlohmann::json& v,
                                                                bool hosts) {
        for (const auto& [key, e] : v.items()) {
            if (e.is_structured()) {
                walk(e, hosts);
            } else if (e.is_string() && (key == "input" || key == "base" || key == "href")) {
                urls.insert(hosts ? "https://" + e.get<std::string>() + "/x?y"
                                  : e.get<std::string>());
            }
        }
    };
    for (const char* name : {"urltestdata.json", "setters_tests.json", "toascii.json"}) {
        std::ifstream in(std::string(PELORA_SOURCE_DIR) + "/tests/data/wpt-url/" + name);
        walk(nlohmann::json::parse(in), name == std::string("toascii.json"));
    }
    return {urls.begin(), urls.end()};
}

inline std::string browserScheme(const std::string& url) {
    size_t begin = 0, end = url.size();
    while (begin < end && static_cast<unsigned char>(url[begin]) <= 0x20) ++begin;
    while (end > begin && static_cast<unsigned char>(url[end - 1]) <= 0x20) --end;
    std::string scheme;
    for (size_t i = begin; i < end; ++i) {
        const char c = url[i];
        if (c == '\t' || c == '\n' || c == '\r') continue;
        if (c == ':') return scheme;
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.')
            return {};
        scheme += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return {};
}

}  // namespace pelora::testing
