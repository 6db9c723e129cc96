#include "gvx_common/event/NVR_Reactor.h"

#include "base/log.h"
#include "bp/errno_text.h"
#include "gvx_common/event/NVR_Reactor_Notify.h"

#include <ace/Guard_T.h>

#include <cerrno>
#include <new>

#include <sys/epoll.h>
#include <unistd.h>

namespace {

const void* MaskAsPointer(ACE_Reactor_Mask mask) {
    return reinterpret_cast<const void*>(mask);
}

}  // namespace

NVR_Reactor::NVR_Reactor() {
    init();
}

NVR_Reactor::NVR_Reactor(ACE_Reactor_Impl* implementation, bool deleteImplementation)
    : ACE_Reactor(implementation, deleteImplementation) {
    init();
}

NVR_Reactor::~NVR_Reactor() {
    m_epfd = -1;
    NVR_Reactor::close();
}

void NVR_Reactor::init() {
    ClearHandleMap();
    m_timerQueue = nullptr;
    m_deleteTimerQueue = false;
    m_notifyHandler = nullptr;
    m_deletNotifyHandler = false;
    m_obj = nullptr;
    m_epfd = ::epoll_create1(EPOLL_CLOEXEC);
    if (m_epfd == -1) {
        const int error = errno;
        GVX_LOG_ERR(BP::ErrnoText("epoll_create", error).c_str(), "pReactor[%p]", static_cast<void*>(this));
    }
    m_opened = initEx(m_timerQueue, 0, m_notifyHandler) != -1;
    if (!m_opened) {
        GVX_LOG_ERR("failed to init", " m_timerQueue and m_notifyHandler, pReactor[%p].", static_cast<void*>(this));
    }
}

int NVR_Reactor::initEx(ACE_Timer_Heap* timerQueue, int disableNotifyPipe, ACE_Reactor_Notify* notifyHandler) {
    m_timerQueue = timerQueue;
    m_notifyHandler = notifyHandler;
    MakeTimerQueueAndNotifier();
    if (m_notifyHandler == nullptr) {
        GVX_LOG_ERR("failed to init", "ACE_Reactor_Notify is NULL[%p]", static_cast<void*>(m_notifyHandler));
        return -1;
    }
    auto* notifier = dynamic_cast<NVR_Reactor_Notify*>(m_notifyHandler);
    if (notifier == nullptr || notifier->openEx(this, m_timerQueue, disableNotifyPipe) == -1) {
        return -1;
    }
    if (disableNotifyPipe == 0) {
        return register_handler(notifier->notify_handle(), notifier, ACE_Event_Handler::READ_MASK);
    }
    return 0;
}

void NVR_Reactor::MakeTimerQueueAndNotifier() {
    if (m_timerQueue == nullptr) {
        m_timerQueue = new (std::nothrow) ACE_Timer_Heap(static_cast<ACE_Event_Handler_Handle_Timeout_Upcall*>(nullptr),
                                                         nullptr, ACE_FPointer_Time_Policy());
        if (m_timerQueue == nullptr) {
            return;
        }
        ++g_bp_memstat;
        m_deleteTimerQueue = true;
    }
    if (m_notifyHandler == nullptr) {
        m_notifyHandler = new (std::nothrow) NVR_Reactor_Notify();
        if (m_notifyHandler != nullptr) {
            ++g_bp_memstat;
            m_deletNotifyHandler = true;
        }
    }
}

int NVR_Reactor::close() {
    int result = 0;
    if (m_epfd != -1) {
        result = ::close(m_epfd);
        m_epfd = -1;
    }
    if (m_deleteTimerQueue) {
        delete m_timerQueue;
        --g_bp_memstat;
        m_deleteTimerQueue = false;
    } else if (m_timerQueue != nullptr) {
        m_timerQueue->close();
    }
    m_timerQueue = nullptr;
    if (m_notifyHandler != nullptr) {
        m_notifyHandler->close();
    }
    if (m_deletNotifyHandler) {
        delete m_notifyHandler;
        --g_bp_memstat;
        m_notifyHandler = nullptr;
        m_deletNotifyHandler = false;
    }
    ClearHandleMap();
    return result;
}

void NVR_Reactor::ClearHandleMap() {
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutex);
    GVX_LOG_INFO("close reactor", ":ClearHandleMap begin to clear handlemap,size[%lu]", m_handleMap.size());
    m_handleMap.clear();
}

std::uint16_t NVR_Reactor::reactor_mask_to_poll_event(ACE_Reactor_Mask mask) {
    if (mask == ACE_Event_Handler::NULL_MASK) {
        GVX_LOG_ERR("reactor mask", "mask is ACE_Event_Handler::NULL_MASK.");
        return EPOLLPRI;
    }
    std::uint32_t events = 0;
    if ((mask & (ACE_Event_Handler::READ_MASK | ACE_Event_Handler::ACCEPT_MASK | ACE_Event_Handler::CONNECT_MASK)) !=
        0) {
        events |= EPOLLIN;
    }
    if ((mask & (ACE_Event_Handler::WRITE_MASK | ACE_Event_Handler::CONNECT_MASK)) != 0) {
        events |= EPOLLOUT;
    }
    if ((mask & ACE_Event_Handler::EXCEPT_MASK) != 0) {
        events |= EPOLLPRI;
    }
    return static_cast<std::uint16_t>(events);
}

int NVR_Reactor::register_handler(ACE_Event_Handler* handler, ACE_Reactor_Mask mask) {
    if (handler == nullptr) {
        GVX_LOG_ERR("register handler", "handler is NULL.");
        return -1;
    }
    return register_handler(handler->get_handle(), handler, mask);
}

NVR_Reactor::HandleMap NVR_Reactor::MakeRecord(int handle, ACE_Event_Handler* handler, ACE_Reactor_Mask mask) {
    HandleMap record;
    try {
        record.emplace(handle, std::make_unique<HandlerAndMask>(HandlerAndMask{handler, mask}));
    } catch (const std::bad_alloc&) {
        record.clear();
    }
    return record;
}

// The reason stays in errno for whoever reports the failure further up.
int NVR_Reactor::RefuseRegistration(int error, int handle, ACE_Event_Handler* handler) {
    GVX_LOG_ERR(BP::ErrnoText("register handler", error).c_str(), "pReactor[%p] m_epfd[%d] eh[%p] io_handle[%d]",
                static_cast<void*>(this), m_epfd, static_cast<void*>(handler), handle);
    errno = error;
    return -1;
}

int NVR_Reactor::register_handler(int handle, ACE_Event_Handler* handler, ACE_Reactor_Mask mask) {
    if (handle == -1 || mask == 0) {
        GVX_LOG_ERR("register handler", "invalid handle[%d] or mask[%p].]", handle, MaskAsPointer(mask));
        return -1;
    }
    epoll_event event{};
    event.data.fd = handle;
    event.events = reactor_mask_to_poll_event(mask);
    if (handler != m_notifyHandler) {
        event.events |= EPOLLONESHOT;
    }
    // Before epoll knows the handle, so that a lack of memory leaves nothing armed that has no record.
    HandleMap record = MakeRecord(handle, handler, mask);
    if (record.empty()) {
        return RefuseRegistration(ENOMEM, handle, handler);
    }
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutex);
    if (!guard.locked()) {
        return -1;
    }
    if (::epoll_ctl(m_epfd, EPOLL_CTL_ADD, handle, &event) == -1) {
        return RefuseRegistration(errno, handle, handler);
    }
    if (m_handleMap.find(handle) == m_handleMap.end()) {
        GVX_LOG_INFO("register handler", "cannot find handle[%d] in m_handleMap,try to bind it.", handle);
        m_handleMap.merge(record);
    }
    return 0;
}

int NVR_Reactor::remove_handler(ACE_Event_Handler* handler, ACE_Reactor_Mask mask) {
    if (handler == nullptr) {
        GVX_LOG_ERR("remove handler", "handler is NULL.");
        return -1;
    }
    return remove_handler(handler->get_handle(), mask);
}

int NVR_Reactor::remove_handler(int handle, ACE_Reactor_Mask mask) {
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutex);
    if (!guard.locked()) {
        return -1;
    }
    const auto it = m_handleMap.find(handle);
    if (it == m_handleMap.end()) {
        GVX_LOG_ERR("remove handler", "cannot find handle[%d] in m_handleMap m_epfd[%d]", handle, m_epfd);
        return -1;
    }
    if (it->second == nullptr) {
        GVX_LOG_ERR("remove handler", "HandlerMask is NULL %p.", static_cast<void*>(it->second.get()));
        return -1;
    }
    const ACE_Reactor_Mask remaining = it->second->mask & ~mask;
    epoll_event event{};
    int result = 0;
    if (remaining == 0) {
        result = ::epoll_ctl(m_epfd, EPOLL_CTL_DEL, handle, &event);
    } else {
        event.data.fd = handle;
        event.events = reactor_mask_to_poll_event(remaining) | static_cast<std::uint32_t>(EPOLLONESHOT);
        result = ::epoll_ctl(m_epfd, EPOLL_CTL_MOD, handle, &event);
    }
    const int error = errno;
    m_handleMap.erase(it);
    if (result == -1) {
        GVX_LOG_ERR(BP::ErrnoText("remove handler", error).c_str(), "pReactor[%p] m_epfd[%d] handle[%d]",
                    static_cast<void*>(this), m_epfd, handle);
        errno = error;
        return -1;
    }
    return 0;
}

long NVR_Reactor::schedule_timer(ACE_Event_Handler* handler, const void* arg, const ACE_Time_Value& delay,
                                 const ACE_Time_Value& interval) {
    if (m_timerQueue == nullptr) {
        return -1;
    }
    const int id =
        static_cast<int>(m_timerQueue->schedule(handler, arg, m_timerQueue->gettimeofday() + delay, interval));
    WakeUpTimer();
    return id;
}

int NVR_Reactor::cancel_timer(long timerId, const void** arg, int dontCallHandleClose) {
    return m_timerQueue != nullptr ? m_timerQueue->cancel(timerId, arg, dontCallHandleClose) : 0;
}

int NVR_Reactor::WakeUpTimer() {
    ACE_Time_Value noWait = ACE_Time_Value::zero;
    const int result = notify(nullptr, ACE_Event_Handler::EXCEPT_MASK, &noWait);
    if (result != 0) {
        GVX_LOG_ERR("wake up timer", "failed to excute WakeUpTimer.[%p].", static_cast<void*>(this));
        return -1;
    }
    return 0;
}

int NVR_Reactor::notify(ACE_Event_Handler* handler, ACE_Reactor_Mask mask, ACE_Time_Value* timeout) {
    if (m_notifyHandler == nullptr) {
        GVX_LOG_ERR("notify", " failed to notify:m_notifyHandler is NULL.");
        return 1;
    }
    return m_notifyHandler->notify(handler, mask, timeout) == -1 ? -1 : 0;
}

int NVR_Reactor::purge_pending_notifications(ACE_Event_Handler* handler, ACE_Reactor_Mask mask) {
    return m_notifyHandler != nullptr ? m_notifyHandler->purge_pending_notifications(handler, mask) : 0;
}

void NVR_Reactor::dump() const {
    GVX_DEBUG("pReactor[%p] m_epfd[%d] timer queue[%p] notifier[%p]", static_cast<const void*>(this), m_epfd,
              static_cast<void*>(m_timerQueue), static_cast<void*>(m_notifyHandler));
}
