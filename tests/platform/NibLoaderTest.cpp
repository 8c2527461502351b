// Building view trees from interface-file nodes: classes through the registry, frames,
// properties, outlets delivered to the root and the wake-up order.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pelora/ui/Button.h"
#include "pelora/ui/ImageView.h"
#include "pelora/ui/Label.h"
#include "pelora/ui/NibLoader.h"

namespace {

using namespace pelora::ui;
using pelora::platform::makeRect;

const auto str = [](std::string s) { return NibValue::makeString(std::move(s)); };
const auto num = [](double d) { return NibValue::makeNumber(d); };
const auto array = [](std::vector<NibValue> v) {
    return NibValue{.kind = NibValue::Kind::Array, .array = std::move(v)};
};
const auto object = [](std::map<std::string, NibValue> v) {
    return NibValue{.kind = NibValue::Kind::Object, .object = std::move(v)};
};

TEST(NibLoaderTest, BuildsTheTreeWithFramesPropertiesAndOrder) {
    const NibValue yes = NibValue::makeBool(true), no = NibValue::makeBool(false);
    NibNode root{.className = "View", .frame = makeRect(0, 0, 320, 480)};
    root.properties = {{"backgroundColor", str("#FF800040")},
                       {"cornerRadius", num(8)},
                       {"clipsToBounds", yes},
                       {"tag", num(7)}};
    NibNode image{.className = "ImageView", .frame = makeRect(0, 0, 320, 400)};
    image.properties = {
        {"contentMode", num(2)}, {"userInteractionEnabled", yes}, {"image", str("hero")}};
    NibNode label{.className = "Label", .frame = makeRect(10, 410, 300, 30)};
    label.properties = {{"text", str("Hello")},
                        {"fontSize", num(21)},
                        {"textAlignment", str("center")},
                        {"numberOfLines", num(0)},
                        {"textColor", array({num(1), num(0), num(0)})},
                        {"hidden", yes},
                        {"alpha", num(0.5)}};
    NibNode button{.className = "Button", .frame = makeRect(250, 440, 60, 30)};
    button.properties = {
        {"titles", object({{"normal", str("Skip")}, {"highlighted", str("Skip!")}})},
        {"titleColors", object({{"normal", array({num(1), num(1), num(1), num(1)})}})},
        {"images", object({{"normal", str("bu_skip")}, {"selected", str("missing")}})},
        {"titleFontSize", num(13)},
        {"enabled", no}};
    root.subviews = {image, label, button};
    auto provider = [](const std::string& name) -> std::shared_ptr<pelora::platform::Image> {
        auto img = std::make_shared<pelora::platform::Image>();
        img->name = name;
        return name == "missing" ? nullptr : img;
    };
    std::string error;
    auto view = NibLoader::instantiate(root, provider, &error);
    ASSERT_TRUE(view) << error;
    EXPECT_EQ(view->describeTree(),
              "View frame=(0,0,320,480) tag=7\n"
              "  ImageView frame=(0,0,320,400) image=hero 0x0@1\n"
              "  Label frame=(10,410,300,30) hidden alpha=0.5 noninteractive text=\"Hello\"\n"
              "  Button frame=(250,440,60,30) title=\"Skip\" image=bu_skip disabled\n");
    EXPECT_EQ(view->backgroundColor(), Color::rgba(1, 128 / 255.0, 0, 64 / 255.0));
    EXPECT_EQ(std::pair(view->cornerRadius(), view->clipsToBounds()), std::pair(8.0, true));
    auto imageView = std::dynamic_pointer_cast<ImageView>(view->subviews()[0]);
    EXPECT_EQ(imageView->contentMode(), ContentMode::ScaleAspectFill);
    auto labelView = std::dynamic_pointer_cast<Label>(view->subviews()[1]);
    EXPECT_EQ(
        std::tuple(labelView->fontSize(), labelView->textAlignment(), labelView->numberOfLines()),
        std::tuple(21.0, TextAlignment::Center, 0));
    EXPECT_EQ(labelView->textColor(), Color::rgba(1, 0, 0, 1));
    auto buttonView = std::dynamic_pointer_cast<Button>(view->subviews()[2]);
    EXPECT_EQ(buttonView->titleForState(ControlState::Highlighted), "Skip!");
    EXPECT_EQ(buttonView->titleColorForState(ControlState::Normal), Color::white());
    EXPECT_EQ(buttonView->titleFontSize(), 13);
}

std::vector<std::string> events;  // what the loader did to views of the recording classes

struct RecordingRoot : View {
    std::string className() const override { return "RecordingRoot"; }
    void setOutlet(const std::string& name, std::shared_ptr<View> view) override {
        events.push_back("outlet " + name);
        View::setOutlet(name, std::move(view));
    }
    void awakeFromNib() override {
        events.push_back(std::string("awake root, outlets ") + (outlet("title") ? "ready" : "not"));
    }
};
struct RecordingLabel : Label {
    void awakeFromNib() override { events.push_back("awake label " + text().value_or("")); }
};

TEST(NibLoaderTest, BuildsRegisteredClassesDeliversOutletsToTheRootAndWakesChildrenFirst) {
    NibLoader::registerClass("RecordingRoot", [] { return std::make_shared<RecordingRoot>(); });
    NibLoader::registerClass("RecordingLabel", [] { return std::make_shared<RecordingLabel>(); });
    NibNode inner{
        .className = "RecordingLabel", .outlet = "inner", .properties = {{"text", str("I")}}};
    NibNode root{
        .className = "RecordingRoot",
        .subviews = {
            {.className = "RecordingLabel", .outlet = "title", .properties = {{"text", str("T")}}},
            {.className = "View", .outlet = "box", .subviews = {inner}}}};
    NibNode strange = root;
    strange.subviews.push_back({.className = "NoSuchView"});
    EXPECT_FALSE(NibLoader::instantiate(strange));
    EXPECT_TRUE(events.empty()) << "nothing is woken in a tree that is not built";

    auto view = NibLoader::instantiate(root);
    ASSERT_TRUE(std::dynamic_pointer_cast<RecordingRoot>(view));
    EXPECT_EQ(events, (std::vector<std::string>{"outlet title", "outlet box", "outlet inner",
                                                "awake label T", "awake label I",
                                                "awake root, outlets ready"}));
    // An outlet is the view in the tree, named for lookups, nested or not.
    EXPECT_EQ(view->outlet("inner"), view->subviews()[1]->subviews()[0]);
    EXPECT_EQ(view->viewWithAccessibilityIdentifier("inner"), view->outlet("inner"));
}

}  // namespace
