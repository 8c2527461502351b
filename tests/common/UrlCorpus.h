#pragma once

// The WHATWG URL test data in tests/data/wpt-url, as a list of URL texts, and a reading of a
// URL's scheme the way a browser reads it (leading and trailing spaces and control characters
// dropped, tabs and line breaks removed anywhere, case ignored), independent of the SDK's own
// rules, so a URL that only looks harmless to a strict reader is still caught.

#include <cctype>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace pelora::testing {

namespace url_corpus_detail {
inline nlohmann::json readJson(const std::string& name) {
    std::ifstream in(std::string(PELORA_SOURCE_DIR) + "/tests/data/wpt-url/" + name);
    return nlohmann::json::parse(in);
}

}  // namespace url_corpus_detail

// Every distinct URL text of the corpus: inputs, bases and expected results of the parsing
// cases, the setters' URLs, and the host names of the IDNA cases as web URLs.
inline std::vector<std::string> corpusUrls() {
    std::set<std::string> urls;
    auto add = [&](const nlohmann::json& v) {
        if (v.is_string()) urls.insert(v.get<std::string>());
    };
    const nlohmann::json parsing = url_corpus_detail::readJson("urltestdata.json");
    const nlohmann::json setters = url_corpus_detail::readJson("setters_tests.json");
    const nlohmann::json idna = url_corpus_detail::readJson("toascii.json");
    for (const auto& c : parsing) {
        if (!c.is_object()) continue;
        add(c.value("input", nlohmann::json()));
        add(c.value("base", nlohmann::json()));
        add(c.value("href", nlohmann::json()));
    }
    for (const auto& [setter, cases] : setters.items()) {
        if (!cases.is_array()) continue;
        for (const auto& c : cases) {
            if (!c.is_object()) continue;
            add(c.value("href", nlohmann::json()));
            if (c.contains("expected") && c["expected"].is_object())
                add(c["expected"].value("href", nlohmann::json()));
        }
    }
    for (const auto& c : idna) {
        if (c.is_object() && c.contains("input"))
            urls.insert("https://" + c["input"].get<std::string>() + "/x?y");
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
