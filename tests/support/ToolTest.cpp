#include <gtest/gtest.h>

#include <map>

#include "TestPlatform.h"
#include "support/PeloraTool.h"

namespace {

TEST(ToolToInt, DotsRemovedThenLeadingDigits) {
    EXPECT_EQ(PeloraTool::toInt(std::string("1.2.3")), 123);
    EXPECT_EQ(PeloraTool::toInt(std::string("2.10")), 210);
    EXPECT_EQ(PeloraTool::toInt(std::string("10.0")), 100);
    EXPECT_EQ(PeloraTool::toInt(std::string("")), 0);
    EXPECT_EQ(PeloraTool::toInt(std::string("abc")), 0);
    EXPECT_EQ(PeloraTool::toInt(std::string("3.1a")), 31);
    EXPECT_EQ(PeloraTool::toInt(std::nullopt), 0);
}

TEST(ToolImsi, CarrierCodesOrPlaceholders) {
    pelora::testing::TestPlatform platform;
    EXPECT_EQ(PeloraTool::imsi(), "(null)(null)");
    platform.device->countryCode = "460";
    platform.device->networkCode = "01";
    EXPECT_EQ(PeloraTool::imsi(), "46001");
    platform.device->networkCode.reset();
    EXPECT_EQ(PeloraTool::imsi(), "460(null)");
}

TEST(ToolEmptiness, WrongTypesCountAsEmpty) {
    std::map<std::string, int> dictionary{{"a", 1}};
    EXPECT_TRUE(PeloraTool::arrayIsEmpty(std::any(dictionary)));
    EXPECT_TRUE(PeloraTool::arrayIsEmpty(std::any()));
    EXPECT_TRUE(PeloraTool::arrayIsEmpty(std::any(std::vector<std::string>{})));
    EXPECT_FALSE(PeloraTool::arrayIsEmpty(std::any(std::vector<std::string>{"x"})));
    EXPECT_FALSE(PeloraTool::arrayIsEmpty(std::vector<int>{1}));
    EXPECT_TRUE(PeloraTool::arrayIsEmpty(std::optional<std::vector<int>>{}));

    EXPECT_TRUE(PeloraTool::stringIsEmpty(std::any(42)));
    EXPECT_TRUE(PeloraTool::stringIsEmpty(std::any(std::string())));
    EXPECT_FALSE(PeloraTool::stringIsEmpty(std::any(std::string("  "))));  // blanks count
    EXPECT_TRUE(PeloraTool::stringIsEmpty(std::optional<std::string>{}));
    EXPECT_FALSE(PeloraTool::stringIsEmpty(std::optional<std::string>("a")));

    EXPECT_TRUE(PeloraTool::dataIsEmpty(std::any(std::string("bytes"))));  // not a buffer
    EXPECT_FALSE(PeloraTool::dataIsEmpty(std::any(std::vector<uint8_t>{1})));
    EXPECT_TRUE(PeloraTool::dataIsEmpty(std::any(std::vector<uint8_t>{})));
    EXPECT_FALSE(PeloraTool::dataIsEmpty(std::optional<std::string>("x")));
}

TEST(ToolArrayFilter, FirstMatchOrNothing) {
    const std::vector<int> values{1, 4, 6, 8};
    EXPECT_EQ(PeloraTool::arrayFilter(values, [](int v) { return v % 2 == 0; }), 4);
    EXPECT_EQ(PeloraTool::arrayFilter(values, [](int v) { return v > 10; }), std::nullopt);
    EXPECT_EQ(PeloraTool::arrayFilter(std::vector<int>{}, [](int) { return true; }), std::nullopt);
}

TEST(ToolArrayFilterDeathTest, ChangingTheArrayDuringTheWalkAborts) {
    std::vector<int> values{1, 2, 3};
    EXPECT_DEATH(PeloraTool::arrayFilter(values,
                                         [&](int) {
                                             values.push_back(0);
                                             return false;
                                         }),
                 "mutated");
}

struct Listener {
    virtual ~Listener() = default;
    virtual void one(int) {}
    virtual void two(const std::string&, int) {}
};
struct Recorder : Listener {
    std::vector<std::string> calls;
    void one(int v) override { calls.push_back("one " + std::to_string(v)); }
    void two(const std::string& s, int v) override {
        calls.push_back("two " + s + " " + std::to_string(v));
    }
};
struct Silent : Listener {};

TEST(ToolSafeTarget, CallsOnlyLiveImplementers) {
    auto recorder = std::make_shared<Recorder>();
    std::weak_ptr<Recorder> weak = recorder;
    PeloraTool::safeTarget(weak, &Listener::one, 5);
    PeloraTool::safeTarget(weak, &Listener::two, std::string("x"), 7);
    EXPECT_EQ(recorder->calls, (std::vector<std::string>{"one 5", "two x 7"}));

    auto silent = std::make_shared<Silent>();
    PeloraTool::safeTarget(std::weak_ptr<Silent>(silent), &Listener::one, 1);  // no effect

    std::weak_ptr<Recorder> dead;
    {
        auto gone = std::make_shared<Recorder>();
        dead = gone;
    }
    PeloraTool::safeTarget(dead, &Listener::one, 1);
    PeloraTool::safeTarget(std::weak_ptr<Recorder>(), &Listener::two, std::string("y"), 2);
    EXPECT_EQ(recorder->calls.size(), 2u);
}

TEST(ToolUrlEscaping, ModernAndLegacyPaths) {
    const std::string text = "a b&c=d/e?f:g@h+i~é";
    EXPECT_EQ(PeloraTool::stringByURLEncode(text), "a%20b&c=d/e?f:g@h+i~%C3%A9");
    EXPECT_EQ(PeloraTool::stringByURLEncodeLegacy(text),
              "a%20b%26c%3Dd%2Fe%3Ff%3Ag%40h%2Bi~%C3%A9");
    EXPECT_EQ(PeloraTool::stringByURLEncode(""), "");

    EXPECT_EQ(PeloraTool::stringByURLDecode("a+b%20c"), "a+b c");
    EXPECT_EQ(PeloraTool::stringByURLDecodeLegacy("a+b%20c"), "a b c");
    EXPECT_EQ(PeloraTool::stringByURLDecode("%E4%BD%A0"), "\xE4\xBD\xA0");
    EXPECT_EQ(PeloraTool::stringByURLDecode("bad%2"), std::nullopt);
    EXPECT_EQ(PeloraTool::stringByURLDecode("bad%zz"), std::nullopt);
    EXPECT_EQ(PeloraTool::stringByURLDecode("%FF"), std::nullopt);  // not UTF-8
    EXPECT_EQ(PeloraTool::stringByURLDecodeLegacy("%FF"), std::nullopt);
    for (const std::string& s : {std::string("q=1&r=a b"), std::string("日本語 😀 x")}) {
        EXPECT_EQ(PeloraTool::stringByURLDecode(PeloraTool::stringByURLEncode(s)), s);
        EXPECT_EQ(PeloraTool::stringByURLDecodeLegacy(PeloraTool::stringByURLEncodeLegacy(s)), s);
    }
}

TEST(ToolComposedBatches, EmojiAcrossTheBatchBorderStaysWhole) {
    const std::string emoji = "\xF0\x9F\x98\x80";  // two UTF-16 units
    std::string text(49, 'a');
    text += emoji;
    text += std::string(120 - 50, 'b');
    ASSERT_EQ(PeloraTool::utf16Length(text), 121u);
    const auto pieces = PeloraTool::composedBatches(text, 50);
    ASSERT_GE(pieces.size(), 2u);
    EXPECT_EQ(pieces[0], std::string(49, 'a') + emoji);  // widened to 51 units
    std::string joined;
    for (auto p : pieces) joined += p;
    EXPECT_EQ(joined, text);
    EXPECT_EQ(PeloraTool::stringByURLEncode(text),
              std::string(49, 'a') + "%F0%9F%98%80" + std::string(70, 'b'));
}

TEST(ToolComposedBatches, SequencesAreNeverSplit) {
    const std::string combining = "e\xCC\x81";                                  // e + acute
    const std::string family = "\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9";  // man ZWJ woman
    const std::string thumb = "\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD";               // with modifier
    const std::string flag = "\xF0\x9F\x87\xAF\xF0\x9F\x87\xB5";                // two indicators
    for (const std::string& unit : {combining, family, thumb, flag}) {
        std::string text;
        for (int i = 0; i < 7; ++i) text += "x" + unit;
        for (std::size_t size = 1; size < 6; ++size) {
            std::string joined;
            for (auto piece : PeloraTool::composedBatches(text, size)) {
                // Every piece starts at an "x" or at a whole sequence: nothing is cut.
                ASSERT_FALSE(piece.empty());
                EXPECT_TRUE(piece.front() == 'x' || piece.substr(0, unit.size()) == unit);
                joined += piece;
            }
            EXPECT_EQ(joined, text);
        }
    }
    // Invalid bytes count one unit each and are kept.
    const std::string invalid = "\xFF\xFE" + std::string(3, 'z');
    EXPECT_EQ(PeloraTool::utf16Length(invalid), 5u);
    EXPECT_EQ(PeloraTool::composedBatches(invalid, 2).size(), 3u);
}

}  // namespace
