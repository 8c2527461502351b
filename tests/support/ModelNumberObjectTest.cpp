#include <gtest/gtest.h>

#include <limits>
#include <sstream>

#include "support/PeloraYYModel.h"

namespace {

struct Meter {
    std::optional<PeloraYYNumber> value;
    std::optional<PeloraYYNumber> preset = PeloraYYNumber{PeloraYYNumber::Int, 5, 0, 0.0};
    static _PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Meter>({PLYY_PROPERTIES(Meter, value, preset)});
    }
};

std::string describe(const std::optional<PeloraYYNumber>& n) {
    if (!n) return "nothing";
    std::ostringstream out;
    switch (n->kind) {
        case PeloraYYNumber::Int:
            out << "int " << n->i;
            break;
        case PeloraYYNumber::UInt:
            out << "uint " << n->u;
            break;
        case PeloraYYNumber::Real:
            out << "real " << n->d;
            break;
        case PeloraYYNumber::None:
            out << "none";  // never stored: nothing stands for it
            break;
    }
    return out.str();
}

// Reads {"value": <json>} through the byte route and the dictionary route; they must agree.
std::string readBoth(const std::string& json) {
    const std::string text = "{\"value\":" + json + "}";
    auto fromBytes = plyy_modelWithJSON<Meter>(text);
    auto fromDict = plyy_modelWithDictionary<Meter>(nlohmann::json::parse(text));
    if (!fromBytes || !fromDict) return "no record";
    EXPECT_EQ(describe(fromBytes->value), describe(fromDict->value)) << json;
    EXPECT_EQ(describe(fromBytes->preset), "int 5") << json;  // absent key: untouched
    return describe(fromBytes->value);
}

TEST(ModelNumberObjectReading, NumbersKeepTheirKind) {
    EXPECT_EQ(readBoth("42"), "int 42");
    EXPECT_EQ(readBoth("-7"), "int -7");
    EXPECT_EQ(readBoth("18446744073709551615"), "uint 18446744073709551615");
    EXPECT_EQ(readBoth("2.5"), "real 2.5");
    EXPECT_EQ(readBoth("2.0"), "real 2");
    EXPECT_EQ(readBoth("1e300"), "real 1e+300");
    // Beyond 64 bits the number can only be floating point.
    EXPECT_EQ(readBoth("123456789012345678901234567890"), "real 1.23457e+29");
    EXPECT_EQ(readBoth("true"), "int 1");
    EXPECT_EQ(readBoth("false"), "int 0");
}

TEST(ModelNumberObjectReading, TextFollowsTheNumericRules) {
    EXPECT_EQ(readBoth("\"yes\""), "int 1");
    EXPECT_EQ(readBoth("\"No\""), "int 0");
    EXPECT_EQ(readBoth("\"3.25\""), "real 3.25");
    EXPECT_EQ(readBoth("\"  -42x\""), "int -42");
    EXPECT_EQ(readBoth("\"12abc\""), "int 12");
    EXPECT_EQ(readBoth("\"abc\""), "int 0");
    EXPECT_EQ(readBoth("\"99999999999999999999\""), "int 9223372036854775807");
    // The null words and non-finite decimals give no number at all.
    EXPECT_EQ(readBoth("\"<null>\""), "nothing");
    EXPECT_EQ(readBoth("\"nil\""), "nothing");
    EXPECT_EQ(readBoth("\"1e400.0\""), "nothing");
}

TEST(ModelNumberObjectReading, NullAndOtherKindsClearIt) {
    for (const char* json : {"null", "{}", "{\"n\":1}", "[1]"}) {
        Meter m;
        m.value = PeloraYYNumber{PeloraYYNumber::Int, 3, 0, 0.0};
        ASSERT_TRUE(plyy_modelSetWithJSON(m, std::string("{\"value\":") + json + "}")) << json;
        EXPECT_EQ(describe(m.value), "nothing") << json;
        m.value = PeloraYYNumber{PeloraYYNumber::Int, 3, 0, 0.0};
        ASSERT_TRUE(plyy_modelSetWithDictionary(
            m, nlohmann::json::parse(std::string("{\"value\":") + json + "}")));
        EXPECT_EQ(describe(m.value), "nothing") << json;
    }
}

TEST(ModelNumberObjectWriting, TheNumberAsItIsAndNothingLeftOut) {
    Meter m;
    m.value = PeloraYYNumber{PeloraYYNumber::UInt, 0, std::numeric_limits<uint64_t>::max(), 0.0};
    m.preset.reset();
    nlohmann::json out = plyy_modelToJSONObject(m);
    EXPECT_EQ(out, nlohmann::json::parse(R"({"value":18446744073709551615})"));
    EXPECT_TRUE(out["value"].is_number_unsigned());

    m.preset = PeloraYYNumber{PeloraYYNumber::Real, 0, 0, 2.0};
    m.value = PeloraYYNumber{PeloraYYNumber::Int, -3, 0, 0.0};
    out = plyy_modelToJSONObject(m);
    EXPECT_TRUE(out["preset"].is_number_float());
    EXPECT_TRUE(out["value"].is_number_integer());
    // The byte writer and the value visitor (the query string) agree with the dictionary.
    EXPECT_EQ(plyy_modelToJSONData(m), std::optional<std::string>(R"({"preset":2.0,"value":-3})"));
    nlohmann::json visited = nlohmann::json::object();
    ASSERT_TRUE(plyy_modelVisitValues(m, [&](std::string_view key, const PeloraYYValueRef& v) {
        EXPECT_EQ(v.type, PeloraYYEncodingType::NumberObject);
        visited[std::string(key)] = v.other;
    }));
    EXPECT_EQ(_plyy_dumpJSON(visited), _plyy_dumpJSON(out));

    m.value.reset();
    m.preset.reset();
    EXPECT_EQ(plyy_modelToJSONObject(m), nlohmann::json::object());
    EXPECT_EQ(plyy_modelToJSONData(m), std::optional<std::string>("{}"));
}

TEST(ModelNumberObjectWriting, RoundTripKeepsKindAndPrecision) {
    // 2^53 + 1 would lose its last digit through a double; 2.0 would lose its point through an
    // integer.
    for (const char* text : {R"({"preset":9007199254740993,"value":2.0})",
                             R"({"preset":-9223372036854775808,"value":0.1})",
                             R"({"preset":18446744073709551615,"value":1e+300})"}) {
        auto m = plyy_modelWithJSON<Meter>(std::string(text));
        ASSERT_NE(m, nullptr) << text;
        EXPECT_EQ(plyy_modelToJSONData(*m), std::optional<std::string>(text));
        auto again = plyy_modelWithDictionary<Meter>(plyy_modelToJSONObject(*m));
        ASSERT_NE(again, nullptr);
        EXPECT_EQ(plyy_modelToJSONData(*again), std::optional<std::string>(text));
    }
}

}  // namespace
