// Answer bytes -> records -> JSON -> records. The byte reader and the dictionary reader must
// make the same records of the same text; the records must write back to JSON that maps onto
// the same records again, through either reader; and the direct writer must give exactly the
// bytes of dumping the dictionary.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "core/PeloraApiAdSchema.h"
#include "core/PeloraNetwork.h"
#include "support/PeloraYYModel.h"

namespace {

// The envelope written back, checked against the dictionary writer.
std::string writtenBack(const PeloraRespData& envelope) {
    const std::optional<std::string> bytes = plyy_modelToJSONData(envelope);
    const nlohmann::json dict = plyy_modelToJSONObject(envelope);
    FUZZ_CHECK(bytes.has_value() == !dict.is_null(), "the two writers disagree on writing at all");
    if (!bytes) return {};
    FUZZ_CHECK(*bytes == plyyImpl_dumpJSON(dict), "direct bytes differ from the dictionary's dump");
    return *bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto envelope = PeloraNetwork::mapAdFetchAnswer(input, 320, 480);
    if (!envelope) return 0;
    if (envelope->rData && envelope->rData->ads) {
        for (const auto& ad : *envelope->rData->ads) {
            if (!ad) continue;
            FUZZ_CHECK(ad->reqSlotW == 320 && ad->reqSlotH == 480, "slot size not stamped");
        }
    }

    const std::string first = writtenBack(*envelope);

    // The same text as a dictionary maps onto the same records: both readers share their
    // coercion rules.
    std::string_view text = input;
    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
    const auto original = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (original.is_object()) {
        const auto fromDictionary = plyy_modelWithDictionary<PeloraRespData>(original);
        FUZZ_CHECK(fromDictionary != nullptr, "the dictionary reader refuses what bytes map");
        FUZZ_CHECK(writtenBack(*fromDictionary) == first, "byte and dictionary readers differ");
    }
    FUZZ_CHECK(!first.empty(), "a mapped envelope writes nothing");
    std::string why;
    FUZZ_CHECK(plyy_isValidJSON(first, &why), "written JSON does not parse");

    const auto again = plyy_modelWithJSON<PeloraRespData>(first, &why);
    FUZZ_CHECK(again != nullptr, "written JSON does not map again");
    FUZZ_CHECK(writtenBack(*again) == first, "bytes -> records -> JSON is not stable");

    const auto dict = nlohmann::json::parse(first, nullptr, /*allow_exceptions=*/false);
    FUZZ_CHECK(dict.is_object(), "written JSON is not an object to the dictionary parser");
    const auto viaDictionary = plyy_modelWithDictionary<PeloraRespData>(dict, &why);
    FUZZ_CHECK(viaDictionary != nullptr, "written JSON does not map as a dictionary");
    FUZZ_CHECK(writtenBack(*viaDictionary) == first, "dictionary reader maps differently");
    return 0;
}
