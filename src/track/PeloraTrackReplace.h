#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The macro values of one tracking firing and the rewriting of tracking templates. A fresh
// record is made per event and dropped once its requests are issued.
//
// A numeric value of -1 (after widening to 64 bits) means "unset": the token stays in the
// URL so the server can tell an unknown value from a real zero. Only the four touch macros
// fall back (to -999). The text "-1" is unset for the click id. Some video fields start at a
// value other than -1 and are therefore always substituted.
class PeloraTrackReplace {
  public:
    // The field names are the wire tokens themselves, so a field and its token cannot drift.
    int32_t __REQ_WIDTH__ = -1;
    int32_t __REQ_HEIGHT__ = -1;
    int32_t __WIDTH__ = -1;
    int32_t __HEIGHT__ = -1;
    int32_t __DOWN_X__ = -1;
    int32_t __DOWN_Y__ = -1;
    int32_t __UP_X__ = -1;
    int32_t __UP_Y__ = -1;
    int64_t __TS__ = -1;
    int32_t __ACTION_ID__ = -1;
    std::string __CLICK_ID__ = "-1";
    int64_t __EVENT_TIME_START__ = -1;
    int64_t __EVENT_TIME_END__ = -1;
    int32_t __OFFSET_X__ = -1;
    int32_t __OFFSET_Y__ = -1;
    int32_t __VIDEO_TIME__ = -1;
    int8_t __VIDEO_BEHAVIOR__ = 0;
    int32_t __VIDEO_START_TIME__ = 0;
    int32_t __VIDEO_END_TIME__ = -1;
    int8_t __VIDEO_PLAY_FIRSR_FRAME__ = 1;
    int8_t __VIDEO_PLAY_LAST_FRAME__ = 0;
    int16_t __VIDEO_SCENE__ = -1;
    int8_t __VIDEO_PLAY_TYPE__ = 1;
    int8_t __VIDEO_STATUS__ = 0;

    PeloraTrackReplace() = default;

    // The template with every macro applied in table order, each step working on the result
    // of the previous one (a click id that itself holds later tokens has them rewritten too).
    // Computed in one scan per stage rather than 24 passes; the output is the same.
    std::string replacedString(std::string_view text) const;

    // One numeric macro: every occurrence of `target` becomes `value` in decimal, or
    // `defalutV` when value is -1 and `useDefault` is set; otherwise the text is unchanged.
    static std::string replacedString(std::string_view text, std::string_view target, int64_t value,
                                      int64_t defalutV, bool useDefault);
    // One text macro: "-1" counts as unset.
    static std::string replacedString(std::string_view text, std::string_view target,
                                      const std::string& str_value, const std::string& defalutV,
                                      bool useDefault);

    // The tokens in table order.
    static constexpr int kMacroCount = 24;
    static const std::string_view kTokens[kMacroCount];
    // Row (0-based, table order) of the click id, the only text macro.
    static constexpr int kClickIdRow = 10;

    // Numeric value of a row widened to 64 bits (not meaningful for the click id row).
    int64_t numericValue(int row) const;
    // Sets a numeric row, narrowing to the field's width as a plain conversion would.
    void setNumericValue(int row, int64_t value);
    // Row of a token, or -1.
    static int rowOfToken(std::string_view token);
};
