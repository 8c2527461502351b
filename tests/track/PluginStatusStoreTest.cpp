#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "track/PeloraPluginStatusStore.h"

TEST(PluginStatusStore, RunsTasksInOrderOnEveryTrigger) {
    auto store = PeloraPluginStatusStore::init();
    std::vector<std::string> ran;
    auto first = [&] { ran.push_back("first"); };
    store->addEvent(kPlayerStatusPlayFinish, first);
    store->addEvent(kPlayerStatusPlayFinish, [&] { ran.push_back("second"); });
    store->addEvent(kPlayerStatusPlayFinish, first);  // no de-duplication
    store->addEvent(kAdClick, [&] { ran.push_back("click"); });
    // Names are exact; absent names and tasks are ignored; a task may register under another.
    store->addEvent(std::nullopt, [] {});
    store->addEvent(std::string(), [] {});
    store->addEvent(kAdExpose, nullptr);
    store->addEvent(kPlayerStatusStart,
                    [&] { store->addEvent(kAdClick, [&] { ran.push_back("later"); }); });

    store->triggerEvent(kPlayerStatusPlayFinish);
    store->triggerEvent(kPlayerStatusPlayFinish);
    store->triggerEvent("playfinish");
    store->triggerEvent(kPlayerStatusStart);
    store->triggerEvent(kAdClick);
    EXPECT_EQ(ran, (std::vector<std::string>{"first", "second", "first", "first", "second", "first",
                                             "click", "later"}));
    EXPECT_EQ(store->mDic()->count(kAdExpose), 0u);
    EXPECT_EQ(store->mDic()->count(""), 0u);
}

// With auto-delete a trigger runs its tasks once; removing an event's tasks drops them.
TEST(PluginStatusStore, AutoDeleteAndRemoval) {
    PeloraPluginStatusStore store;
    store.setAutoDeleteAfterTrigger(true);
    int runs = 0;
    store.addEvent(kAdTapClose, [&] { ++runs; });
    store.addEvent(kAdTapSkip, [&] { runs += 10; });
    store.triggerEvent(kAdTapClose);
    store.triggerEvent(kAdTapClose);
    store.removeTasksOfEvent(kAdTapSkip);
    store.triggerEvent(kAdTapSkip);
    EXPECT_EQ(runs, 1);
}

TEST(PluginStatusStoreDeathTest, ChangingTheListBeingRunFailsLoudly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::pair<std::function<void(PeloraPluginStatusStore&)>, const char*> changes[] = {
        {[](auto& s) { s.addEvent(kAdClick, [] {}); }, "while its tasks are running"},
        {[](auto& s) { s.tasksOfEvent(kAdClick).push_back([] {}); },
         "changed while its tasks were running"},
        {[](auto& s) { s.removeTasksOfEvent(kAdClick); }, "while its tasks are running"}};
    for (const auto& [change, message] : changes) {
        EXPECT_DEATH(
            {
                PeloraPluginStatusStore store;
                store.addEvent(kAdClick, [&] { change(store); });
                store.triggerEvent(kAdClick);
            },
            message);
    }
}
