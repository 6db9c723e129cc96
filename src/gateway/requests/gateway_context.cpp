#include "gateway/requests/gateway_context.h"

#include "base/log.h"

#include <algorithm>

namespace gvx {

RunningWork::Scope::Scope(RunningWork& work, std::uint32_t reqID, const std::string& device)
    : m_work(work), m_reqID(reqID), m_device(device) {
    const std::lock_guard<std::mutex> lock(m_work.m_mutex);
    m_work.m_running.push_back(this);
}

RunningWork::Scope::~Scope() {
    const std::lock_guard<std::mutex> lock(m_work.m_mutex);
    m_work.m_running.erase(std::find(m_work.m_running.begin(), m_work.m_running.end(), this));
    m_work.m_changed.notify_all();
}

bool RunningWork::WaitIdle(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this] { return m_running.empty(); });
}

void RunningWork::Name() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const Scope* scope : m_running) {
        GVX_LOG_ERR("Stop", "cmd[0x%04x] of device %s is left behind: it is still being served.", scope->m_reqID,
                    scope->m_device.empty() ? "-" : scope->m_device.c_str());
    }
}

}  // namespace gvx
