#include "gvx_common/event/NVR_Reactor.h"

#include "base/log.h"
#include "gvx_common/event/NVR_Reactor_Notify.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>

#include <sys/epoll.h>
#include <unistd.h>

namespace {

const void* MaskAsPointer(ACE_Reactor_Mask mask) {
    return reinterpret_cast<const void*>(mask);
}

static_assert(ACE_Event_Handler::ALL_EVENTS_MASK == 0x1FF, "every kind of event and nothing else");

struct Dispatch {
    ACE_Reactor_Mask mask;
    NVR_Reactor::HandleCallback callback;
};

// The first match decides: a handle that is ready for several things does one of them in a pass. Null for events
// that call nobody.
Dispatch ChooseDispatch(std::uint32_t events) {
    if ((events & EPOLLOUT) != 0) {
        return {ACE_Event_Handler::WRITE_MASK, &ACE_Event_Handler::handle_output};
    }
    if ((events & EPOLLPRI) != 0) {
        return {ACE_Event_Handler::EXCEPT_MASK, &ACE_Event_Handler::handle_exception};
    }
    if ((events & EPOLLIN) != 0) {
        return {ACE_Event_Handler::READ_MASK, &ACE_Event_Handler::handle_input};
    }
    return {ACE_Event_Handler::NULL_MASK, nullptr};
}

// epoll_wait takes an int: a timer further away than that only makes the loop look once in between.
int ToWaitMs(const ACE_Time_Value* next) {
    return next != nullptr ? static_cast<int>(std::min<unsigned long>(next->msec(), INT_MAX)) : -1;
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
        GVX_LOG_ERR(gvx::ErrnoText("epoll_create", error).c_str(), "pReactor[%p]", static_cast<void*>(this));
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
    GVX_LOG(OM_LOG_DEBUG, "close reactor", ":ClearHandleMap begin to clear handlemap,size[%lu]", m_handleMap.size());
    m_handleMap.clear();
    NoteHandles();
}

// Whether nothing but the doorbell is registered. Under m_mutex.
void NVR_Reactor::NoteHandles() {
    m_hasOnlyDoorbell = m_notifyHandler != nullptr && m_handleMap.size() == 1 &&
                        m_handleMap.begin()->second->event_handler == m_notifyHandler;
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
    GVX_LOG_ERR(gvx::ErrnoText("register handler", error).c_str(), "pReactor[%p] m_epfd[%d] eh[%p] io_handle[%d]",
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
    // The record is made before epoll arms the handle: without memory nothing is armed that has no record.
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
        GVX_LOG(OM_LOG_DEBUG, "register handler", "cannot find handle[%d] in m_handleMap,try to bind it.", handle);
        m_handleMap.merge(record);
        NoteHandles();
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
    NoteHandles();
    if (result == -1) {
        GVX_LOG_ERR(gvx::ErrnoText("remove handler", error).c_str(), "pReactor[%p] m_epfd[%d] handle[%d]",
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

int NVR_Reactor::handle_events(ACE_Time_Value* maxWait) {
    epoll_event event{};
    int count = 0;
    if (WaitForEvent(maxWait, event, count) == -1) {
        return -1;
    }
    // Timers outrank I/O: an event taken together with a due timer is given up.
    if (const int timers = DispatchTimerHandler(); timers != 0) {
        return timers;
    }
    return DispatchIoEvent(&event, count);
}

// One event at a time, so that no descriptor keeps the timers waiting for the handlers of many others.
int NVR_Reactor::WaitForEvent(ACE_Time_Value* maxWait, epoll_event& event, int& count) {
    ACE_Time_Value timerWait = ACE_Time_Value::zero;
    do {
        if (m_timerQueue == nullptr) {
            GVX_LOG_ERR("handle events", "m_timerQueue is NULL.");
            return -1;
        }
        if (TakeKnownRing(event)) {
            count = 1;
            return 0;
        }
        const ACE_Time_Value* const next = m_timerQueue->calculate_timeout(maxWait, &timerWait);
        const bool timerBound = next != nullptr && (maxWait == nullptr || *next != *maxWait);
        count = ::epoll_wait(m_epfd, &event, 1, ToWaitMs(next));
        if (count == 0 && timerBound) {
            count = 1;
        }
    } while (count == -1);
    return 0;
}

// In a burst of commands the doorbell goes on ringing. Where no other handle could have an event, the answer of epoll
// is known, and a call of it for each command would be a quarter of what the command costs.
bool NVR_Reactor::TakeKnownRing(epoll_event& event) const {
    if (!m_hasOnlyDoorbell.load(std::memory_order_relaxed)) {
        return false;
    }
    auto& notifier = *static_cast<NVR_Reactor_Notify*>(m_notifyHandler);
    if (!notifier.IsKnownToRing()) {
        return false;
    }
    event.events = EPOLLIN;
    event.data.fd = notifier.notify_handle();
    return true;
}

bool NVR_Reactor::DispatchTimerHandler() {
    if (m_timerQueue == nullptr) {
        return false;
    }
    {
        // The heap's own lock: other threads schedule while this one looks.
        ACE_Guard<ACE_SYNCH_RECURSIVE_MUTEX> guard(m_timerQueue->mutex());
        if (m_timerQueue->is_empty()) {
            return false;
        }
    }
    const ACE_Time_Value now = m_timerQueue->gettimeofday() + m_timerQueue->timer_skew();
    ACE_Timer_Node_Dispatch_Info_T<ACE_Event_Handler*> info;
    if (m_timerQueue->dispatch_info(now, info) == 0) {
        return false;
    }
    const void* act = nullptr;
    m_timerQueue->preinvoke(info, now, act);
    m_timerQueue->upcall(info, now);
    m_timerQueue->postinvoke(info, now, act);
    return true;
}

int NVR_Reactor::DispatchIoEvent(epoll_event* events, const int& count) {
    if (events == nullptr) {
        GVX_LOG_ERR("dispatch io", "failed to disptach io event events is NULL %p.", static_cast<void*>(events));
        return -1;
    }
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutex);
    if (!guard.locked()) {
        return -1;
    }
    for (int i = 0; i < count; ++i) {
        int result = 0;
        if (DispatchOne(events[i], result)) {
            return result;
        }
    }
    return 0;
}

// True when the event was a notification: its result ends the pass.
bool NVR_Reactor::DispatchOne(const epoll_event& event, int& result) {
    const auto it = m_handleMap.find(event.data.fd);
    if (it == m_handleMap.end()) {
        return false;
    }
    if (it->second == nullptr) {
        GVX_LOG_ERR("dispatch io", "it->second is NULL");
        return false;
    }
    // The handler may remove its own record while it runs.
    ACE_Event_Handler* const handler = it->second->event_handler;
    const Dispatch dispatch = ChooseDispatch(event.events);
    if (dispatch.callback == nullptr) {
        if ((event.events & (EPOLLERR | EPOLLHUP)) != 0) {
            remove_handler(handler, ACE_Event_Handler::ALL_EVENTS_MASK);
        } else {
            GVX_LOG_ERR("dispatch io", "dispatch_io h[%u] unknown events 0x%x",
                        static_cast<unsigned int>(event.data.fd), event.events);
        }
        return false;
    }
    if (handler == m_notifyHandler) {
        return DispatchNotification(handler, event.data.fd, result);
    }
    DispatchToHandler(handler, event, dispatch.callback, dispatch.mask);
    return false;
}

// False when there was nothing to dispatch; the pass then goes on with the next event.
bool NVR_Reactor::DispatchNotification(ACE_Event_Handler* handler, int handle, int& result) {
    auto* notifier = dynamic_cast<NVR_Reactor_Notify*>(handler);
    if (notifier == nullptr) {
        GVX_LOG_ERR("dispatch io", "fail to dynamic_cast notifyHandler pReactor[%p] m_epfd[%d] io_handle[%d]",
                    static_cast<void*>(this), m_epfd, handle);
        return false;
    }
    ACE_Notification_Buffer buffer;
    if (notifier->dequeue_one(buffer) == -1) {
        GVX_LOG_ERR("dispatch io", "fail to dequeue_one notify event pReactor[%p] m_epfd[%d] io_handle[%d]",
                    static_cast<void*>(this), m_epfd, handle);
        return false;
    }
    result = notifier->dispatch_notify(buffer);
    return true;
}

void NVR_Reactor::DispatchToHandler(ACE_Event_Handler* handler, const epoll_event& event, HandleCallback callback,
                                    ACE_Reactor_Mask mask) {
    const int handle = event.data.fd;
    const int result = upcall(handler, callback, handle);
    if (result == 0 && mask == ACE_Event_Handler::READ_MASK) {
        Rearm(handler, event);
    } else if (result == -1) {
        // The handler may delete itself in handle_close: from here on it is only a number.
        const void* const closed = handler;
        upcallWithMask(handler, &ACE_Event_Handler::handle_close, handle, mask);
        GVX_LOG_INFO("dispatch io", "begin to upcallWithMask.eventHandler[%p],events.data.fd[%d],this[%p]", closed,
                     handle, static_cast<void*>(this));
    }
}

void NVR_Reactor::Rearm(ACE_Event_Handler* handler, const epoll_event& event) {
    epoll_event armed = event;
    armed.events |= EPOLLONESHOT;
    if (::epoll_ctl(m_epfd, EPOLL_CTL_MOD, event.data.fd, &armed) == -1) {
        const int error = errno;
        GVX_LOG_ERR(gvx::ErrnoText("dispatch io", error).c_str(),
                    "epoll_ctl: listen_sock pReactor[%p] eventHandler[%p] io_handle[%u] events[0x%x]",
                    static_cast<void*>(this), static_cast<void*>(handler), static_cast<unsigned int>(event.data.fd),
                    armed.events);
    }
}

int NVR_Reactor::upcall(ACE_Event_Handler* handler, HandleCallback callback, int handle) {
    int result = 0;
    do {
        result = (handler->*callback)(handle);
    } while (result > 0);
    return result;
}

int NVR_Reactor::upcallWithMask(ACE_Event_Handler* handler, HandleMaskCallback callback, int handle,
                                ACE_Reactor_Mask mask) {
    int result = 0;
    do {
        result = (handler->*callback)(handle, mask);
    } while (result > 0);
    return result;
}
