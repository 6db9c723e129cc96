#pragma once

#include <ace/Notification_Queue.h>
#include <ace/Pipe.h>
#include <ace/Reactor_Impl.h>
#include <ace/Thread_Mutex.h>
#include <ace/Timer_Heap.h>

#include <atomic>

class NVR_Reactor;

// The doorbell of a reactor: a queue of (handler, mask) items and a pipe whose bytes only mean "look into the
// queue". Any thread may ring; everything else belongs to the reactor's thread, or to nobody's while the reactor
// is made and closed.
class NVR_Reactor_Notify : public ACE_Reactor_Notify {
public:
    NVR_Reactor_Notify();
    ~NVR_Reactor_Notify() override;
    NVR_Reactor_Notify(const NVR_Reactor_Notify&) = delete;
    NVR_Reactor_Notify& operator=(const NVR_Reactor_Notify&) = delete;

    // Opens queue and pipe for that reactor, which is not owned and must be an NVR_Reactor. A nonzero last
    // argument opens nothing and answers 0. 0 for success, -1 for failure; close() gives back what was opened.
    int open(ACE_Reactor_Impl* reactor, ACE_Timer_Queue* timerQueue = nullptr, int disableNotifyPipe = 0) override;
    // Forgets the queued items and closes the pipe.
    int close() override;

    // Queues an item and rings, unless the bell rings already for items in front of it. Never waits: a full pipe
    // already holds a wake-up, so it counts as rung. The time limit is ignored. A null handler wakes the loop and
    // nothing more. 0, or -1 when the item could not be queued or the bell is broken (the item then stays queued).
    // Without a reactor 0 and nothing happens. Any thread.
    int notify(ACE_Event_Handler* handler = nullptr, ACE_Reactor_Mask mask = ACE_Event_Handler::EXCEPT_MASK,
               ACE_Time_Value* timeout = nullptr) override;

    // Part of the ACE interface; this reactor takes its items by dequeue_one. Always 0.
    int dispatch_notifications(int& activeHandles, ACE_Handle_Set& readMask) override;
    ACE_HANDLE notify_handle() override;
    // 1 when the item has a handler, 0 for a mere wake-up.
    int is_dispatchable(ACE_Notification_Buffer& buffer) override;
    // Calls the operation that the mask names on the item's handler, and its handle_close when that answers -1; then
    // empties the pipe when the item was the last one. Always 1.
    int dispatch_notify(ACE_Notification_Buffer& buffer) override;
    // Takes the next item that has a handler; the buffer has none when there is no such item, and the pipe is then
    // emptied. A byte stays in it while more is queued. 1, or the negative answer of the queue.
    int read_notify_pipe(ACE_HANDLE handle, ACE_Notification_Buffer& buffer) override;
    // Kept for the interface; one item is served per pass whatever the number.
    void max_notify_iterations(int iterations) override;
    int max_notify_iterations() override;
    // The number of items taken out; -1 for failure.
    int purge_pending_notifications(ACE_Event_Handler* handler = nullptr,
                                    ACE_Reactor_Mask mask = ACE_Event_Handler::ALL_EVENTS_MASK) override;
    void dump() const override;

    virtual int openEx(NVR_Reactor* reactor, ACE_Timer_Heap* timerQueue = nullptr, int disableNotifyPipe = 0);

    // read_notify_pipe on the pipe's read handle, with the buffer cleared first.
    int dequeue_one(ACE_Notification_Buffer& buffer);
    // True when the item taken last had others behind it: the pipe is readable then. The reactor's thread alone.
    bool IsKnownToRing() const { return m_moreQueued; }

private:
    int OpenPipe();
    int Ring();
    void CallHandler(const ACE_Notification_Buffer& buffer);
    void EmptyPipeUnlessPushed();

    NVR_Reactor* m_reactor = nullptr;  // not owned
    ACE_Pipe m_notificationPipe;
    ACE_Notification_Queue m_notificationQueue;
    int m_maxNotifyIterations = -1;
    ACE_Thread_Mutex m_mutex;  // Guards the pushes to m_notificationQueue; innermost lock.
    void* m_notifyObj = nullptr;
    std::atomic<bool> m_bellBroken{false};   // the last ring failed
    std::atomic<unsigned long> m_pushes{0};  // raised behind each push and before its ring
    unsigned long m_pushesBeforePop = 0;     // the reactor's thread alone
    bool m_emptyAfterService = false;        // the reactor's thread alone
    bool m_moreQueued = false;               // the reactor's thread alone
};
