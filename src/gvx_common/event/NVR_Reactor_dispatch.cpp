#include "gvx_common/event/NVR_Reactor.h"

#include "base/log.h"
#include "bp/errno_text.h"
#include "gvx_common/event/NVR_Reactor_Notify.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include <sys/epoll.h>

namespace {

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
        const ACE_Time_Value* const next = m_timerQueue->calculate_timeout(maxWait, &timerWait);
        const bool timerBound = next != nullptr && (maxWait == nullptr || *next != *maxWait);
        count = ::epoll_wait(m_epfd, &event, 1, ToWaitMs(next));
        if (count == 0 && timerBound) {
            count = 1;
        }
    } while (count == -1);
    return 0;
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
        GVX_LOG_ERR(BP::ErrnoText("dispatch io", error).c_str(),
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
