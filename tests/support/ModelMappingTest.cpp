#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>

#include "support/PeloraYYModel.h"

namespace {

struct Child {
    std::optional<std::string> name;
    int64_t rank = 0;
    static PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Child>({PLYY_PROPERTIES(Child, name, rank)});
    }
};

struct Sample {
    int64_t i64 = 7;
    int32_t i32 = 0;
    int8_t i8 = 0;
    bool flag = false;
    double real = 0;
    std::optional<std::string> text = std::string("initial");
    std::optional<std::vector<std::string>> words;
    std::shared_ptr<Child> child;
    std::optional<std::vector<std::shared_ptr<Child>>> children;
    std::optional<PeloraYYDate> when;
    std::optional<PeloraYYNumber> number = PeloraYYNumber{PeloraYYNumber::Int, 3, 0, 0.0};
    std::optional<std::string> deep;
    std::optional<std::string> either;
    std::optional<std::string> first;
    std::optional<std::string> second;

    static std::map<std::string, PeloraYYKeyMapping> modelCustomPropertyMapper() {
        return {{"deep", std::string("a..b")},
                {"either", std::vector<std::string>{"x.y", "alt"}},
                {"first", std::string("shared")},
                {"second", std::string("shared")}};
    }
    static PeloraYYModelSchema plyy_schema() {
        using T = Sample;
        return plyy_makeSchema<T>(
            {PLYY_PROPERTIES(T, i64, i32, i8, flag, real, text, words, child, children, when,
                             number, deep, either, first, second)});
    }
};

// Maps the same JSON text through the byte route and the dictionary route; both must agree
// on every byte they write back.
std::shared_ptr<Sample> mapBoth(const std::string& json) {
    auto fromBytes = plyy_modelWithJSON<Sample>(json);
    auto fromDict = plyy_modelWithJSON<Sample>(nlohmann::json::parse(json));
    EXPECT_EQ(fromBytes == nullptr, fromDict == nullptr) << json;
    if (fromBytes && fromDict) {
        EXPECT_EQ(plyy_modelToJSONData(*fromBytes), plyy_modelToJSONData(*fromDict)) << json;
    }
    return fromBytes;
}

// "<property> <JSON value> -> <what the record writes back for it>", read from {"<property>":
// <value>} on both routes. Words and text become numbers by their leading digits; numbers
// narrow like ordinary conversions, and infinite ones give 0; wrong kinds keep text as it was;
// a number object keeps the kind the answer gave, and null and the null words clear it; lists
// drop elements of the wrong kind, and their records and nested ones map like the record.
const std::string kCoercions =
    "i64 \"yes\" -> 1 | i64 \"No\" -> 0 | i64 \"TRUE\" -> 1 | i64 \"<null>\" -> 0 | "
    "i64 \"(null)\" -> 0 | i64 \"12abc\" -> 12 | i64 \"  -42x\" -> -42 | i64 \"abc\" -> 0 | "
    "i64 \"3.9\" -> 3 | i64 \"1e400.0\" -> 0 | i64 \"YES \" -> 0 | i64 \"yEs\" -> 0 | "
    "i64 true -> 1 | i64 false -> 0 | i64 null -> 0 | i64 {} -> 0 | i64 [1] -> 0 | "
    "i64 -5 -> -5 | i64 2.7 -> 2 | i64 1e300 -> 9223372036854775807 | i32 4294967297 -> 1 | "
    "i8 \"300\" -> 44 | flag \"yes\" -> true | real \"2.5\" -> 2.5 | real \"1e400.0\" -> 0.0 | "
    "text 12 -> \"12\" | text 1.5 -> \"1.5\" | text null -> absent | "
    "text {\"a\":1} -> \"initial\" | number 18446744073709551615 -> 18446744073709551615 | "
    "number 2.0 -> 2.0 | number \"<null>\" -> absent | number null -> absent | "
    "words [\"a\",1,null,\"b\",{}] -> [\"a\",\"b\"] | words \"no\" -> absent | "
    "child {\"name\":\"solo\"} -> {\"name\":\"solo\",\"rank\":0} | child null -> absent | "
    "children [{\"name\":\"one\",\"rank\":\"2\"},5,\"x\",{}] -> "
    "[{\"name\":\"one\",\"rank\":2},{\"rank\":0}]";

TEST(ModelMappingValues, CoercionsOnBothRoutes) {
    std::istringstream cases(kCoercions);
    for (std::string c; std::getline(cases, c, '|');) {
        c = c.substr(c.find_first_not_of(' '),
                     c.find_last_not_of(' ') + 1 - c.find_first_not_of(' '));
        const auto space = c.find(' '), arrow = c.find(" -> ");
        const std::string property = c.substr(0, space);
        auto s = mapBoth("{\"" + property + "\":" + c.substr(space + 1, arrow - space - 1) + "}");
        ASSERT_NE(s, nullptr) << c;
        const nlohmann::json out = plyy_modelToJSONObject(*s);
        EXPECT_EQ(out.contains(property) ? plyyImpl_dumpJSON(out[property]) : "absent",
                  c.substr(arrow + 4))
            << c;
    }
    // Absent keys leave properties untouched; unknown keys are ignored.
    auto untouched = mapBoth(R"({"unknown":1,"another":[1,2]})");
    ASSERT_NE(untouched, nullptr);
    EXPECT_EQ(plyy_modelToJSONObject(*untouched), plyy_modelToJSONObject(Sample()));
}

// Absent text writes no key, a key path ("a..b" is a -> b) nested dictionaries, a candidate
// list its first key, a date its text with the zone; what is written reads back to the same
// record on both routes, and the property-driven walk of many keys reads the same. No record
// of the SDK has a key path, candidate keys or a date.
TEST(ModelMappingWriting, WhatIsWrittenBack) {
    using namespace std::chrono;
    Sample s;
    s.deep = "d";
    s.either = "e";
    s.when = sys_days(year(2021) / 3 / 4) + hours(5) + minutes(6) + seconds(7);
    s.children = std::vector<std::shared_ptr<Child>>{std::make_shared<Child>()};
    const nlohmann::json out = plyy_modelToJSONObject(s);
    EXPECT_EQ(out, nlohmann::json::parse(R"({"a":{"b":"d"},"children":[{"rank":0}],"flag":false,
        "i32":0,"i64":7,"i8":0,"number":3,"real":0.0,"text":"initial",
        "when":"2021-03-04T05:06:07+0000","x":{"y":"e"}})"));
    // Records with key paths are written as bytes through their dictionary, and have no values
    // to visit one by one.
    EXPECT_EQ(plyy_modelToJSONData(s), plyyImpl_dumpJSON(out));
    EXPECT_FALSE(plyy_modelVisitValues(s, [](std::string_view, const auto&) {}));
    std::string wide = plyyImpl_dumpJSON(out);
    wide.pop_back();
    for (int i = 0; i < 40; ++i) wide += ",\"k" + std::to_string(i) + "\":" + std::to_string(i);
    for (const std::string& text : {plyyImpl_dumpJSON(out), wide + "}"}) {
        auto back = mapBoth(text);
        ASSERT_NE(back, nullptr) << text;
        EXPECT_EQ(plyy_modelToJSONObject(*back), out) << text;
    }
}

struct Node {
    std::shared_ptr<Node> next;
    int64_t v = 0;
    static PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Node>({PLYY_PROPERTIES(Node, next, v)});
    }
};

TEST(ModelMappingIntake, DeepNestingIsRefusedWithAReason) {
    auto nested = [](int depth) {
        std::string s;
        for (int i = 0; i < depth; ++i) s += "{\"next\":";
        return s + "{}" + std::string(static_cast<size_t>(depth), '}');
    };
    EXPECT_NE(plyy_modelWithJSON<Node>(nested(60)), nullptr);
    std::string why;
    EXPECT_EQ(plyy_modelWithJSON<Node>(nested(100000), &why), nullptr);
    EXPECT_NE(why.find("deeper"), std::string::npos) << why;
    // A dictionary built in memory goes as deep as it likes; the mapper still stops.
    nlohmann::json deep = nlohmann::json::object();
    for (int i = 0; i < 400; ++i) deep = nlohmann::json{{"next", std::move(deep)}};
    why.clear();
    EXPECT_EQ(plyy_modelWithDictionary<Node>(deep, &why), nullptr);
    EXPECT_NE(why.find("deeper"), std::string::npos) << why;
}

// ---- the direct byte writer and the value visitor against the dictionary ---------------------

// The kinds the request records hold.
struct Flat {
    bool flag = false;
    int64_t i64 = 0;
    double real = 0;
    std::optional<std::string> text;
    std::optional<std::string> first;
    std::optional<std::string> second;
    std::optional<std::vector<std::string>> words;
    std::shared_ptr<Child> child;
    std::optional<std::vector<std::shared_ptr<Flat>>> nested;

    static std::map<std::string, PeloraYYKeyMapping> modelCustomPropertyMapper() {
        return {{"first", std::string("shared")}, {"second", std::string("shared")}};
    }
    static PeloraYYModelSchema plyy_schema() {
        using T = Flat;
        return plyy_makeSchema<T>(
            {PLYY_PROPERTIES(T, text, flag, i64, real, second, first, words, child, nested)});
    }
};

// Random records of every property kind.
struct Generator {
    std::mt19937 rng;
    uint32_t next() { return static_cast<uint32_t>(rng() >> 8); }
    bool chance(int percent) { return static_cast<int>(next() % 100) < percent; }

    // Text mixing plain ASCII with everything a writer can get wrong: quotes, backslashes,
    // control characters, DEL, multi-byte UTF-8 and bytes that are not UTF-8 at all.
    std::string text() {
        static const std::vector<std::string> pieces = {
            "a",    "Zz", "0",    " ",    "\"",           "\\",       "/",          "\n",
            "\t",   "\b", "\f",   "\r",   "\x01",         "\x1f",     "\x7f",       "é",
            "中文", "😀",  "\xff", "\xc3", "\xed\xa0\x80", "\xe2\x82", "url?x=1&y=2"};
        std::string s;
        for (int n = static_cast<int>(next() % 8); n > 0; --n) s += pieces[next() % pieces.size()];
        return s;
    }
    std::optional<std::string> maybeText() {
        return chance(70) ? std::optional<std::string>(text()) : std::nullopt;
    }
    double real() {
        const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
        static const double special[] = {
            0.0,  -0.0,  1.0,  -3.0,  0.1,    1.5, 1e15, 999999999999999.0,
            1e16, -1e15, 1e-5, 1e300, 5e-324, inf, nan,  123456.789};
        if (chance(50)) return special[next() % std::size(special)];
        return (static_cast<double>(next()) - 8e6) / static_cast<double>(1 + next() % 1000);
    }

    std::shared_ptr<Flat> flat(int depth) {
        auto f = std::make_shared<Flat>();
        f->flag = chance(50);
        f->i64 = chance(20) ? INT64_MIN : static_cast<int64_t>(next()) - (1 << 23);
        f->real = real();
        f->text = maybeText();
        f->first = maybeText();
        f->second = maybeText();
        if (chance(60)) f->words = std::vector<std::string>{text(), text()};
        if (chance(50)) f->child = std::make_shared<Child>(Child{maybeText(), 0});
        if (depth < 2 && chance(50))
            f->nested =
                std::vector<std::shared_ptr<Flat>>{flat(depth + 1), nullptr, flat(depth + 1)};
        return f;
    }
};

// The request body is written as bytes straight from the records and the query from the
// visited values: both must be exactly the dictionary's, the visited values in its key order.
TEST(ModelMappingWriting, BytesAndVisitedValuesAreTheDictionarys) {
    Generator gen{std::mt19937(20261122)};
    for (int i = 0; i < 3000; ++i) {
        SCOPED_TRACE("record " + std::to_string(i));
        auto f = gen.flat(0);
        const nlohmann::json dictionary = plyy_modelToJSONObject(*f);
        ASSERT_TRUE(dictionary.is_object());
        ASSERT_EQ(plyy_modelToJSONData(*f), plyyImpl_dumpJSON(dictionary));

        nlohmann::json visited = nlohmann::json::object();
        std::vector<std::string> order, dictionaryOrder;
        ASSERT_TRUE(plyy_modelVisitValues(*f, [&](std::string_view key, const PeloraYYValueRef& v) {
            order.emplace_back(key);
            using T = PeloraYYEncodingType;
            visited[std::string(key)] = v.text               ? nlohmann::json(*v.text)
                                        : v.type == T::Bool  ? nlohmann::json(v.number.i != 0)
                                        : v.type > T::Double ? v.other
                                        : v.number.kind == PeloraYYNumber::Int
                                            ? nlohmann::json(v.number.i)
                                            : nlohmann::json(v.number.d);
        }));
        ASSERT_EQ(plyyImpl_dumpJSON(visited), plyyImpl_dumpJSON(dictionary));
        for (const auto& item : dictionary.items()) dictionaryOrder.push_back(item.key());
        ASSERT_EQ(order, dictionaryOrder);
    }
}

}  // namespace
