#include "bp/session_work.h"

#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace BP {

namespace {

using WorkTable = std::map<std::uint32_t, std::shared_ptr<const SessionWork>>;

struct WorkRegistry {
    std::shared_mutex mutex;
    WorkTable table;  // Guarded by mutex.
};

// Never destroyed: reactors serve until late in the end of the process.
WorkRegistry& Registry() {
    static WorkRegistry& registry = *new WorkRegistry;
    return registry;
}

}  // namespace

std::shared_ptr<const SessionWork> FindSessionWork(std::uint32_t reqID) {
    WorkRegistry& registry = Registry();
    std::shared_lock<std::shared_mutex> guard(registry.mutex);
    const auto found = registry.table.find(reqID);
    return found != registry.table.end() ? found->second : nullptr;
}

void RegisterSessionWork(std::uint32_t reqID, SessionWork work) {
    std::shared_ptr<const SessionWork> entry;
    if (work) {
        entry = std::make_shared<const SessionWork>(std::move(work));
    }
    WorkRegistry& registry = Registry();
    std::unique_lock<std::shared_mutex> guard(registry.mutex);
    if (entry == nullptr) {
        const auto found = registry.table.find(reqID);
        if (found != registry.table.end()) {
            entry.swap(found->second);
            registry.table.erase(found);
        }
    } else {
        entry.swap(registry.table[reqID]);
    }
    guard.unlock();  // what the former work has captured is destroyed outside the lock
}

void ClearSessionWork() {
    WorkRegistry& registry = Registry();
    std::unique_lock<std::shared_mutex> guard(registry.mutex);
    const WorkTable removed = std::move(registry.table);
    registry.table.clear();
    guard.unlock();  // what the work has captured is destroyed outside the lock
}

}  // namespace BP
