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

}  // namespace
