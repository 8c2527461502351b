#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "track/PeloraTrackReplace.h"
#include "track/PeloraTrackReplaceReference.h"

namespace {

// Each case: the values set ("TOKEN=value", numbers narrowed to the token's field), the
// template and what it becomes (null: unchanged).
struct Case {
    const char* values;
    const char* text;
    const char* expected;
};

const Case kCases[] = {
    // A fresh record substitutes only the video fields that start set; -1 of the field's width
    // is unset and leaves the token as it is; zero and negative values are real.
    {"",
     "f=__VIDEO_PLAY_FIRSR_FRAME__&l=__VIDEO_PLAY_LAST_FRAME__&s=__VIDEO_STATUS__"
     "&st=__VIDEO_START_TIME__&b=__VIDEO_BEHAVIOR__&pt=__VIDEO_PLAY_TYPE__",
     "f=1&l=0&s=0&st=0&b=0&pt=1"},
    {"",
     "t=__VIDEO_TIME__&e=__VIDEO_END_TIME__&sc=__VIDEO_SCENE__&ts=__TS__&w=__WIDTH__"
     "&rw=__REQ_WIDTH__&a=__ACTION_ID__&c=__CLICK_ID__&es=__EVENT_TIME_START__"
     "&ee=__EVENT_TIME_END__&ox=__OFFSET_X__&oy=__OFFSET_Y__",
     nullptr},
    {"__VIDEO_SCENE__=65535", "sc=__VIDEO_SCENE__", nullptr},
    {"__VIDEO_SCENE__=3", "sc=__VIDEO_SCENE__", "sc=3"},
    {"__VIDEO_STATUS__=255", "s=__VIDEO_STATUS__", nullptr},
    {"__VIDEO_STATUS__=258", "s=__VIDEO_STATUS__", "s=2"},
    {"__WIDTH__=0 __TS__=1767225600123 __REQ_WIDTH__=-2", "__WIDTH__/__TS__/__REQ_WIDTH__",
     "0/1767225600123/-2"},
    {"__TS__=-1", "ts=__TS__", nullptr},
    // The touch macros fall back to -999 at every occurrence; the offsets have no fallback.
    {"", "a=__DOWN_X__&b=__DOWN_X__&c=__DOWN_Y__&d=__UP_X__&e=__UP_Y__",
     "a=-999&b=-999&c=-999&d=-999&e=-999"},
    {"__DOWN_X__=12", "a=__DOWN_X__&b=__DOWN_X__", "a=12&b=12"},
    {"__DOWN_X__=0", "a=__DOWN_X__&o=__OFFSET_X__", "a=0&o=__OFFSET_X__"},
    // The click id stays while it is "-1"; tokens inside it are rewritten by the rows after
    // its own, earlier ones stay, and it may complete a later token with the text around it.
    {"", "c=__CLICK_ID__", nullptr},
    {"__CLICK_ID__=abc%20d", "c=__CLICK_ID__&c2=__CLICK_ID__", "c=abc%20d&c2=abc%20d"},
    {"__CLICK_ID__=[__VIDEO_SCENE__|__TS__|__VIDEO_STATUS__] __VIDEO_SCENE__=3 __TS__=99",
     "ts=__TS__&c=__CLICK_ID__", "ts=99&c=[3|__TS__|0]"},
    {"__CLICK_ID__=__VIDEO_PLAY_TY", "x__CLICK_ID__PE__", "x1"},
    // Lower case and unknown tokens stay.
    {"__WIDTH__=320", "__width__&__Width__&__WIDTH_&_WIDTH__&__COLOR__&__WIDTH__",
     "__width__&__Width__&__WIDTH_&_WIDTH__&__COLOR__&320"},
    {"", "", ""},
    // Neighbouring tokens resolve like sequential passes: the earlier row consumes the shared
    // underscores, even when its token comes later in the text; an unset row leaves the later
    // token whole. Matches overlapping by one underscore count as overlapping.
    {"__REQ_WIDTH__=640 __EVENT_TIME_START__=5", "__REQ_WIDTH__EVENT_TIME_START__",
     "640EVENT_TIME_START__"},
    {"__EVENT_TIME_START__=5", "__REQ_WIDTH__EVENT_TIME_START__", "__REQ_WIDTH5"},
    {"__REQ_WIDTH__=640 __EVENT_TIME_START__=5", "__EVENT_TIME_START__REQ_WIDTH__",
     "__EVENT_TIME_START640"},
    {"__TS__=7", "__TS__TS__TS__", "7TS7"},
    {"__TS__=7", "__TS___TS__", "7_TS__"},
    {"__TS__=7 __WIDTH__=3", "__TS___WIDTH__", "__TS_3"}};

PeloraTrackReplace recordWith(const std::string& values) {
    PeloraTrackReplace r;
    std::istringstream in(values);
    for (std::string v; in >> v;) {
        const auto eq = v.find('=');
        if (v.compare(0, eq, "__CLICK_ID__") == 0) {
            r.__CLICK_ID__ = v.substr(eq + 1);
        } else {
            r.setNumericValue(PeloraTrackReplace::rowOfToken(v.substr(0, eq)),
                              std::stoll(v.substr(eq + 1)));
        }
    }
    return r;
}

// Each row also through the 24 replace-all passes the single scan stands for; the
// macro_replace fuzz target compares the two on any template and values.
TEST(TrackMacros, RewriteTheirTemplates) {
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.values) + " | " + c.text);
        const PeloraTrackReplace r = recordWith(c.values);
        const std::string expected = c.expected ? c.expected : c.text;
        EXPECT_EQ(r.replacedString(c.text), expected);
        EXPECT_EQ(replacedStringByPasses(r, c.text), expected);
    }
}

}  // namespace
