#pragma once

#include <string>
#include <string_view>

#include "track/PeloraTrackReplace.h"

// The plain way to rewrite a template: 24 replace-all passes in table order. Tests and the
// benchmark hold PeloraTrackReplace::replacedString(text) to the same output.
inline std::string replacedStringByPasses(const PeloraTrackReplace& r, std::string_view text) {
    std::string out(text);
    for (int row = 0; row < PeloraTrackReplace::kMacroCount; ++row) {
        const auto token = PeloraTrackReplace::kTokens[row];
        if (row == PeloraTrackReplace::kClickIdRow) {
            out = PeloraTrackReplace::replacedString(out, token, r.__CLICK_ID__, "-1", false);
        } else {
            const bool touch = row >= 4 && row <= 7;
            out = PeloraTrackReplace::replacedString(out, token, r.numericValue(row),
                                                     touch ? -999 : -1, touch);
        }
    }
    return out;
}
