// formatUrl, the retry URL for a landing page that failed to open: the text before the first
// "?" is kept as it is, exactly one "?" follows, and the rest (every further "?" dropped)
// decodes back to what it was whenever it is UTF-8.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.h"
#include "support/PeloraTool.h"
#include "track/PeloraInterInteractHandle.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string url(reinterpret_cast<const char*>(data), size);
    const PeloraInterInteractHandle handle;
    const std::string out = handle.formatUrl(url);

    const size_t first = url.find('?');
    if (first == std::string::npos) {
        FUZZ_CHECK(out == url, "a URL without a query changed");
        return 0;
    }
    FUZZ_CHECK(out.compare(0, first + 1, url, 0, first + 1) == 0, "the part before ? changed");
    FUZZ_CHECK(std::count(out.begin(), out.end(), '?') == 1, "not exactly one ? in the result");

    std::string rest = url.substr(first + 1);
    rest.erase(std::remove(rest.begin(), rest.end(), '?'), rest.end());
    const auto decoded = PeloraTool::stringByURLDecode(out.substr(first + 1));
    FUZZ_CHECK(decoded.has_value() == pelora_fuzz::isUtf8(rest),
               "the query decodes exactly when it was UTF-8");
    if (decoded) FUZZ_CHECK(*decoded == rest, "the query does not decode back");
    // Nothing in the encoded query can start a fragment or a second query.
    FUZZ_CHECK(out.find('#', first) == std::string::npos, "a # left in the query");
    return 0;
}
