#include "gateway/devices/history_sweep.h"

#include "base/log.h"
#include "bp/dispatcher.h"
#include "gateway/devices/dev_reactor_binder.h"
#include "gvx_common/event/gvx_reactor_mgr.h"

namespace gvx {

HistorySweep& HistorySweep::Instance() {
    static HistorySweep* instance = new HistorySweep;
    return *instance;
}

bool HistorySweep::Start(DevReactorBinder& binder, int periodSeconds) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_binder = &binder;
    }
    const ACE_Time_Value period(periodSeconds);
    m_timerId = CGvxReactorManager::Instance()->RegistTimer(this, nullptr, period, period);
    return m_timerId != -1;
}

void HistorySweep::Stop() {
    if (m_timerId != -1) {
        constexpr int kDontCallClose = 1;
        CGvxReactorManager::Instance()->UnRegistTimer(m_timerId, kDontCallClose);
        m_timerId = -1;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_binder = nullptr;
}

int HistorySweep::handle_timeout(const ACE_Time_Value& /*now*/, const void* /*arg*/) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_binder != nullptr) {
        m_binder->Sweep();
        const std::size_t expired = BP::CTransactionMgr::ExpireTransactions();
        if (expired != 0) {
            GVX_LOG_INFO("Transactions", "%zu requests of the gateway were not answered in time.", expired);
        }
    }
    return 0;
}

}  // namespace gvx
