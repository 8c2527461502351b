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

struct Circle : Shape {
    double radius = 0;
    // The chosen type's own hooks apply to the record built.
    bool modelCustomTransformFromDictionary(const nlohmann::json&) { return radius >= 0; }
    static PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Circle>({PLYY_PROPERTIES(Circle, kind, side, radius)});
    }
};

// Label comes first and is polymorphic too, so Shape's part sits inside a Square at an offset.
struct Label {
    virtual ~Label() = default;
    std::optional<std::string> caption = std::string("untitled");
};
struct Square : Label, Shape {
    std::optional<std::string> colour;
    static PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Square>({PLYY_PROPERTIES(Square, kind, side, caption, colour)});
    }
};

PeloraYYModelClass<Shape> Shape::modelCustomClassForDictionary(const nlohmann::json& dic) {
    const auto kind = dic.value("kind", std::string());
    if (kind == "circle") return PeloraYYModelClass<Shape>::of<Circle>();
    if (kind == "square") return PeloraYYModelClass<Shape>::of<Square>();
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
        return "Circle " + common + " r=" + std::to_string(c->radius);
    if (auto q = std::dynamic_pointer_cast<Square>(s))
        return "Square " + common + " " + q->caption.value_or("-") + " " + q->colour.value_or("-");
    return "Shape " + common;
}

const std::string kCircle = R"({"kind":"circle","side":1,"radius":2.5})";
const std::string kSquare = R"({"kind":"square","side":4,"colour":"red","caption":"box"})";
const std::string kOther = R"({"kind":"hexagon","side":6,"radius":9})";
const std::string kPlain = R"({"kind":"plain","side":2,"colour":"blue"})";
const std::string kNegative = R"({"kind":"circle","radius":-1})";
const std::string kCircleShape = "Circle circle 1 r=2.500000";
const std::string kSquareShape = "Square square 4 box red";

// Bytes, a parsed dictionary and a JSON text value; no hook choice or the requested type itself
// builds the requested type.
TEST(ModelClassHook, TheHookPicksTheTypeOnEveryIntake) {
    Square probe;
    ASSERT_NE(static_cast<void*>(static_cast<Shape*>(&probe)), static_cast<void*>(&probe));
    // An integer beyond 64 bits sends the bytes through the general parser.
    const std::pair<std::string, std::string> cases[] = {
        {kCircle, kCircleShape},
        {kSquare, kSquareShape},
        {kOther, "Shape hexagon 6"},
        {kPlain, "Shape plain 2"},
        {R"({"side":3})", "Shape - 3"},
        {kNegative, "null"},
        {R"({"kind":"circle","side":1,"radius":100000000000000000000})",
         "Circle circle 1 r=100000000000000000000.000000"}};
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(describe(plyy_modelWithJSON<Shape>(text)), expected) << text;
        EXPECT_EQ(describe(plyy_modelWithDictionary<Shape>(nlohmann::json::parse(text))), expected)
            << text;
        EXPECT_EQ(describe(plyy_modelWithJSON<Shape>(nlohmann::json(text))), expected) << text;
    }
    std::string why;
    EXPECT_EQ(plyy_modelWithJSON<Shape>(kNegative, &why), nullptr);
    EXPECT_FALSE(why.empty());
    // Asked for directly, the subtype maps as itself: the base's hook answers for Shape only.
    EXPECT_EQ(describe(plyy_modelWithJSON<Circle>(kSquare)), "Circle square 4 r=0.000000");
}

TEST(ModelClassHook, ListsDictionariesNestedRecordsAndTheirElements) {
    const std::string list = "[" + kCircle + "," + kSquare + "," + kOther + "," + kNegative + ",7]";
    for (const auto& shapes : {plyy_modelArrayWithClass<Shape>(list),
                               plyy_modelArrayWithClass<Shape>(nlohmann::json::parse(list))}) {
        ASSERT_EQ(shapes.size(), 3u);  // the refused circle and the number are skipped
        EXPECT_EQ(describe(shapes[0]), kCircleShape);
        EXPECT_EQ(describe(shapes[1]), kSquareShape);
        EXPECT_EQ(describe(shapes[2]), "Shape hexagon 6");
    }
    const std::string dict =
        R"({"c":)" + kCircle + R"(,"s":)" + kSquare + R"(,"o":)" + kOther + "}";
    for (auto named : {plyy_modelDictionaryWithClass<Shape>(dict),
                       plyy_modelDictionaryWithClass<Shape>(nlohmann::json::parse(dict))}) {
        ASSERT_EQ(named.size(), 3u);
        EXPECT_EQ(describe(named["c"]), kCircleShape);
        EXPECT_EQ(describe(named["s"]), kSquareShape);
        EXPECT_EQ(describe(named["o"]), "Shape hexagon 6");
    }
    const std::string text = R"({"main":)" + kSquare + R"(,"shapes":[)" + kOther + "," + kCircle +
                             R"(],"named":{"x":)" + kCircle + R"(,"y":)" + kPlain + "}}";
    for (auto drawing : {plyy_modelWithJSON<Drawing>(text),
                         plyy_modelWithDictionary<Drawing>(nlohmann::json::parse(text))}) {
        ASSERT_NE(drawing, nullptr);
        EXPECT_EQ(describe(drawing->main), kSquareShape);
        ASSERT_TRUE(drawing->shapes && drawing->named);
        ASSERT_EQ(drawing->shapes->size(), 2u);
        EXPECT_EQ(describe((*drawing->shapes)[0]), "Shape hexagon 6");
        EXPECT_EQ(describe((*drawing->shapes)[1]), kCircleShape);
        EXPECT_EQ(describe(drawing->named->at("x")), kCircleShape);
        EXPECT_EQ(describe(drawing->named->at("y")), "Shape plain 2");
    }
}

}  // namespace
