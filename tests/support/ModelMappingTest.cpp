#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/PeloraYYModel.h"

namespace {

struct Child {
    std::optional<std::string> name;
    int64_t rank = 0;
    static _PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Child>({PLYY_PROPERTIES(Child, name, rank)});
    }
};

struct Sample {
    int64_t i64 = 7;
    int32_t i32 = 0;
    int8_t i8 = 0;
    uint16_t u16 = 0;
    bool flag = false;
    double real = 0;
    float single = 0;
    std::optional<std::string> text = std::string("initial");
    std::optional<std::vector<std::string>> words;
    std::shared_ptr<Child> child;
    std::optional<std::vector<std::shared_ptr<Child>>> children;
    std::optional<std::map<std::string, std::shared_ptr<Child>>> byName;
    std::optional<nlohmann::json> extra;
    std::optional<PeloraYYDate> when;
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
    static _PeloraYYModelSchema plyy_schema() {
        using T = Sample;
        return plyy_makeSchema<T>(
            {PLYY_PROPERTIES(T, i64, i32, i8, u16, flag, real, single, text, words, child, children,
                             byName, extra, when, deep, either, first, second)});
    }
};

// Maps the same JSON text through the byte route and the dictionary route; both must agree
// on everything they write back.
std::shared_ptr<Sample> mapBoth(const std::string& json) {
    auto fromBytes = plyy_modelWithJSON<Sample>(json);
    auto fromDict = plyy_modelWithJSON<Sample>(nlohmann::json::parse(json));
    EXPECT_EQ(fromBytes == nullptr, fromDict == nullptr) << json;
    if (fromBytes && fromDict) {
        EXPECT_EQ(plyy_modelToJSONObject(*fromBytes), plyy_modelToJSONObject(*fromDict)) << json;
    }
    return fromBytes;
}

TEST(ModelMappingNumbers, WordsAndTextBecomeNumbers) {
    struct Case {
        const char* value;
        int64_t expected;
    };
    const Case cases[] = {
        {"\"yes\"", 1},    {"\"No\"", 0},      {"\"TRUE\"", 1},     {"\"<null>\"", 0},
        {"\"(null)\"", 0}, {"\"12abc\"", 12},  {"\"  -42x\"", -42}, {"\"abc\"", 0},
        {"\"3.9\"", 3},    {"\"1e400.0\"", 0}, {"true", 1},         {"false", 0},
        {"null", 0},       {"{}", 0},          {"[1]", 0},          {"-5", -5},
        {"2.7", 2},        {"\"YES \"", 0},    {"\"yEs\"", 0},
    };
    for (const auto& c : cases) {
        auto s = mapBoth(std::string("{\"i64\":") + c.value + "}");
        ASSERT_NE(s, nullptr) << c.value;
        EXPECT_EQ(s->i64, c.expected) << c.value;
    }
}

TEST(ModelMappingNumbers, AllTwentyFourWords) {
    const char* trues[] = {"TRUE", "True", "true", "YES", "Yes", "yes"};
    const char* falses[] = {"FALSE", "False", "false", "NO", "No", "no"};
    const char* nulls[] = {"NIL",    "Nil",    "nil",    "NULL",   "Null",   "null",
                           "(NULL)", "(Null)", "(null)", "<NULL>", "<Null>", "<null>"};
    for (const char* w : trues) {
        EXPECT_EQ(plyy_numberFromText(w).kind, PeloraYYNumber::Int) << w;
        EXPECT_EQ(plyy_numberFromText(w).i, 1) << w;
    }
    for (const char* w : falses) {
        EXPECT_EQ(plyy_numberFromText(w).kind, PeloraYYNumber::Int) << w;
        EXPECT_EQ(plyy_numberFromText(w).i, 0) << w;
    }
    for (const char* w : nulls) EXPECT_EQ(plyy_numberFromText(w).kind, PeloraYYNumber::None) << w;
}

TEST(ModelMappingNumbers, NarrowingAndFloatingPoint) {
    auto s = mapBoth(R"({"i32":4294967297,"i8":"300","u16":-1,"flag":"yes","real":"2.5",
                         "single":1e300})");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->i32, 1);  // wraps like an ordinary conversion
    EXPECT_EQ(s->i8, static_cast<int8_t>(300));
    EXPECT_EQ(s->u16, 65535);
    EXPECT_TRUE(s->flag);
    EXPECT_DOUBLE_EQ(s->real, 2.5);
    EXPECT_EQ(s->single, 0.0f);  // infinite after narrowing: 0

    auto big = mapBoth(R"({"real":"1e400.0","i64":1e300})");
    ASSERT_NE(big, nullptr);
    EXPECT_EQ(big->real, 0.0);
    EXPECT_EQ(big->i64, std::numeric_limits<int64_t>::max());
}

TEST(ModelMappingText, CoercionAndNull) {
    auto s = mapBoth(R"({"text":12})");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->text, "12");
    EXPECT_EQ(mapBoth(R"({"text":1.5})")->text, "1.5");
    EXPECT_EQ(mapBoth(R"({"text":null})")->text, std::nullopt);
    // A dictionary is the wrong kind for text: the property keeps its value.
    EXPECT_EQ(mapBoth(R"({"text":{"a":1}})")->text, "initial");
    // Absent keys leave properties untouched; unknown keys are ignored.
    auto untouched = mapBoth(R"({"unknown":1,"another":[1,2]})");
    ASSERT_NE(untouched, nullptr);
    EXPECT_EQ(untouched->text, "initial");
    EXPECT_EQ(untouched->i64, 7);
}

TEST(ModelMappingKeys, KeyPathsCandidatesAndSharedKeys) {
    auto s = mapBoth(R"({"a":{"b":"deep value"},"alt":"from alt","shared":"both"})");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->deep, "deep value");  // "a..b" is the path a -> b
    EXPECT_EQ(s->either, "from alt");
    EXPECT_EQ(s->first, "both");
    EXPECT_EQ(s->second, "both");

    // The first candidate present wins; an intermediate non-dictionary means absent.
    auto t = mapBoth(R"({"x":{"y":"from path"},"alt":"from alt","a":"not a dictionary"})");
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->either, "from path");
    EXPECT_EQ(t->deep, std::nullopt);

    // Many keys in the input take the property-driven walk; the answer is the same.
    std::string wide = R"({"alt":"w","shared":"s")";
    for (int i = 0; i < 40; ++i) wide += ",\"k" + std::to_string(i) + "\":" + std::to_string(i);
    wide += "}";
    auto w = mapBoth(wide);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(w->either, "w");
    EXPECT_EQ(w->first, "s");
    EXPECT_EQ(w->second, "s");
}

TEST(ModelMappingContainers, ElementClassesAndDrops) {
    auto s = mapBoth(R"({"words":["a",1,null,"b",{}],
                         "children":[{"name":"one","rank":"2"},5,"x",{"name":"two"}],
                         "child":{"name":"solo"},
                         "byName":{"k":{"rank":3},"skip":4},
                         "extra":{"free":[1,{"form":true}]}})");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->words, (std::vector<std::string>{"a", "b"}));
    ASSERT_TRUE(s->children);
    ASSERT_EQ(s->children->size(), 2u);  // the number and the text are dropped
    EXPECT_EQ((*s->children)[0]->name, "one");
    EXPECT_EQ((*s->children)[0]->rank, 2);
    EXPECT_EQ((*s->children)[1]->name, "two");
    ASSERT_NE(s->child, nullptr);
    EXPECT_EQ(s->child->name, "solo");
    ASSERT_TRUE(s->byName);
    ASSERT_EQ(s->byName->size(), 1u);
    EXPECT_EQ(s->byName->at("k")->rank, 3);
    EXPECT_EQ(*s->extra, nlohmann::json::parse(R"({"free":[1,{"form":true}]})"));

    auto cleared = plyy_modelWithJSON<Sample>(R"({"children":null,"child":null,"words":"no"})");
    ASSERT_NE(cleared, nullptr);
    EXPECT_FALSE(cleared->children);
    EXPECT_EQ(cleared->child, nullptr);
    EXPECT_FALSE(cleared->words);  // text is the wrong kind for a list: unchanged (absent)
}

TEST(ModelMappingDates, FormatsByLength) {
    using namespace std::chrono;
    const auto base = sys_days(year(2021) / 3 / 4) + hours(5) + minutes(6) + seconds(7);
    EXPECT_EQ(plyy_dateFromString("2021-03-04"), PeloraYYDate(sys_days(year(2021) / 3 / 4)));
    EXPECT_EQ(plyy_dateFromString("2021-03-04T05:06:07"), base);
    EXPECT_EQ(plyy_dateFromString("2021-03-04 05:06:07"), base);
    EXPECT_EQ(plyy_dateFromString("2021-03-04T05:06:07.250"), base + milliseconds(250));
    EXPECT_EQ(plyy_dateFromString("2021-03-04T05:06:07Z"), base);
    EXPECT_EQ(plyy_dateFromString("2021-03-04T05:06:07+0100"), base - hours(1));
    EXPECT_EQ(plyy_dateFromString("2021-03-04T05:06:07.250Z"), base + milliseconds(250));
    EXPECT_EQ(plyy_dateFromString("2021-03-04T05:06:07+01:00"), base - hours(1));
    EXPECT_EQ(plyy_dateFromString("2021-03-04T05:06:07.000-0200"), base + hours(2));
    EXPECT_EQ(plyy_dateFromString("Thu Mar 04 05:06:07 +0000 2021"), base);
    EXPECT_EQ(plyy_dateFromString("Thu Mar 04 05:06:07.500 +0000 2021"), base + milliseconds(500));
    EXPECT_EQ(plyy_dateFromString("2021-03-04T05:06"), std::nullopt);
    EXPECT_EQ(plyy_dateFromString("2021-02-30"), std::nullopt);
    EXPECT_EQ(plyy_stringFromDate(base), "2021-03-04T05:06:07+0000");

    auto s = mapBoth(R"({"when":"2021-03-04 05:06:07"})");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->when, base);
    EXPECT_EQ(plyy_modelToJSONObject(*s)["when"], "2021-03-04T05:06:07+0000");
}

TEST(ModelMappingWriting, WhatIsWrittenBack) {
    Sample s;
    s.text.reset();
    s.deep = "d";
    s.either = "e";
    s.child = std::make_shared<Child>();
    s.children = std::vector<std::shared_ptr<Child>>{std::make_shared<Child>()};
    s.flag = true;
    const nlohmann::json out = plyy_modelToJSONObject(s);
    EXPECT_FALSE(out.contains("text"));  // absent text writes no key
    EXPECT_FALSE(out.contains("words"));
    EXPECT_EQ(out["i64"], 7);
    EXPECT_EQ(out["real"], 0.0);
    EXPECT_TRUE(out["flag"].is_boolean());
    EXPECT_EQ(out["a"]["b"], "d");  // key path builds nested dictionaries
    EXPECT_EQ(out["x"]["y"], "e");  // a candidate list writes under its first key
    EXPECT_EQ(out["child"], nlohmann::json::parse(R"({"rank":0})"));
    EXPECT_EQ(out["children"], nlohmann::json::parse(R"([{"rank":0}])"));
    auto bytes = plyy_modelToJSONString(s);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(nlohmann::json::parse(*bytes), out);
}

struct Hooked {
    std::optional<std::string> name;
    std::optional<std::string> hidden;
    int64_t count = 0;
    bool refuse = false;

    static std::set<std::string> modelPropertyBlacklist() { return {"hidden"}; }
    nlohmann::json modelCustomWillTransformFromDictionary(const nlohmann::json& dic) {
        if (dic.contains("wrap")) return dic["wrap"];
        return dic;
    }
    bool modelCustomTransformFromDictionary(const nlohmann::json& dic) {
        return !dic.contains("reject");
    }
    bool modelCustomTransformToDictionary(nlohmann::json& dic) const {
        dic["written"] = true;
        return !refuse;
    }
    static _PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Hooked>({PLYY_PROPERTIES(Hooked, name, hidden, count)});
    }
};

TEST(ModelMappingHooks, TransformsAndLists) {
    auto wrapped = plyy_modelWithJSON<Hooked>(R"({"wrap":{"name":"inner","hidden":"h"}})");
    ASSERT_NE(wrapped, nullptr);
    EXPECT_EQ(wrapped->name, "inner");
    EXPECT_EQ(wrapped->hidden, std::nullopt);  // blacklisted
    EXPECT_EQ(plyy_modelWithJSON<Hooked>(R"({"wrap":[1]})"), nullptr);
    EXPECT_EQ(plyy_modelWithJSON<Hooked>(R"({"name":"x","reject":1})"), nullptr);

    Hooked h;
    h.name = "n";
    EXPECT_EQ(plyy_modelToJSONObject(h)["written"], true);
    h.refuse = true;
    EXPECT_TRUE(plyy_modelToJSONObject(h).is_null());
    EXPECT_EQ(plyy_modelToJSONData(h), std::nullopt);

    auto list = plyy_modelArrayWithClass<Hooked>(std::string(R"([{"name":"a"},3,{"reject":1}])"));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0]->name, "a");
    auto map = plyy_modelDictionaryWithClass<Hooked>(std::string(R"({"k":{"count":"5"},"j":1})"));
    ASSERT_EQ(map.size(), 1u);
    EXPECT_EQ(map["k"]->count, 5);
}

TEST(ModelMappingIntake, OnlyObjectsYieldRecords) {
    std::string why;
    EXPECT_EQ(plyy_modelWithJSON<Child>(std::string("[{\"name\":\"a\"}]"), &why), nullptr);
    EXPECT_FALSE(why.empty());
    EXPECT_EQ(plyy_modelWithJSON<Child>(std::string("{\"name\":"), &why), nullptr);
    EXPECT_EQ(plyy_modelWithJSON<Child>(nlohmann::json(3)), nullptr);
    EXPECT_EQ(plyy_modelWithJSON<Child>(static_cast<const char*>(nullptr)), nullptr);
    auto fromText = plyy_modelWithJSON<Child>(nlohmann::json("{\"name\":\"t\"}"));
    ASSERT_NE(fromText, nullptr);
    EXPECT_EQ(fromText->name, "t");

    Child existing;
    existing.rank = 9;
    EXPECT_TRUE(plyy_modelSetWithJSON(existing, std::string(R"({"name":"set"})")));
    EXPECT_EQ(existing.name, "set");
    EXPECT_EQ(existing.rank, 9);
    EXPECT_FALSE(plyy_modelSetWithDictionary(existing, nlohmann::json()));
}

struct Node {
    std::shared_ptr<Node> next;
    int64_t v = 0;
    static _PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Node>({PLYY_PROPERTIES(Node, next, v)});
    }
};

TEST(ModelMappingIntake, DeepNestingIsRefusedWithAReason) {
    auto nested = [](int depth) {
        std::string s;
        for (int i = 0; i < depth; ++i) s += "{\"next\":";
        s += "{}";
        for (int i = 0; i < depth; ++i) s += "}";
        return s;
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

// ---- writing bytes directly must give the dumped dictionary's bytes ---------------------------

struct Flat {
    bool flag = false;
    int8_t i8 = 0;
    uint32_t u32 = 0;
    int64_t i64 = 0;
    uint64_t u64 = 0;
    float single = 0;
    double real = 0;
    std::optional<std::string> text;
    std::optional<std::string> first;
    std::optional<std::string> second;
    std::optional<std::vector<std::string>> words;
    std::optional<nlohmann::json> extra;
    std::optional<PeloraYYDate> when;
    std::shared_ptr<Child> child;
    std::shared_ptr<Hooked> hooked;  // written through its dictionary (write hook)
    std::optional<std::vector<std::shared_ptr<Flat>>> nested;
    std::optional<std::map<std::string, std::shared_ptr<Child>>> byName;

    static std::map<std::string, PeloraYYKeyMapping> modelCustomPropertyMapper() {
        return {{"first", std::string("shared")},
                {"second", std::string("shared")},
                {"words", std::vector<std::string>{"Words", "w"}}};
    }
    static _PeloraYYModelSchema plyy_schema() {
        using T = Flat;
        return plyy_makeSchema<T>(
            {PLYY_PROPERTIES(T, text, flag, i8, u32, i64, u64, single, real, second, first, words,
                             extra, when, child, hooked, nested, byName)});
    }
};

class Generator {
  public:
    explicit Generator(uint32_t seed) : state_(seed) {}
    uint32_t next() {
        state_ = state_ * 1664525u + 1013904223u;
        return state_ >> 8;
    }
    bool chance(int percent) { return static_cast<int>(next() % 100) < percent; }

    // Text mixing plain ASCII with everything a writer can get wrong: quotes, backslashes,
    // control characters, DEL, multi-byte UTF-8 and bytes that are not UTF-8 at all.
    std::string text() {
        static const std::vector<std::string> pieces = {
            "a",    "Zz", "0",    " ",    "\"",           "\\",       "/",          "\n",
            "\t",   "\b", "\f",   "\r",   "\x01",         "\x1f",     "\x7f",       "é",
            "中文", "😀",  "\xff", "\xc3", "\xed\xa0\x80", "\xe2\x82", "url?x=1&y=2"};
        std::string s;
        const int n = static_cast<int>(next() % 8);
        for (int i = 0; i < n; ++i) s += pieces[next() % pieces.size()];
        return s;
    }
    double real() {
        static const double special[] = {0.0,
                                         -0.0,
                                         1.0,
                                         -3.0,
                                         0.1,
                                         1.5,
                                         1e15,
                                         999999999999999.0,
                                         1e16,
                                         -1e15,
                                         1e-5,
                                         1e300,
                                         5e-324,
                                         std::numeric_limits<double>::infinity(),
                                         std::numeric_limits<double>::quiet_NaN(),
                                         123456.789};
        if (chance(50)) return special[next() % std::size(special)];
        return (static_cast<double>(next()) - 8e6) / static_cast<double>(1 + next() % 1000);
    }
    std::optional<std::string> maybeText() {
        return chance(70) ? std::optional<std::string>(text()) : std::nullopt;
    }

    std::shared_ptr<Flat> flat(int depth) {
        auto f = std::make_shared<Flat>();
        f->flag = chance(50);
        f->i8 = static_cast<int8_t>(next());
        f->u32 = next() * 977u;
        f->i64 = chance(20) ? std::numeric_limits<int64_t>::min()
                            : static_cast<int64_t>(next()) - (1 << 23);
        f->u64 = chance(20) ? std::numeric_limits<uint64_t>::max() : next();
        f->single = static_cast<float>(real());
        f->real = real();
        f->text = maybeText();
        f->first = maybeText();
        f->second = maybeText();
        if (chance(60)) f->words = std::vector<std::string>{text(), text()};
        if (chance(40)) {
            f->extra = chance(20) ? nlohmann::json()
                                  : nlohmann::json{{"k", text()}, {"n", real()}, {"b", true}};
        }
        if (chance(40)) f->when = PeloraYYDate(std::chrono::seconds(next()));
        if (chance(50)) {
            f->child = std::make_shared<Child>();
            f->child->name = maybeText();
        }
        if (chance(30)) {
            f->hooked = std::make_shared<Hooked>();
            f->hooked->name = maybeText();
            f->hooked->refuse = chance(50);
        }
        if (depth < 2 && chance(50)) {
            f->nested =
                std::vector<std::shared_ptr<Flat>>{flat(depth + 1), nullptr, flat(depth + 1)};
        }
        if (chance(40)) {
            f->byName = std::map<std::string, std::shared_ptr<Child>>{
                {text(), std::make_shared<Child>()}, {"z", nullptr}};
        }
        return f;
    }

  private:
    uint32_t state_;
};

TEST(ModelMappingWriting, BytesAreTheDumpedDictionary) {
    Generator gen(20261122);
    for (int i = 0; i < 3000; ++i) {
        auto f = gen.flat(0);
        const nlohmann::json dictionary = plyy_modelToJSONObject(*f);
        ASSERT_TRUE(dictionary.is_object());
        const auto bytes = plyy_modelToJSONData(*f);
        ASSERT_TRUE(bytes);
        ASSERT_EQ(*bytes, _plyy_dumpJSON(dictionary)) << "record " << i;
    }
    // Records with key paths or a write hook are written through their dictionary.
    Sample s;
    s.deep = "d";
    EXPECT_EQ(plyy_modelToJSONData(s), _plyy_dumpJSON(plyy_modelToJSONObject(s)));
    Hooked refused;
    refused.refuse = true;
    EXPECT_EQ(plyy_modelToJSONData(refused), std::nullopt);
}

TEST(ModelMappingWriting, VisitedValuesAreTheDictionarysInItsOrder) {
    Generator gen(7);
    for (int i = 0; i < 500; ++i) {
        auto f = gen.flat(1);
        nlohmann::json rebuilt = nlohmann::json::object();
        std::vector<std::string> order;
        ASSERT_TRUE(plyy_modelVisitValues(*f, [&](std::string_view key, const PeloraYYValueRef& v) {
            order.emplace_back(key);
            nlohmann::json& slot = rebuilt[std::string(key)];
            if (v.text) {
                slot = *v.text;
            } else if (v.type == PeloraYYEncodingType::Bool) {
                slot = v.number.i != 0;
            } else if (v.type > PeloraYYEncodingType::Double) {
                slot = v.other;
            } else if (v.number.kind == PeloraYYNumber::Int) {
                slot = v.number.i;
            } else if (v.number.kind == PeloraYYNumber::UInt) {
                slot = v.number.u;
            } else {
                slot = v.number.d;
            }
        }));
        const nlohmann::json dictionary = plyy_modelToJSONObject(*f);
        ASSERT_EQ(_plyy_dumpJSON(rebuilt), _plyy_dumpJSON(dictionary)) << "record " << i;
        std::vector<std::string> dictionaryOrder;
        for (const auto& item : dictionary.items()) dictionaryOrder.push_back(item.key());
        EXPECT_EQ(order, dictionaryOrder);
    }
    Sample withKeyPaths;
    EXPECT_FALSE(plyy_modelVisitValues(withKeyPaths, [](std::string_view, const auto&) {}));
}

}  // namespace
