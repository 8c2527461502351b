#include <gtest/gtest.h>

#include "support/PeloraTool.h"

namespace {

TEST(ToolEmptiness, AbsentAndEmptyAreEmptyBlanksAreNot) {
    EXPECT_TRUE(PeloraTool::stringIsEmpty(std::optional<std::string>{}));
    EXPECT_TRUE(PeloraTool::stringIsEmpty(std::optional<std::string>("")));
    EXPECT_FALSE(PeloraTool::stringIsEmpty(std::optional<std::string>("  ")));
    EXPECT_TRUE(PeloraTool::dataIsEmpty(std::optional<std::string>{}));
    EXPECT_FALSE(PeloraTool::dataIsEmpty(std::optional<std::string>("x")));
}

struct Listener {
    virtual ~Listener() = default;
    virtual void one(int) {}
    virtual void two(const std::string&, int) {}
};
struct Recorder : Listener {
    std::vector<std::string> calls;
    void one(int v) override { calls.push_back("one " + std::to_string(v)); }
    void two(const std::string& s, int v) override { calls.push_back(s + " " + std::to_string(v)); }
};

TEST(ToolSafeTarget, CallsOnlyLiveImplementers) {
    auto recorder = std::make_shared<Recorder>();
    PeloraTool::safeTarget(std::weak_ptr<Recorder>(recorder), &Listener::one, 5);
    PeloraTool::safeTarget(std::weak_ptr<Recorder>(recorder), &Listener::two, std::string("x"), 7);
    EXPECT_EQ(recorder->calls, (std::vector<std::string>{"one 5", "x 7"}));
    // One that does not override the call, one that is gone and none at all: nothing happens.
    auto silent = std::make_shared<Listener>();
    PeloraTool::safeTarget(std::weak_ptr<Listener>(silent), &Listener::one, 1);
    std::weak_ptr<Recorder> dead = std::make_shared<Recorder>();
    PeloraTool::safeTarget(dead, &Listener::one, 1);
    PeloraTool::safeTarget(std::weak_ptr<Recorder>(), &Listener::two, std::string("y"), 2);
    EXPECT_EQ(recorder->calls.size(), 2u);
}

// The modern encoder keeps the query delimiters and its decoder keeps "+"; both decoders refuse
// a cut or non-hex escape and what is not UTF-8. (The request query's escaping, batch borders
// included, is RecordsTest's; the round trips and the legacy encoder's escapes are the
// url_escaping fuzz target's.)
TEST(ToolUrlEscaping, ModernPathAndRefusals) {
    EXPECT_EQ(PeloraTool::stringByURLEncode("a b&c=d/e?f:g@h+i~é"), "a%20b&c=d/e?f:g@h+i~%C3%A9");
    EXPECT_EQ(PeloraTool::stringByURLDecode("a+b%20c%E4%BD%A0"), "a+b c\xE4\xBD\xA0");
    EXPECT_EQ(PeloraTool::stringByURLDecodeLegacy("a+b%20c"), "a b c");
    for (const char* bad : {"bad%2", "bad%zz", "%FF"}) {
        EXPECT_EQ(PeloraTool::stringByURLDecode(bad), std::nullopt) << bad;
        EXPECT_EQ(PeloraTool::stringByURLDecodeLegacy(bad), std::nullopt) << bad;
    }
}

// The encoder works in batches of 50 UTF-16 units; a batch never ends inside a character or a
// sequence drawn as one.
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
