#include "gvx_common/event/gvx_reactor.h"

#include "base/log.h"
#include "gvx_common/event/NVR_Reactor.h"

#include <cerrno>

int CGvxReactor::RegistHandle(ACE_Event_Handler* handler, unsigned long mask) {
    if (handler == nullptr || m_pReactor == nullptr) {
        return 1;
    }
    if (m_pReactor->register_handler(handler, mask) != 0) {
        const int error = errno;
        GVX_LOG_ERR("Register handler fail, ", "handle[%p], mask[%d], error code[%d]", static_cast<void*>(handler),
                    static_cast<int>(mask), error);
        return 1;
    }
    handler->reactor(m_pReactor);
    GVX_LOG_INFO("register handler", "Register handler success, handle[%p], mask[%lu].", static_cast<void*>(handler),
                 mask);
    return 0;
}

int CGvxReactor::UnRegistHandle(const ACE_Event_Handler* handler, unsigned long mask) {
    if (handler == nullptr || m_pReactor == nullptr) {
        GVX_LOG_ERR_CODE("Unregister handler fail, ", ZVS_NULL_POINTER, "handle[%p], reactor[%p]",
                         static_cast<const void*>(handler), static_cast<void*>(m_pReactor));
        return 1;
    }
    // remove_handler of the base type would reach the inert implementation.
    auto* reactor = dynamic_cast<NVR_Reactor*>(handler->reactor());
    if (reactor == nullptr) {
        GVX_LOG_ERR("Unregister handler fail, ", "can't find reactor from the handle[%p], mask[%d]",
                    static_cast<const void*>(handler), static_cast<int>(mask));
        return 1;
    }
    if (reactor->remove_handler(handler->get_handle(), mask) != 0) {
        const int error = errno;
        GVX_LOG_WARN("Unregister handler fail, ", "handle[%p] mask[%lu], error code[%d]",
                     static_cast<const void*>(handler), mask, error);
    }
    return 0;
}

long CGvxReactor::RegistTimer(ACE_Event_Handler* handler, const void* arg, const ACE_Time_Value& delay,
                              const ACE_Time_Value& interval) {
    if (handler == nullptr || m_pReactor == nullptr) {
        GVX_LOG_ERR_CODE("Register timer fail, ", ZVS_NULL_POINTER, "handle[%p], reactor[%p]",
                         static_cast<void*>(handler), static_cast<void*>(m_pReactor));
        return -1;
    }
    const long timerId = m_pReactor->schedule_timer(handler, arg, delay, interval);
    handler->reactor(m_pReactor);
    GVX_LOG_INFO("register timer", "Register timer, handle[%p] timerID[%ld].", static_cast<void*>(handler), timerId);
    return timerId;
}

int CGvxReactor::UnRegistTimer(long timerId, int dontCall) {
    if (timerId == -1 || m_pReactor == nullptr) {
        GVX_LOG_ERR("cancel timer fail, ", "timerId[%ld].", timerId);
        return 1;
    }
    if (m_pReactor->cancel_timer(timerId, nullptr, dontCall) == 0) {
        const int error = errno;
        GVX_LOG_ERR("cancel timer fail, ", "timerId[%ld], errno[%d].", timerId, error);
        return 1;
    }
    GVX_LOG_INFO("cancel timer", "Cancel timer success, timerID[%ld].", timerId);
    return 0;
}

int CGvxReactor::notify(ACE_Event_Handler* handler, unsigned long mask) {
    return m_pReactor != nullptr ? m_pReactor->notify(handler, mask, nullptr) : 1;
}
