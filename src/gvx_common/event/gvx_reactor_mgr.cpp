#include "gvx_common/event/gvx_reactor_mgr.h"

#include "base/log.h"

CGvxReactorManager CGvxReactorManager::m_instance;

CGvxReactorManager* CGvxReactorManager::Instance() {
    return &m_instance;
}

CGvxReactorManager* GvxReactorManager() {
    return CGvxReactorManager::Instance();
}

CGvxReactorManager::CGvxReactorManager() : m_GvxReactor(gvx::MakeCounted<CGvxReactor>()) {
    for (auto& reactor : m_GvxSnapshotReactor) {
        reactor = gvx::MakeCounted<CGvxReactor>();
    }
}

CGvxReactorManager::~CGvxReactorManager() {
    m_GvxReactor.reset();
    for (auto& reactor : m_GvxSnapshotReactor) {
        reactor.reset();
    }
}

int CGvxReactorManager::RegistHandle(ACE_Event_Handler* handler, unsigned long mask) {
    return m_GvxReactor->RegistHandle(handler, mask);
}

int CGvxReactorManager::UnRegistHandle(const ACE_Event_Handler* handler, unsigned long mask) {
    return m_GvxReactor->UnRegistHandle(handler, mask);
}

long CGvxReactorManager::RegistTimer(ACE_Event_Handler* handler, const void* arg, const ACE_Time_Value& delay,
                                     const ACE_Time_Value& interval) {
    return m_GvxReactor->RegistTimer(handler, arg, delay, interval);
}

int CGvxReactorManager::UnRegistTimer(long timerId, int dontCall) {
    return m_GvxReactor->UnRegistTimer(timerId, dontCall);
}

int CGvxReactorManager::notify(ACE_Event_Handler* handler, unsigned long mask) {
    return m_GvxReactor->notify(handler, mask);
}

long CGvxReactorManager::RegistSnapshotTimer(ACE_Event_Handler* handler, const void* arg, const ACE_Time_Value& delay,
                                             const ACE_Time_Value& interval, int reactorIndex) {
    return m_GvxSnapshotReactor[static_cast<std::size_t>(reactorIndex)]->RegistTimer(handler, arg, delay, interval);
}

int CGvxReactorManager::UnRegistSnapshotTimer(int reactorIndex, long timerId, int dontCall) {
    if (reactorIndex < 0 || reactorIndex >= kSnapshotReactors) {
        GVX_LOG_ERR("cancel Snapshot timer fail, ", "timerId[%ld], reactor index[%d].", timerId, reactorIndex);
        return -1;
    }
    return m_GvxSnapshotReactor[static_cast<std::size_t>(reactorIndex)]->UnRegistTimer(timerId, dontCall);
}
