#include "base/om_adapter.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace {

std::atomic<IOMLogger*> g_current{nullptr};
std::atomic<IOMLogger*> g_operation{nullptr};
std::mutex g_mutex;

// Every logger that was ever installed. Never destroyed: threads log until the process is gone.
// Guarded by g_mutex.
std::vector<std::shared_ptr<IOMLogger>>& KeptLoggers() {
    static auto* const kept = new std::vector<std::shared_ptr<IOMLogger>>;
    return *kept;
}

void Install(std::shared_ptr<IOMLogger> logger, std::atomic<IOMLogger*>& place) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    IOMLogger* const current = logger.get();
    std::vector<std::shared_ptr<IOMLogger>>& kept = KeptLoggers();
    if (logger != nullptr && std::find(kept.begin(), kept.end(), logger) == kept.end()) {
        kept.push_back(std::move(logger));
    }
    place.store(current, std::memory_order_release);
}

}  // namespace

const char* OMLogLevelName(int level) {
    static constexpr const char* kNames[] = {"EMERG", "ALERT", "CRIT", "ERR", "WARNING", "NOTICE", "INFO", "DEBUG"};
    return level >= OM_LOG_EMERG && level <= OM_LOG_DEBUG ? kNames[level] : "UNKNOWN";
}

OMAdapter* OMAdapter::getInstance() {
    static OMAdapter instance;
    return &instance;
}

IOMLogger* OMAdapter::getLogger() const noexcept {
    return g_current.load(std::memory_order_acquire);
}

std::shared_ptr<IOMLogger> OMAdapter::getSharedLogger() const {
    const std::lock_guard<std::mutex> lock(g_mutex);
    const IOMLogger* current = g_current.load(std::memory_order_relaxed);
    for (const std::shared_ptr<IOMLogger>& logger : KeptLoggers()) {
        if (logger.get() == current) {
            return logger;
        }
    }
    return nullptr;
}

void OMAdapter::setLogger(std::shared_ptr<IOMLogger> logger) {
    Install(std::move(logger), g_current);
}

IOMLogger* OMAdapter::getOperationLogger() const noexcept {
    IOMLogger* const own = g_operation.load(std::memory_order_acquire);
    return own != nullptr ? own : getLogger();
}

void OMAdapter::setOperationLogger(std::shared_ptr<IOMLogger> logger) {
    Install(std::move(logger), g_operation);
}
