// Frames are drawn when the tree changed and only then: counted over simulated time on the
// manual clock.

#include <gtest/gtest.h>

#include "TestPlatform.h"
#include "pelora/desktop/FramePresenter.h"
#include "pelora/ui/UI.h"

namespace {

namespace ui = pelora::ui;
namespace desktop = pelora::desktop;
namespace platform = pelora::platform;
using pelora::testing::TestPlatform;
using platform::makeRect;

struct PresenterFixture : ::testing::Test {
    TestPlatform tp{TestPlatform::NetworkKind::Fake};
    std::shared_ptr<ui::Window> window = std::make_shared<ui::Window>(makeRect(0, 0, 100, 50));
    std::shared_ptr<ui::Label> label = std::make_shared<ui::Label>(makeRect(0, 0, 100, 50));
    std::vector<uint64_t> revisions;  // of the frames the sink received

    void SetUp() override {
        window->setBackgroundColor(ui::Color::white());
        label->setText("5");
        window->addSubview(label);
    }
    std::unique_ptr<desktop::FramePresenter> presenter() {
        return std::make_unique<desktop::FramePresenter>(
            window, *tp.loop, 2,
            [this](const desktop::RenderedFrame& f) { revisions.push_back(f.revision); });
    }
};

TEST_F(PresenterFixture, IdleTreeRendersNoFrameOverTenSimulatedSeconds) {
    auto p = presenter();
    EXPECT_TRUE(revisions.empty());  // drawn on the loop's turn, not inside the constructor
    tp.pump();
    ASSERT_EQ(revisions.size(), 1u);
    for (int i = 0; i < 600; ++i) tp.advance(1.0 / 60);  // ten seconds of 60 Hz frames
    EXPECT_EQ(revisions.size(), 1u);
    EXPECT_EQ(p->renderer().framesRendered(), 1u);
    EXPECT_EQ(tp.loop->nextTimerDelay(), -1.0) << "an idle window schedules nothing";
}

TEST_F(PresenterFixture, ChangesInOneTurnCostOneFrameAndEachTickItsOwn) {
    auto p = presenter();
    tp.pump();
    // A countdown: once a second for three seconds, a tick changes the label and its colour.
    int left = 5;
    auto timer = tp.loop->scheduleTimer(1.0, true, [&](platform::Timer& t) {
        --left;
        label->setText(std::to_string(left));
        label->setTextColor(left % 2 ? ui::Color::black() : ui::Color::rgba(0.2, 0.2, 0.2));
        if (left == 2) t.invalidate();
    });
    for (int i = 0; i < 10 * 60; ++i) tp.advance(1.0 / 60);
    EXPECT_EQ(revisions.size(), 4u);  // the first picture and three ticks
    EXPECT_EQ(p->lastFrame().revision, window->displayRevision());
    // Changes that undo each other in one turn still draw once; setting what is already
    // there draws nothing.
    label->setHidden(true);
    label->setHidden(false);
    tp.pump();
    label->setText("2");
    tp.pump();
    EXPECT_EQ(revisions.size(), 5u);
}

TEST_F(PresenterFixture, PostedDrawingOfAGonePresenterDoesNothing) {
    auto p = presenter();
    p.reset();
    label->setText("4");
    tp.pump();
    EXPECT_TRUE(revisions.empty());
}

}  // namespace
