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

// Everything the loader does to a view of a registered class, in order.
std::vector<std::string>* gEvents = nullptr;

class RecordingRoot : public View {
  public:
    std::string className() const override { return "RecordingRoot"; }
    void setOutlet(const std::string& name, std::shared_ptr<View> view) override {
        if (gEvents) gEvents->push_back("outlet " + name);
        View::setOutlet(name, std::move(view));
    }
    void awakeFromNib() override {
        if (gEvents)
            gEvents->push_back("awake root, outlets ready: " +
                               std::string(outlet("title") ? "yes" : "no"));
        ++awakeCount;
    }
    int awakeCount = 0;
};

class RecordingLabel : public Label {
  public:
    void awakeFromNib() override {
        if (gEvents) gEvents->push_back("awake label " + text().value_or(""));
    }
};

NibValue str(const std::string& s) {
    return NibValue::makeString(s);
}
NibValue num(double d) {
    return NibValue::makeNumber(d);
}
NibValue array(std::vector<NibValue> values) {
    NibValue v;
    v.kind = NibValue::Kind::Array;
    v.array = std::move(values);
    return v;
}
NibValue object(std::map<std::string, NibValue> values) {
    NibValue v;
    v.kind = NibValue::Kind::Object;
    v.object = std::move(values);
    return v;
}

class NibLoaderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        gEvents = &events;
        NibLoader::registerClass("RecordingRoot", [] { return std::make_shared<RecordingRoot>(); });
        NibLoader::registerClass("RecordingLabel",
                                 [] { return std::make_shared<RecordingLabel>(); });
    }
    void TearDown() override {
        gEvents = nullptr;
        NibLoader::registerClass("RecordingRoot", nullptr);
        NibLoader::registerClass("RecordingLabel", nullptr);
    }

    std::vector<std::string> events;
};

TEST_F(NibLoaderTest, BuildsTheTreeWithFramesPropertiesAndOrder) {
    NibNode root{.className = "View", .frame = makeRect(0, 0, 320, 480)};
    root.properties = {{"backgroundColor", str("#FF800040")},
                       {"cornerRadius", num(8)},
                       {"clipsToBounds", NibValue::makeBool(true)},
                       {"tag", num(7)}};
    NibNode image{.className = "ImageView", .frame = makeRect(0, 0, 320, 400)};
    image.properties = {{"contentMode", num(2)},
                        {"userInteractionEnabled", NibValue::makeBool(true)},
                        {"image", str("hero")}};
    NibNode label{.className = "Label", .frame = makeRect(10, 410, 300, 30)};
    label.properties = {{"text", str("Hello")},
                        {"fontSize", num(21)},
                        {"textAlignment", str("center")},
                        {"numberOfLines", num(0)},
                        {"textColor", array({num(1), num(0), num(0)})},
                        {"hidden", NibValue::makeBool(true)},
                        {"alpha", num(0.5)}};
    NibNode button{.className = "Button", .frame = makeRect(250, 440, 60, 30)};
    button.properties = {
        {"titles", object({{"normal", str("Skip")}, {"highlighted", str("Skip!")}})},
        {"titleColors", object({{"normal", array({num(1), num(1), num(1), num(1)})}})},
        {"images", object({{"normal", str("bu_skip")}, {"selected", str("missing")}})},
        {"titleFontSize", num(13)},
        {"enabled", NibValue::makeBool(false)}};
    root.subviews = {image, label, button};

    std::vector<std::string> asked;
    auto provider = [&](const std::string& name) -> std::shared_ptr<pelora::platform::Image> {
        asked.push_back(name);
        if (name == "missing") return nullptr;
        auto img = std::make_shared<pelora::platform::Image>();
        img->name = name;
        return img;
    };
    std::string error;
    auto view = NibLoader::instantiate(root, provider, &error);
    ASSERT_TRUE(view) << error;
    EXPECT_EQ(view->frame(), makeRect(0, 0, 320, 480));
    EXPECT_EQ(view->backgroundColor(), Color::rgba(1, 128 / 255.0, 0, 64 / 255.0));
    EXPECT_EQ(view->cornerRadius(), 8);
    EXPECT_TRUE(view->clipsToBounds());
    EXPECT_EQ(view->tag(), 7);
    ASSERT_EQ(view->subviews().size(), 3u);

    auto imageView = std::dynamic_pointer_cast<ImageView>(view->subviews()[0]);
    ASSERT_TRUE(imageView);
    EXPECT_EQ(imageView->contentMode(), ContentMode::ScaleAspectFill);
    EXPECT_TRUE(imageView->userInteractionEnabled());
    ASSERT_TRUE(imageView->image());
    EXPECT_EQ(imageView->image()->name, "hero");

    auto labelView = std::dynamic_pointer_cast<Label>(view->subviews()[1]);
    ASSERT_TRUE(labelView);
    EXPECT_EQ(labelView->frame(), makeRect(10, 410, 300, 30));
    EXPECT_EQ(labelView->text(), "Hello");
    EXPECT_EQ(labelView->fontSize(), 21);
    EXPECT_EQ(labelView->textAlignment(), TextAlignment::Center);
    EXPECT_EQ(labelView->numberOfLines(), 0);
    EXPECT_EQ(labelView->textColor(), Color::rgba(1, 0, 0, 1));
    EXPECT_TRUE(labelView->hidden());
    EXPECT_EQ(labelView->alpha(), 0.5);
    EXPECT_EQ(labelView->superview(), view);

    auto buttonView = std::dynamic_pointer_cast<Button>(view->subviews()[2]);
    ASSERT_TRUE(buttonView);
    EXPECT_EQ(buttonView->titleForState(ControlState::Normal), "Skip");
    EXPECT_EQ(buttonView->titleForState(ControlState::Highlighted), "Skip!");
    EXPECT_EQ(buttonView->titleColorForState(ControlState::Normal), Color::white());
    ASSERT_TRUE(buttonView->imageForState(ControlState::Normal));
    EXPECT_EQ(buttonView->imageForState(ControlState::Normal)->name, "bu_skip");
    EXPECT_EQ(buttonView->titleFontSize(), 13);
    EXPECT_FALSE(buttonView->enabled());
    EXPECT_EQ(asked, (std::vector<std::string>{"hero", "bu_skip", "missing"}));
}

TEST_F(NibLoaderTest, DeliversOutletsToTheRootAndWakesChildrenFirst) {
    NibNode root{.className = "RecordingRoot"};
    NibNode title{.className = "RecordingLabel", .outlet = "title"};
    title.properties = {{"text", str("T")}};
    NibNode box{.className = "View", .outlet = "box"};
    NibNode inner{.className = "RecordingLabel", .outlet = "inner"};
    inner.properties = {{"text", str("I")}};
    box.subviews = {inner};
    root.subviews = {title, box};

    auto view = NibLoader::instantiate(root);
    ASSERT_TRUE(view);
    auto recording = std::dynamic_pointer_cast<RecordingRoot>(view);
    ASSERT_TRUE(recording);
    EXPECT_EQ(recording->awakeCount, 1);
    EXPECT_EQ(events, (std::vector<std::string>{"outlet title", "outlet box", "outlet inner",
                                                "awake label T", "awake label I",
                                                "awake root, outlets ready: yes"}));
    // An outlet is the view in the tree, named for lookups, nested or not.
    EXPECT_EQ(recording->outlet("title"), view->subviews()[0]);
    EXPECT_EQ(recording->outlet("inner"), view->subviews()[1]->subviews()[0]);
    EXPECT_EQ(view->viewWithAccessibilityIdentifier("inner"), recording->outlet("inner"));
    EXPECT_FALSE(recording->outlet("nothing"));
}

TEST_F(NibLoaderTest, UnknownClassesYieldNothingAndWakeNothing) {
    NibNode root{.className = "RecordingRoot"};
    NibNode label{.className = "RecordingLabel", .outlet = "title"};
    NibNode strange{.className = "NoSuchView", .outlet = "strange"};
    root.subviews = {label, strange};
    std::string error;
    EXPECT_FALSE(NibLoader::instantiate(root, nullptr, &error));
    EXPECT_NE(error.find("NoSuchView"), std::string::npos) << error;
    EXPECT_TRUE(events.empty());

    EXPECT_FALSE(NibLoader::instantiate(NibNode{.className = "PeloraNotRegistered"}));
    EXPECT_FALSE(NibLoader::isClassRegistered("PeloraNotRegistered"));

    // A factory that yields nothing counts as unknown.
    NibLoader::registerClass("Broken", [] { return std::shared_ptr<View>(); });
    EXPECT_FALSE(NibLoader::instantiate(NibNode{.className = "Broken"}, nullptr, &error));
    NibLoader::registerClass("Broken", nullptr);
    EXPECT_FALSE(NibLoader::isClassRegistered("Broken"));
}

TEST_F(NibLoaderTest, RegisteringAgainReplacesTheFactory) {
    int made = 0;
    NibLoader::registerClass("RecordingRoot", [&] {
        ++made;
        return std::make_shared<RecordingRoot>();
    });
    EXPECT_TRUE(NibLoader::instantiate(NibNode{.className = "RecordingRoot"}));
    EXPECT_EQ(made, 1);
}

TEST_F(NibLoaderTest, IgnoresPropertiesOfTheWrongTypeOrClass) {
    NibNode root{.className = "Label"};
    root.properties = {{"hidden", str("yes")},
                       {"alpha", str("0.2")},
                       {"backgroundColor", array({num(1), str("x"), num(0)})},
                       {"fontSize", num(-3)},
                       {"textAlignment", str("diagonal")},
                       {"titles", object({{"normal", str("not a button")}})},
                       {"contentMode", num(99)},
                       {"noSuchProperty", num(1)}};
    auto view = NibLoader::instantiate(root);
    ASSERT_TRUE(view);
    auto label = std::dynamic_pointer_cast<Label>(view);
    ASSERT_TRUE(label);
    EXPECT_FALSE(label->hidden());
    EXPECT_EQ(label->alpha(), 1.0);
    EXPECT_EQ(label->backgroundColor(), Color::clear());
    EXPECT_EQ(label->fontSize(), 17);
    EXPECT_EQ(label->textAlignment(), TextAlignment::Left);
    EXPECT_EQ(label->contentMode(), ContentMode::ScaleToFill);
    EXPECT_FALSE(label->text());
}

}  // namespace
