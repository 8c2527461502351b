// Query text as the server receives it: which characters survive, how pairs are formed, and
// that splitting long text into batches never changes the result.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "support/PeloraYYModel.h"

namespace {

std::set<std::string> pairsOf(const std::string& query) {
    std::set<std::string> out;
    std::stringstream in(query);
    std::string piece;
    while (std::getline(in, piece, '&')) out.insert(piece);
    return out;
}

TEST(PercentEscaping, DelimitersAreEscapedWhilePathAndQueryMarksStay) {
    EXPECT_EQ(pl_AFPercentEscapedStringFromString(" "), "%20");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString("&"), "%26");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString("="), "%3D");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString(":"), "%3A");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString("/?"), "/?");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString("AZaz09-._~"), "AZaz09-._~");
    // Every general and sub-delimiter leaves, upper-case hex.
    EXPECT_EQ(pl_AFPercentEscapedStringFromString("#[]@!$'()*+,;"),
              "%23%5B%5D%40%21%24%27%28%29%2A%2B%2C%3B");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString("%"), "%25");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString(""), "");
}

TEST(PercentEscaping, NonAsciiIsEscapedPerUtf8Byte) {
    EXPECT_EQ(pl_AFPercentEscapedStringFromString("é"), "%C3%A9");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString("未知"), "%E6%9C%AA%E7%9F%A5");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString(std::string("a\0b", 3)), "a%00b");
    EXPECT_EQ(pl_AFPercentEscapedStringFromString("\xff"), "%FF");
}

TEST(PercentEscaping, LongTextGivesTheSameResultAsItsBatches) {
    // 120 characters: three batches of 50, 50 and 20 units.
    std::string text;
    for (int i = 0; i < 12; ++i) text += "a b&c=d:/?";
    ASSERT_EQ(text.size(), 120u);
    std::string joined = pl_AFPercentEscapedStringFromString(text.substr(0, 50)) +
                         pl_AFPercentEscapedStringFromString(text.substr(50, 50)) +
                         pl_AFPercentEscapedStringFromString(text.substr(100));
    EXPECT_EQ(pl_AFPercentEscapedStringFromString(text), joined);
    std::string expected;
    for (int i = 0; i < 12; ++i) expected += "a%20b%26c%3Dd%3A/?";
    EXPECT_EQ(pl_AFPercentEscapedStringFromString(text), expected);
}

TEST(PercentEscaping, EmojiOnTheBatchBorderStaysWhole) {
    // The emoji takes UTF-16 units 49 and 50, straddling the first border.
    std::string text = std::string(49, 'a') + "\xF0\x9F\x98\x80" + std::string(70, 'b');
    EXPECT_EQ(pl_AFPercentEscapedStringFromString(text),
              std::string(49, 'a') + "%F0%9F%98%80" + std::string(70, 'b'));
    // A base letter with a combining mark on the border.
    std::string composed = std::string(49, 'x') + "e\xCC\x81" + "tail";
    EXPECT_EQ(pl_AFPercentEscapedStringFromString(composed), std::string(49, 'x') + "e%CC%81tail");
}

TEST(QueryEncoding, PairsAreEscapedAndJoinedInAnyOrder) {
    nlohmann::json dict = {{"reqId", "ABC"},    {"sdkV", "1.0"}, {"sdkVc", 1},   {"os", "iOS"},
                           {"name", "a b&c=d"}, {"neg", -42},    {"flag", true}, {"k&=", "v"}};
    auto pairs = pairsOf(PeloraNetwork::urlEncodeQuryWithDictionary(dict));
    std::set<std::string> expected = {"reqId=ABC",          "sdkV=1.0", "sdkVc=1", "os=iOS",
                                      "name=a%20b%26c%3Dd", "neg=-42",  "flag=1",  "k%26%3D=v"};
    EXPECT_EQ(pairs, expected);
}

TEST(QueryEncoding, NullValueGivesTheBareKey) {
    nlohmann::json dict = {{"present", "x"}, {"missing", nullptr}};
    EXPECT_EQ(pairsOf(PeloraNetwork::urlEncodeQuryWithDictionary(dict)),
              (std::set<std::string>{"present=x", "missing"}));
}

TEST(QueryEncoding, NothingToEncodeGivesEmptyText) {
    EXPECT_EQ(PeloraNetwork::urlEncodeQuryWithDictionary(nlohmann::json()), "");
    EXPECT_EQ(PeloraNetwork::urlEncodeQuryWithDictionary(nlohmann::json::object()), "");
    EXPECT_EQ(PeloraNetwork::urlEncodeQuryWithDictionary(nlohmann::json::array({1, 2})), "");
}

TEST(QueryEncoding, AppendUsesAmpersandOnlyWhenTheUrlHasAQuery) {
    EXPECT_EQ(PeloraNetwork::appendQuery("http://127.0.0.1:8/p", "a=1"),
              "http://127.0.0.1:8/p?a=1");
    EXPECT_EQ(PeloraNetwork::appendQuery("http://127.0.0.1:8/p?x=2", "a=1"),
              "http://127.0.0.1:8/p?x=2&a=1");
}

// The transport reads the query record's values directly; the bytes must be what the
// dictionary encoder makes of the record's dictionary, for any values.
TEST(QueryEncoding, RequestQueryIsTheEncodedDictionary) {
    const std::vector<std::string> pieces = {"A", "9", "-", ".", " ", "&",    "=",  "?",
                                             "/", "%", "+", "é", "😀", "\xff", "\n", "\""};
    uint32_t seed = 11;
    auto next = [&] { return (seed = seed * 1664525u + 1013904223u) >> 8; };
    auto text = [&]() -> std::optional<std::string> {
        if (next() % 5 == 0) return std::nullopt;
        std::string s;
        for (uint32_t n = next() % 6; n > 0; --n) s += pieces[next() % pieces.size()];
        return s;
    };
    for (int i = 0; i < 300; ++i) {
        PeloraUrlQuery q;
        q.reqId = text();
        q.sdkV = text();
        q.appId = text();
        q.appV = text();
        q.os = text();
        q.udid = text();
        q.sdkN = text();
        q.reqTs = static_cast<int64_t>(next()) * (next() % 2 ? 1 : -1000);
        q.sdkVc = static_cast<int64_t>(next() % 7) - 3;
        q.appVc = static_cast<int64_t>(next());
        const auto request = PeloraNetwork::adFetchRequest("http://127.0.0.1:9/f", &q, nullptr, {});
        const std::string expected = PeloraNetwork::appendQuery(
            "http://127.0.0.1:9/f",
            PeloraNetwork::urlEncodeQuryWithDictionary(plyy_modelToJSONObject(q)));
        ASSERT_EQ(request.url, expected) << "query " << i;
    }
}

}  // namespace
