#include "track/PeloraPluginStatusStore.h"

#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void fail(const std::string& message) {
    std::fprintf(stderr, "PeloraPluginStatusStore: %s\n", message.c_str());
    std::fflush(stderr);
    std::abort();
}

}  // namespace

std::shared_ptr<PeloraPluginStatusStore> PeloraPluginStatusStore::init() {
    return std::make_shared<PeloraPluginStatusStore>();
}

std::shared_ptr<PeloraPluginStatusStore::TaskList> PeloraPluginStatusStore::listOf(
    const std::string& name) {
    if (!mDic_) mDic_ = std::make_unique<std::map<std::string, std::shared_ptr<TaskList>>>();
    auto& slot = (*mDic_)[name];
    if (!slot) slot = std::make_shared<TaskList>();
    return slot;
}

void PeloraPluginStatusStore::failIfRunning(const std::string& name, const char* what) const {
    auto it = running_.find(name);
    if (it != running_.end() && it->second > 0)
        fail(std::string(what) + " \"" + name + "\" while its tasks are running");
}

void PeloraPluginStatusStore::addEvent(const std::optional<std::string>& name, Task task) {
    if (!name || name->empty() || !task) return;
    failIfRunning(*name, "a task was added to");
    listOf(*name)->push_back(std::move(task));
}

PeloraPluginStatusStore::TaskList& PeloraPluginStatusStore::tasksOfEvent(const std::string& name) {
    return *listOf(name);
}

void PeloraPluginStatusStore::removeTasksOfEvent(const std::string& name) {
    failIfRunning(name, "the tasks were removed of");
    if (mDic_) mDic_->erase(name);
}

void PeloraPluginStatusStore::triggerEvent(const std::string& name) {
    auto list = listOf(name);
    const size_t count = list->size();
    ++running_[name];
    for (size_t i = 0; i < count; ++i) {
        // Run a copy: a task that changed the list through tasksOfEvent() must reach the
        // check below, not run freed memory.
        Task task = (*list)[i];
        task();
        if (list->size() != count)
            fail("the task list of \"" + name + "\" changed while its tasks were running");
    }
    if (--running_[name] == 0) running_.erase(name);
    if (autoDeleteAfterTrigger_) removeTasksOfEvent(name);
}
