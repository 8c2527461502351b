#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "track/PeloraTrackReplace.h"
#include "track/PeloraTrackReplaceReference.h"

namespace {

int row(const char* token) {
    return PeloraTrackReplace::rowOfToken(token);
}

}  // namespace

TEST(TrackMacroUnsetRule, FreshRecordSubstitutesOnlyTheVideoFieldsThatStartSet) {
    PeloraTrackReplace r;
    EXPECT_EQ(r.replacedString("f=__VIDEO_PLAY_FIRSR_FRAME__&l=__VIDEO_PLAY_LAST_FRAME__"
                               "&s=__VIDEO_STATUS__&st=__VIDEO_START_TIME__&b=__VIDEO_BEHAVIOR__"
                               "&pt=__VIDEO_PLAY_TYPE__"),
              "f=1&l=0&s=0&st=0&b=0&pt=1");
    const std::string literal =
        "t=__VIDEO_TIME__&e=__VIDEO_END_TIME__&sc=__VIDEO_SCENE__&ts=__TS__&w=__WIDTH__"
        "&rw=__REQ_WIDTH__&a=__ACTION_ID__&c=__CLICK_ID__&es=__EVENT_TIME_START__"
        "&ee=__EVENT_TIME_END__&ox=__OFFSET_X__&oy=__OFFSET_Y__";
    EXPECT_EQ(r.replacedString(literal), literal);
}

TEST(TrackMacroUnsetRule, OnlyMinusOneOfTheFieldWidthIsUnset) {
    PeloraTrackReplace r;
    r.__VIDEO_SCENE__ = -1;  // 16-bit -1 widens to -1
    EXPECT_EQ(r.replacedString("__VIDEO_SCENE__"), "__VIDEO_SCENE__");
    r.setNumericValue(row("__VIDEO_SCENE__"), 65535);  // narrows to a 16-bit -1
    EXPECT_EQ(r.__VIDEO_SCENE__, -1);
    EXPECT_EQ(r.replacedString("__VIDEO_SCENE__"), "__VIDEO_SCENE__");
    r.__VIDEO_SCENE__ = 3;
    EXPECT_EQ(r.replacedString("__VIDEO_SCENE__"), "3");

    r.__VIDEO_STATUS__ = -1;  // 8-bit
    EXPECT_EQ(r.replacedString("s=__VIDEO_STATUS__"), "s=__VIDEO_STATUS__");
    r.__VIDEO_STATUS__ = 2;
    EXPECT_EQ(r.replacedString("s=__VIDEO_STATUS__"), "s=2");

    r.__WIDTH__ = 0;  // zero is a real value
    r.__TS__ = 1767225600123;
    r.__REQ_WIDTH__ = -2;
    EXPECT_EQ(r.replacedString("__WIDTH__/__TS__/__REQ_WIDTH__"), "0/1767225600123/-2");
    r.__TS__ = -1;
    EXPECT_EQ(r.replacedString("ts=__TS__"), "ts=__TS__");
}

TEST(TrackMacroFallback, TouchMacrosFallBackToMinus999AtEveryOccurrence) {
    PeloraTrackReplace r;
    EXPECT_EQ(r.replacedString("a=__DOWN_X__&b=__DOWN_X__&c=__DOWN_Y__&d=__UP_X__&e=__UP_Y__"),
              "a=-999&b=-999&c=-999&d=-999&e=-999");
    r.__DOWN_X__ = 12;
    EXPECT_EQ(r.replacedString("a=__DOWN_X__&b=__DOWN_X__"), "a=12&b=12");
    r.__DOWN_X__ = 0;
    EXPECT_EQ(r.replacedString("a=__DOWN_X__"), "a=0");
    // The offsets share the touch point but have no fallback.
    EXPECT_EQ(r.replacedString("o=__OFFSET_X__"), "o=__OFFSET_X__");
}

TEST(TrackMacroClickId, LiteralWhileMinusOneAndRewrittenOtherwise) {
    PeloraTrackReplace r;
    EXPECT_EQ(r.replacedString("c=__CLICK_ID__"), "c=__CLICK_ID__");
    r.__CLICK_ID__ = "abc%20d";
    EXPECT_EQ(r.replacedString("c=__CLICK_ID__&c2=__CLICK_ID__"), "c=abc%20d&c2=abc%20d");
    // Later tokens inside the click id are rewritten by the rows after it; earlier ones stay.
    r.__CLICK_ID__ = "[__VIDEO_SCENE__|__TS__|__VIDEO_STATUS__]";
    r.__VIDEO_SCENE__ = 3;
    r.__TS__ = 99;
    EXPECT_EQ(r.replacedString("ts=__TS__&c=__CLICK_ID__"), "ts=99&c=[3|__TS__|0]");
    // A click id can even complete a later token with the text around it.
    r.__CLICK_ID__ = "__VIDEO_PLAY_TY";
    EXPECT_EQ(r.replacedString("x__CLICK_ID__PE__"), "x1");
}

TEST(TrackMacroTokens, LowerCaseAndUnknownTokensStay) {
    PeloraTrackReplace r;
    r.__WIDTH__ = 320;
    EXPECT_EQ(r.replacedString("__width__&__Width__&__WIDTH_&_WIDTH__&__COLOR__&__WIDTH__"),
              "__width__&__Width__&__WIDTH_&_WIDTH__&__COLOR__&320");
    EXPECT_EQ(r.replacedString(""), "");
    EXPECT_EQ(r.replacedString("no tokens here"), "no tokens here");
}

TEST(TrackMacroOrder, NeighbouringTokensResolveLikeSequentialPasses) {
    PeloraTrackReplace r;
    r.__REQ_WIDTH__ = 640;
    r.__EVENT_TIME_START__ = 5;
    r.__TS__ = 7;
    // "__REQ_WIDTH__EVENT_TIME_START__": the earlier row consumes the shared underscores.
    EXPECT_EQ(r.replacedString("__REQ_WIDTH__EVENT_TIME_START__"), "640EVENT_TIME_START__");
    // When the earlier row is unset, the later token is whole and replaced.
    r.__REQ_WIDTH__ = -1;
    EXPECT_EQ(r.replacedString("__REQ_WIDTH__EVENT_TIME_START__"), "__REQ_WIDTH5");
    // A later row loses to an earlier one even when it comes first in the text.
    r.__REQ_WIDTH__ = 640;
    EXPECT_EQ(r.replacedString("__EVENT_TIME_START__REQ_WIDTH__"), "__EVENT_TIME_START640");
    r.__EVENT_TIME_START__ = -1;
    EXPECT_EQ(r.replacedString("__TS__TS__TS__"), "7TS7");
}

TEST(TrackMacroSinglePass, MatchesTwentyFourPassesOnGeneratedTemplates) {
    std::mt19937 rng(20260101);
    std::vector<std::string> pieces;
    for (const auto& t : PeloraTrackReplace::kTokens) {
        std::string token(t);
        pieces.push_back(token);
        pieces.push_back(token.substr(0, token.size() - 1));  // missing an underscore
        pieces.push_back(token.substr(1));                    // shares underscores with a neighbour
        pieces.push_back(token.substr(2));
        std::string lower = token;
        for (auto& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        pieces.push_back(lower);
    }
    for (const char* filler :
         {"_", "__", "___", "&", "?", "=", "a", "X", "-1", "%5F", "http://h/p"})
        pieces.push_back(filler);

    auto pick = [&](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    auto makeText = [&](size_t maxPieces) {
        std::string s;
        size_t n = pick(maxPieces + 1);
        for (size_t i = 0; i < n; ++i) s += pieces[pick(pieces.size())];
        return s;
    };
    const int64_t values[] = {-1, -1, -1, 0, 1, 7, -2, -999, 2147483647, 1767225600000, -128, 255};

    for (int iteration = 0; iteration < 20000; ++iteration) {
        PeloraTrackReplace r;
        for (int row = 0; row < PeloraTrackReplace::kMacroCount; ++row) {
            if (row == PeloraTrackReplace::kClickIdRow || pick(3) == 0) continue;
            r.setNumericValue(row, values[pick(std::size(values))]);
        }
        if (pick(2) == 0) r.__CLICK_ID__ = makeText(4);
        std::string text = makeText(12);
        ASSERT_EQ(r.replacedString(text), replacedStringByPasses(r, text))
            << "template: " << text << "\nclick id: " << r.__CLICK_ID__;
    }
}

TEST(TrackMacroSinglePass, StepOperationsFollowTheirRules) {
    EXPECT_EQ(PeloraTrackReplace::replacedString("a__X__b__X__", "__X__", 5, -1, false), "a5b5");
    EXPECT_EQ(PeloraTrackReplace::replacedString("a__X__", "__X__", -1, -999, true), "a-999");
    EXPECT_EQ(PeloraTrackReplace::replacedString("a__X__", "__X__", -1, -999, false), "a__X__");
    EXPECT_EQ(PeloraTrackReplace::replacedString("a__X__", "__X__", std::string("-1"), "d", true),
              "ad");
    EXPECT_EQ(PeloraTrackReplace::replacedString("a__X__", "__X__", std::string("-1"), "d", false),
              "a__X__");
    EXPECT_EQ(PeloraTrackReplace::replacedString("a__X__", "__X__", std::string("v w"), "d", false),
              "av w");
}
