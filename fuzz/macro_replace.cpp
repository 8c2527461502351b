// Tracking-template rewriting, differential: the single-scan rewriting must give exactly what
// the 24 replace-all passes give, for every template and every set of macro values. The input
// chooses each row's value (unset, small, any 64-bit value narrowed to the field, or one that
// narrows to -1), then the click id's text, then the template.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.h"
#include "track/PeloraTrackReplace.h"
#include "track/PeloraTrackReplaceReference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pelora_fuzz::Reader in(data, size);
    PeloraTrackReplace r;
    for (int row = 0; row < PeloraTrackReplace::kMacroCount; ++row) {
        if (row == PeloraTrackReplace::kClickIdRow) continue;
        const uint8_t choice = in.byte();
        switch (choice % 4) {
            case 0:
                break;  // the field's initial value
            case 1:
                r.setNumericValue(row, static_cast<int64_t>(choice >> 2) - 8);
                break;
            case 2:
                r.setNumericValue(row, static_cast<int64_t>(in.u64()));
                break;
            case 3:
                // Values whose low bits are all ones read -1 in the narrow fields.
                r.setNumericValue(row,
                                  static_cast<int64_t>(0xFFFFFFFFFFFFFFFFULL >> (choice >> 2)));
                break;
        }
    }
    const uint8_t clickChoice = in.byte();
    if (clickChoice % 3 == 1) r.__CLICK_ID__ = in.text();
    if (clickChoice % 3 == 2) r.__CLICK_ID__ = "";
    const std::string text = in.rest();

    const std::string fast = r.replacedString(text);
    const std::string reference = replacedStringByPasses(r, text);
    FUZZ_CHECK(fast == reference, "single-scan rewriting differs from the 24 passes");
    return 0;
}
