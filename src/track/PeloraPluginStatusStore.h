#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Event names the reward video page fires and its manager listens to.
inline constexpr const char kPlayerStatusStart[] = "StatusStart";
inline constexpr const char kPlayerStatusPlayError[] = "StatusPlayError";
inline constexpr const char kPlayerStatusPlayFinish[] = "PlayFinish";
inline constexpr const char kAdExpose[] = "kAdExpose";
inline constexpr const char kAdClick[] = "kAdClick";
inline constexpr const char kAdTapClose[] = "kAdTapClose";
inline constexpr const char kAdTapSkip[] = "kAdTapSkip";

// Tasks registered under event names and run when the event is triggered, so the page that
// knows when things happen and the manager that tells the host need no reference to each
// other. Main thread only; no locking.
class PeloraPluginStatusStore {
  public:
    using Task = std::function<void()>;
    using TaskList = std::vector<Task>;

    PeloraPluginStatusStore() = default;
    static std::shared_ptr<PeloraPluginStatusStore> init();

    // When set, an event's list is dropped right after the event ran. Off by default, so
    // tasks run again on every trigger.
    bool autoDeleteAfterTrigger() const { return autoDeleteAfterTrigger_; }
    void setAutoDeleteAfterTrigger(bool value) { autoDeleteAfterTrigger_ = value; }

    // Appends a copy of the task to the event's list. Nothing happens for an absent or empty
    // name or an absent task. The same task added twice runs twice.
    void addEvent(const std::optional<std::string>& name, Task task);
    // Runs the event's tasks in the order they were added, synchronously. A task that adds
    // to or removes the list being run is a programming error: the process aborts with a
    // message rather than run a list that changed under it.
    void triggerEvent(const std::string& name);
    // The event's live list, created (and kept) empty when missing -- a lookup leaves an
    // entry behind.
    TaskList& tasksOfEvent(const std::string& name);
    void removeTasksOfEvent(const std::string& name);

    // The event map, or null while nothing has touched the store.
    const std::map<std::string, std::shared_ptr<TaskList>>* mDic() const { return mDic_.get(); }

  private:
    std::shared_ptr<TaskList> listOf(const std::string& name);
    void failIfRunning(const std::string& name, const char* what) const;

    bool autoDeleteAfterTrigger_ = false;
    std::unique_ptr<std::map<std::string, std::shared_ptr<TaskList>>> mDic_;
    // Events whose tasks are running now (nested triggers count once per level).
    std::map<std::string, int> running_;
};
