#pragma once

#include <ace/Reactor.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Timer_Heap.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>

class ACE_Reactor_Notify;
struct epoll_event;

// One registration.
struct HandlerAndMask {
    ACE_Event_Handler* event_handler;  // not owned
    ACE_Reactor_Mask mask;             // as given at registration; never updated
};

// An event loop over epoll for exactly one thread, which calls handle_events. Other threads may register and
// remove handlers, schedule and cancel timers, and notify.
//
// Ordinary handles are one-shot: a handle is armed again only after a handle_input that returned 0. One event,
// one timer and one notification at most are served per pass, and a due timer outranks an event, which is then
// lost until something arms its handle again.
//
// The operations that hide those of ACE_Reactor are not virtual there: hold the object as an NVR_Reactor, or they
// reach the inert implementation object and do nothing. So do reset_timer_interval and cancel_timer by handler.
//
// A handler outlives its registration and its timers; removal does not call handle_close.
class NVR_Reactor : public ACE_Reactor {
public:
    NVR_Reactor();
    NVR_Reactor(ACE_Reactor_Impl* implementation, bool deleteImplementation);
    // Gives up the epoll descriptor without closing it: call close() first.
    ~NVR_Reactor() override;
    NVR_Reactor(const NVR_Reactor&) = delete;
    NVR_Reactor& operator=(const NVR_Reactor&) = delete;

    // False when the epoll descriptor or the doorbell could not be made; such a reactor must not be run.
    bool IsUsable() const { return m_epfd != -1 && m_opened; }

    // 0, or -1: null handler, handle -1, mask 0, or a handle that epoll refuses (one already registered). Waits
    // while a handler of this reactor runs on its thread. Any thread.
    int register_handler(ACE_Event_Handler* handler, ACE_Reactor_Mask mask);
    int register_handler(int handle, ACE_Event_Handler* handler, ACE_Reactor_Mask mask);
    // Takes mask bits away. The record goes even when bits remain: the descriptor then stays armed in epoll, and
    // its events find nobody. 0, or -1: null handler, unknown handle, or refused by epoll. Waits like
    // register_handler. Any thread.
    int remove_handler(ACE_Event_Handler* handler, ACE_Reactor_Mask mask);
    int remove_handler(int handle, ACE_Reactor_Mask mask);
    // The events of <sys/epoll.h> for a mask; EPOLLPRI for NULL_MASK.
    std::uint16_t reactor_mask_to_poll_event(ACE_Reactor_Mask mask);

    using ACE_Reactor::cancel_timer;
    // The timer's id, -1 without a heap. The callback runs on the reactor's thread, without its lock. Any thread.
    long schedule_timer(ACE_Event_Handler* handler, const void* arg, const ACE_Time_Value& delay,
                        const ACE_Time_Value& interval = ACE_Time_Value::zero) override;
    // 1 when the timer was cancelled, 0 for an unknown id or without a heap. Any thread.
    int cancel_timer(long timerId, const void** arg = nullptr, int dontCallHandleClose = 1) override;

    // Has the handler's operation for that mask called on the reactor's thread; null only wakes it. Never waits;
    // the time limit is ignored. 0, -1 for failure, 1 without a notifier. Any thread.
    virtual int notify(ACE_Event_Handler* handler = nullptr, ACE_Reactor_Mask mask = ACE_Event_Handler::EXCEPT_MASK,
                       ACE_Time_Value* timeout = nullptr);
    // One pass; waits for maxWait at most, without end for null. 1 after a timer, otherwise the result of
    // DispatchIoEvent; -1 without a heap. The reactor's thread alone.
    virtual int handle_events(ACE_Time_Value* maxWait = nullptr);
    // True when one timer was dispatched.
    virtual bool DispatchTimerHandler();
    // 0, 1 after a notification, -1 for a null array.
    virtual int DispatchIoEvent(epoll_event* events, const int& count);
    // Closes the descriptor, the heap, the notifier and all registrations; the loop must have ended. The result of
    // closing the descriptor.
    virtual int close();

    int purge_pending_notifications(ACE_Event_Handler* handler = nullptr,
                                    ACE_Reactor_Mask mask = ACE_Event_Handler::ALL_EVENTS_MASK);
    // Makes a sleeping handle_events compute its time limit anew. 0 for success, -1.
    int WakeUpTimer();
    void ClearHandleMap();
    // Debugging output.
    void dump() const;

    using HandleCallback = int (ACE_Event_Handler::*)(ACE_HANDLE);
    using HandleMaskCallback = int (ACE_Event_Handler::*)(ACE_HANDLE, ACE_Reactor_Mask);
    // Call again and again while the result is above 0, and give the last one.
    int upcall(ACE_Event_Handler* handler, HandleCallback callback, int handle);
    int upcallWithMask(ACE_Event_Handler* handler, HandleMaskCallback callback, int handle, ACE_Reactor_Mask mask);

private:
    using HandleMap = std::map<int, std::unique_ptr<HandlerAndMask>>;

    void init();
    int initEx(ACE_Timer_Heap* timerQueue, int disableNotifyPipe, ACE_Reactor_Notify* notifyHandler);
    void MakeTimerQueueAndNotifier();
    // A map of that one record; empty when there is no memory.
    static HandleMap MakeRecord(int handle, ACE_Event_Handler* handler, ACE_Reactor_Mask mask);
    int RefuseRegistration(int error, int handle, ACE_Event_Handler* handler);
    int WaitForEvent(ACE_Time_Value* maxWait, epoll_event& event, int& count);
    bool TakeKnownRing(epoll_event& event) const;
    void NoteHandles();
    bool DispatchOne(const epoll_event& event, int& result);
    bool DispatchNotification(ACE_Event_Handler* handler, int handle, int& result);
    void DispatchToHandler(ACE_Event_Handler* handler, const epoll_event& event, HandleCallback callback,
                           ACE_Reactor_Mask mask);
    void Rearm(ACE_Event_Handler* handler, const epoll_event& event);

    ACE_Recursive_Thread_Mutex m_mutex;          // Outermost: held while a handler runs, which may take its own locks.
    HandleMap m_handleMap;                       // Guarded by m_mutex, as are all epoll_ctl calls.
    std::atomic<bool> m_hasOnlyDoorbell{false};  // Written under m_mutex.
    int m_epfd = -1;
    bool m_opened = false;
    ACE_Timer_Heap* m_timerQueue = nullptr;  // owned when m_deleteTimerQueue
    bool m_deleteTimerQueue = false;
    ACE_Reactor_Notify* m_notifyHandler = nullptr;  // an NVR_Reactor_Notify; owned when m_deletNotifyHandler
    bool m_deletNotifyHandler = false;
    void* m_obj = nullptr;
};
