#pragma once

#include <ace/Lock.h>
#include <ace/Reactor_Impl.h>

#include <memory>

class ACE_Sig_Handler;

// A lock that locks nothing. Every operation answers 0.
class MyLock : public ACE_Lock {
public:
    int remove() override { return 0; }
    int acquire() override { return 0; }
    int tryacquire() override { return 0; }
    int release() override { return 0; }
    int acquire_read() override { return 0; }
    int acquire_write() override { return 0; }
    int tryacquire_read() override { return 0; }
    int tryacquire_write() override { return 0; }
    int tryacquire_write_upgrade() override { return 0; }
};

// The implementation object that ACE_Reactor insists on. NVR_Reactor does all the work itself, so this one is
// inert: every operation answers 0 and does nothing, but for initialized, restart and uses_event_associations
// (1), lock, and timer_queue. Any thread, since nothing is ever written after the making.
class QcnReactor : public ACE_Reactor_Impl {
public:
    QcnReactor();
    ~QcnReactor() override;
    // False when the lock could not be made; lock() must not be called then.
    bool IsUsable() const { return m_myLock != nullptr; }
    QcnReactor(const QcnReactor&) = delete;
    QcnReactor& operator=(const QcnReactor&) = delete;

    int open(size_t size, bool restart = false, ACE_Sig_Handler* signalHandler = nullptr,
             ACE_Timer_Queue* timerQueue = nullptr, int disableNotifyPipe = 0,
             ACE_Reactor_Notify* notify = nullptr) override;
    int current_info(ACE_HANDLE handle, size_t& size) override;
    int set_sig_handler(ACE_Sig_Handler* signalHandler) override;
    // Releases the former queue (closes it, since it was not owned) and keeps the new one, which stays the
    // caller's.
    int timer_queue(ACE_Timer_Queue* queue) override;
    ACE_Timer_Queue* timer_queue() const override;
    int close() override;

    int work_pending(const ACE_Time_Value& maxWait = ACE_Time_Value::zero) override;
    int handle_events(ACE_Time_Value* maxWait = nullptr) override;
    int alertable_handle_events(ACE_Time_Value* maxWait = nullptr) override;
    int handle_events(ACE_Time_Value& maxWait) override;
    int alertable_handle_events(ACE_Time_Value& maxWait) override;
    int deactivated() override;
    void deactivate(int doStop) override;

    int register_handler(ACE_Event_Handler* handler, ACE_Reactor_Mask mask) override;
    int register_handler(ACE_HANDLE handle, ACE_Event_Handler* handler, ACE_Reactor_Mask mask) override;
    int register_handler(ACE_HANDLE eventHandle, ACE_HANDLE ioHandle, ACE_Event_Handler* handler,
                         ACE_Reactor_Mask mask) override;
    int register_handler(const ACE_Handle_Set& handles, ACE_Event_Handler* handler, ACE_Reactor_Mask mask) override;
    int register_handler(int signum, ACE_Event_Handler* newHandler, ACE_Sig_Action* newAction = nullptr,
                         ACE_Event_Handler** oldHandler = nullptr, ACE_Sig_Action* oldAction = nullptr) override;
    int register_handler(const ACE_Sig_Set& sigset, ACE_Event_Handler* newHandler,
                         ACE_Sig_Action* newAction = nullptr) override;
    int remove_handler(ACE_Event_Handler* handler, ACE_Reactor_Mask mask) override;
    int remove_handler(ACE_HANDLE handle, ACE_Reactor_Mask mask) override;
    int remove_handler(const ACE_Handle_Set& handles, ACE_Reactor_Mask mask) override;
    int remove_handler(int signum, ACE_Sig_Action* newAction, ACE_Sig_Action* oldAction = nullptr,
                       int sigkey = -1) override;
    int remove_handler(const ACE_Sig_Set& sigset) override;

    int suspend_handler(ACE_Event_Handler* handler) override;
    int suspend_handler(ACE_HANDLE handle) override;
    int suspend_handler(const ACE_Handle_Set& handles) override;
    int suspend_handlers() override;
    int resume_handler(ACE_Event_Handler* handler) override;
    int resume_handler(ACE_HANDLE handle) override;
    int resume_handler(const ACE_Handle_Set& handles) override;
    int resume_handlers() override;
    int resumable_handler() override;
    bool uses_event_associations() override;

    long schedule_timer(ACE_Event_Handler* handler, const void* arg, const ACE_Time_Value& delay,
                        const ACE_Time_Value& interval = ACE_Time_Value::zero) override;
    int reset_timer_interval(long timerId, const ACE_Time_Value& interval) override;
    int cancel_timer(ACE_Event_Handler* handler, int dontCallHandleClose = 1) override;
    int cancel_timer(long timerId, const void** arg = nullptr, int dontCallHandleClose = 1) override;

    int schedule_wakeup(ACE_Event_Handler* handler, ACE_Reactor_Mask masksToBeAdded) override;
    int schedule_wakeup(ACE_HANDLE handle, ACE_Reactor_Mask masksToBeAdded) override;
    int cancel_wakeup(ACE_Event_Handler* handler, ACE_Reactor_Mask masksToBeCleared) override;
    int cancel_wakeup(ACE_HANDLE handle, ACE_Reactor_Mask masksToBeCleared) override;

    int notify(ACE_Event_Handler* handler = nullptr, ACE_Reactor_Mask mask = ACE_Event_Handler::EXCEPT_MASK,
               ACE_Time_Value* timeout = nullptr) override;
    void max_notify_iterations(int iterations) override;
    int max_notify_iterations() override;
    int purge_pending_notifications(ACE_Event_Handler* handler = nullptr,
                                    ACE_Reactor_Mask mask = ACE_Event_Handler::ALL_EVENTS_MASK) override;

    ACE_Event_Handler* find_handler(ACE_HANDLE handle) override;
    int handler(ACE_HANDLE handle, ACE_Reactor_Mask mask, ACE_Event_Handler** eventHandler = nullptr) override;
    int handler(int signum, ACE_Event_Handler** eventHandler = nullptr) override;

    bool initialized() override;
    size_t size() const override;
    ACE_Lock& lock() override;
    void wakeup_all_threads() override;
    int owner(ACE_thread_t newOwner, ACE_thread_t* oldOwner = nullptr) override;
    int owner(ACE_thread_t* owner) override;
    bool restart() override;
    bool restart(bool restart) override;
    void requeue_position(int position) override;
    int requeue_position() override;

    int mask_ops(ACE_Event_Handler* handler, ACE_Reactor_Mask mask, int ops) override;
    int mask_ops(ACE_HANDLE handle, ACE_Reactor_Mask mask, int ops) override;
    int ready_ops(ACE_Event_Handler* handler, ACE_Reactor_Mask mask, int ops) override;
    int ready_ops(ACE_HANDLE handle, ACE_Reactor_Mask mask, int ops) override;
    void dump() const override;

protected:
    ACE_Timer_Queue* timer_queue_ = nullptr;  // not owned
    bool delete_timer_queue_ = false;
    ACE_Sig_Handler* signal_handler_ = nullptr;
    bool delete_signal_handler_ = false;
    ACE_Reactor_Notify* notify_handler_ = nullptr;
    bool delete_notify_handler_ = false;

private:
    std::unique_ptr<MyLock> m_myLock;
};
