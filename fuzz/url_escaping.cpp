// Percent escaping of query texts and of the SDK's URL encoder and decoder. Whatever the input,
// escaped text holds only characters a query may carry, and decoding gives the text back
// wherever the text is UTF-8 (the decoders refuse anything else). A query built from a
// dictionary splits back into exactly its pairs.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "FuzzCheck.h"
#include "core/PeloraNetwork.h"
#include "support/PeloraTool.h"

namespace {

bool isUnreserved(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

// Every "%" starts an upper-case escape and every other character is printable ASCII outside
// the blank, the quote and the characters that would end or change a query value.
void checkEscaped(const std::string& out, const char* extraKept) {
    for (size_t i = 0; i < out.size(); ++i) {
        const char c = out[i];
        if (c == '%') {
            FUZZ_CHECK(i + 2 < out.size(), "escape cut short");
            FUZZ_CHECK(pelora_fuzz::isHexDigit(out[i + 1]) && pelora_fuzz::isHexDigit(out[i + 2]),
                       "escape without two hex digits");
            FUZZ_CHECK(!(out[i + 1] >= 'a' && out[i + 1] <= 'f') &&
                           !(out[i + 2] >= 'a' && out[i + 2] <= 'f'),
                       "escape in lower-case hex");
            i += 2;
            continue;
        }
        FUZZ_CHECK(isUnreserved(c) || std::string_view(extraKept).find(c) != std::string::npos,
                   "a character left unescaped that must be escaped");
    }
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t at = text.find(separator, start);
        parts.push_back(text.substr(start, at - start));
        if (at == std::string::npos) return parts;
        start = at + 1;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const bool utf8 = pelora_fuzz::isUtf8(text);

    // The query escaper of requests keeps only "-._~/?" and alphanumerics; the modern encoder
    // keeps the query delimiters too; the legacy one escapes them. Each decodes back.
    const std::tuple<std::string, const char*, bool> escaped[] = {
        {pl_AFPercentEscapedStringFromString(text), "/?", false},
        {PeloraTool::stringByURLEncode(text), "!$&'()*+,;=:@/?", false},
        {PeloraTool::stringByURLEncodeLegacy(text), "", true}};
    for (const auto& [out, kept, legacy] : escaped) {
        checkEscaped(out, kept);
        const auto back = PeloraTool::stringByURLDecode(out, legacy);
        FUZZ_CHECK(back.has_value() == utf8, "the decoder accepts exactly the UTF-8 texts");
        if (back) FUZZ_CHECK(*back == text, "escaping does not round-trip");
    }
    // Decoding the raw input never crashes; what it accepts is UTF-8.
    for (bool legacy : {false, true})
        if (auto decoded = PeloraTool::stringByURLDecode(text, legacy))
            FUZZ_CHECK(pelora_fuzz::isUtf8(*decoded), "the decoder gave text that is not UTF-8");

    // A dictionary of texts: lines alternate key and value (UTF-8 only, as JSON keys are).
    if (!utf8) return 0;
    const std::vector<std::string> lines = split(text, '\n');
    nlohmann::json dict = nlohmann::json::object();
    for (size_t i = 0; i + 1 < lines.size(); i += 2) dict[lines[i]] = lines[i + 1];
    const std::string encoded = PeloraNetwork::urlEncodeQuryWithDictionary(dict);
    if (dict.empty()) {
        FUZZ_CHECK(encoded.empty(), "an empty dictionary gives a query");
        return 0;
    }
    const std::vector<std::string> pairs = split(encoded, '&');
    FUZZ_CHECK(pairs.size() == dict.size(),
               "query has another number of pairs than the dictionary");
    nlohmann::json back = nlohmann::json::object();
    for (const std::string& pair : pairs) {
        const std::vector<std::string> sides = split(pair, '=');
        FUZZ_CHECK(sides.size() == 2, "a pair is not key=value");
        const auto key = PeloraTool::stringByURLDecode(sides[0]);
        const auto value = PeloraTool::stringByURLDecode(sides[1]);
        FUZZ_CHECK(key && value, "a pair does not decode");
        back[*key] = *value;
    }
    FUZZ_CHECK(back == dict, "query does not split back into the dictionary");
    return 0;
}
