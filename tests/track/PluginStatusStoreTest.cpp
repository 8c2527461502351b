#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "track/PeloraPluginStatusStore.h"

TEST(PluginStatusStore, ExportsTheSevenEventNames) {
    EXPECT_STREQ(kPlayerStatusStart, "StatusStart");
    EXPECT_STREQ(kPlayerStatusPlayError, "StatusPlayError");
    EXPECT_STREQ(kPlayerStatusPlayFinish, "PlayFinish");
    EXPECT_STREQ(kAdExpose, "kAdExpose");
    EXPECT_STREQ(kAdClick, "kAdClick");
    EXPECT_STREQ(kAdTapClose, "kAdTapClose");
    EXPECT_STREQ(kAdTapSkip, "kAdTapSkip");
}

TEST(PluginStatusStore, RunsTasksInOrderOnEveryTrigger) {
    auto store = PeloraPluginStatusStore::init();
    EXPECT_EQ(store->mDic(), nullptr);  // nothing until first touched
    std::vector<std::string> ran;
    auto first = [&] { ran.push_back("first"); };
    store->addEvent(kPlayerStatusPlayFinish, first);
    store->addEvent(kPlayerStatusPlayFinish, [&] { ran.push_back("second"); });
    store->addEvent(kPlayerStatusPlayFinish, first);  // no de-duplication
    store->addEvent(kAdClick, [&] { ran.push_back("click"); });

    store->triggerEvent(kPlayerStatusPlayFinish);
    EXPECT_EQ(ran, (std::vector<std::string>{"first", "second", "first"}));
    store->triggerEvent(kPlayerStatusPlayFinish);
    EXPECT_EQ(ran.size(), 6u);
    store->triggerEvent("playfinish");  // names are exact
    EXPECT_EQ(ran.size(), 6u);
}

TEST(PluginStatusStore, AutoDeleteDropsTheListAfterItRan) {
    PeloraPluginStatusStore store;
    store.setAutoDeleteAfterTrigger(true);
    int runs = 0;
    store.addEvent(kAdTapClose, [&] { ++runs; });
    store.triggerEvent(kAdTapClose);
    store.triggerEvent(kAdTapClose);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(store.mDic()->count(kAdTapClose), 0u);
}

TEST(PluginStatusStore, EmptyNamesAndAbsentTasksAreIgnored) {
    PeloraPluginStatusStore store;
    store.addEvent(std::nullopt, [] {});
    store.addEvent(std::string(), [] {});
    store.addEvent(kAdExpose, nullptr);
    EXPECT_EQ(store.mDic(), nullptr);
}

TEST(PluginStatusStore, LookupsAndUnknownTriggersLeaveAnEmptyList) {
    PeloraPluginStatusStore store;
    store.triggerEvent(kAdTapSkip);
    ASSERT_NE(store.mDic(), nullptr);
    ASSERT_EQ(store.mDic()->count(kAdTapSkip), 1u);
    EXPECT_TRUE(store.mDic()->at(kAdTapSkip)->empty());
    EXPECT_TRUE(store.tasksOfEvent("other").empty());
    EXPECT_EQ(store.mDic()->size(), 2u);
    store.removeTasksOfEvent("other");
    store.removeTasksOfEvent("never-there");
    EXPECT_EQ(store.mDic()->size(), 1u);
}

TEST(PluginStatusStore, TasksMayRegisterUnderOtherNames) {
    PeloraPluginStatusStore store;
    int later = 0;
    store.addEvent(kPlayerStatusStart, [&] { store.addEvent(kAdClick, [&] { ++later; }); });
    store.triggerEvent(kPlayerStatusStart);
    store.triggerEvent(kAdClick);
    EXPECT_EQ(later, 1);
}

TEST(PluginStatusStoreDeathTest, ChangingTheListBeingRunFailsLoudly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            PeloraPluginStatusStore store;
            store.addEvent(kAdClick, [&] { store.addEvent(kAdClick, [] {}); });
            store.triggerEvent(kAdClick);
        },
        "while its tasks are running");
    EXPECT_DEATH(
        {
            PeloraPluginStatusStore store;
            store.addEvent(kAdClick, [&] { store.tasksOfEvent(kAdClick).push_back([] {}); });
            store.triggerEvent(kAdClick);
        },
        "changed while its tasks were running");
    EXPECT_DEATH(
        {
            PeloraPluginStatusStore store;
            store.addEvent(kAdClick, [&] { store.removeTasksOfEvent(kAdClick); });
            store.triggerEvent(kAdClick);
        },
        "while its tasks are running");
}
