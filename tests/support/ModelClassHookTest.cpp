#include <gtest/gtest.h>

#include "support/PeloraYYModel.h"

namespace {

struct Shape {
    virtual ~Shape() = default;
    std::optional<std::string> kind;
    int64_t side = 0;

    static PeloraYYModelClass<Shape> modelCustomClassForDictionary(const nlohmann::json& dic);
    static PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Shape>({PLYY_PROPERTIES(Shape, kind, side)});
    }
};

// Label comes first and is polymorphic too, so Shape's part sits inside a Circle at an offset.
struct Label {
    virtual ~Label() = default;
    std::optional<std::string> caption = std::string("untitled");
};
struct Circle : Label, Shape {
    double radius = 0;
    // The chosen type's own hooks apply to the record built.
    bool modelCustomTransformFromDictionary(const nlohmann::json&) { return radius >= 0; }
    static PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Circle>({PLYY_PROPERTIES(Circle, kind, side, caption, radius)});
    }
};

PeloraYYModelClass<Shape> Shape::modelCustomClassForDictionary(const nlohmann::json& dic) {
    const auto kind = dic.value("kind", std::string());
    if (kind == "circle") return PeloraYYModelClass<Shape>::of<Circle>();
    if (kind == "plain") return PeloraYYModelClass<Shape>::of<Shape>();
    return {};
}

struct Drawing {
    std::shared_ptr<Shape> main;
    std::optional<std::vector<std::shared_ptr<Shape>>> shapes;
    std::optional<std::map<std::string, std::shared_ptr<Shape>>> named;
    static PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Drawing>({PLYY_PROPERTIES(Drawing, main, shapes, named)});
    }
};

// What was built, with the fields of the type it was built as.
std::string describe(const std::shared_ptr<Shape>& s) {
    if (!s) return "null";
    const std::string common = s->kind.value_or("-") + " " + std::to_string(s->side);
    if (auto c = std::dynamic_pointer_cast<Circle>(s))
        return "Circle " + common + " " + c->caption.value_or("-") +
               " r=" + std::to_string(c->radius);
    return "Shape " + common;
}

std::string describe(const std::pair<const std::string, std::shared_ptr<Shape>>& named) {
    return describe(named.second);
}

template <class Container>
std::string describeAll(const Container& shapes) {
    std::string out;
    for (const auto& one : shapes) out += describe(one) + "; ";
    return out;
}

const std::string kCircle = R"({"kind":"circle","side":1,"radius":2.5,"caption":"c"})";
const std::string kOther = R"({"kind":"hexagon","side":6,"radius":9})";
const std::string kPlain = R"({"kind":"plain","side":2,"radius":3})";
const std::string kNegative = R"({"kind":"circle","radius":-1})";

// A record, a list and a dictionary of records, and a record's record, list and dictionary
// properties, each from bytes and from a parsed dictionary: every one builds what the hook
// picks (a type it does not know, or the requested type itself, builds the requested type).
TEST(ModelClassHook, TheHookPicksTheTypeOnEveryIntake) {
    const std::string built = "Circle circle 1 c r=2.500000; Shape hexagon 6; Shape plain 2; ";
    const std::string list = "[" + kCircle + "," + kOther + "," + kPlain + ",7]";
    const std::string named =
        R"({"a":)" + kCircle + R"(,"b":)" + kOther + R"(,"c":)" + kPlain + R"(,"d":7})";
    const std::string drawing =
        R"({"main":)" + kCircle + R"(,"shapes":)" + list + R"(,"named":)" + named + "}";
    for (bool bytes : {true, false}) {
        SCOPED_TRACE(bytes ? "bytes" : "dictionary");
        auto parse = [&](const std::string& text) {
            return bytes ? nlohmann::json(text) : nlohmann::json::parse(text);
        };
        std::vector<std::shared_ptr<Shape>> records;
        for (const auto& text : {kCircle, kOther, kPlain})
            records.push_back(plyy_modelWithJSON<Shape>(parse(text)));
        EXPECT_EQ(describeAll(records), built);
        EXPECT_EQ(describeAll(plyy_modelArrayWithClass<Shape>(parse(list))), built);
        EXPECT_EQ(describeAll(plyy_modelDictionaryWithClass<Shape>(parse(named))), built);
        auto d = plyy_modelWithJSON<Drawing>(parse(drawing));
        ASSERT_TRUE(d && d->shapes && d->named);
        EXPECT_EQ(describe(d->main), "Circle circle 1 c r=2.500000");
        EXPECT_EQ(describeAll(*d->shapes), built);
        EXPECT_EQ(describeAll(*d->named), built);
    }
    // The chosen type's hook refuses the record, so a list skips it.
    std::string why;
    EXPECT_EQ(plyy_modelWithJSON<Shape>(kNegative, &why), nullptr);
    EXPECT_FALSE(why.empty());
    EXPECT_TRUE(plyy_modelArrayWithClass<Shape>("[" + kNegative + "]").empty());
    // An integer beyond 64 bits sends the bytes through the general parser; the hook still picks.
    const std::string big = R"({"kind":"circle","radius":2.5,"n":100000000000000000000})";
    EXPECT_EQ(describe(plyy_modelWithJSON<Shape>(big)), "Circle circle 0 untitled r=2.500000");
    // Asked for directly, the subtype maps as itself: the base's hook answers for Shape only.
    EXPECT_EQ(describe(plyy_modelWithJSON<Circle>(kOther)), "Circle hexagon 6 untitled r=9.000000");
}

}  // namespace
