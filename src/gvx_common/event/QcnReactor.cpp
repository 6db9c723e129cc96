#include "gvx_common/event/QcnReactor.h"

#include <ace/Timer_Queue.h>

#include <new>

QcnReactor::QcnReactor() : m_myLock(new (std::nothrow) MyLock()) {}

QcnReactor::~QcnReactor() = default;

int QcnReactor::timer_queue(ACE_Timer_Queue* queue) {
    if (delete_timer_queue_) {
        delete timer_queue_;
    } else if (timer_queue_ != nullptr) {
        timer_queue_->close();
    }
    timer_queue_ = queue;
    delete_timer_queue_ = false;
    return 0;
}

ACE_Timer_Queue* QcnReactor::timer_queue() const {
    return timer_queue_;
}

ACE_Lock& QcnReactor::lock() {
    return *m_myLock;
}

bool QcnReactor::initialized() {
    return true;
}

bool QcnReactor::restart() {
    return true;
}

bool QcnReactor::restart(bool) {
    return true;
}

bool QcnReactor::uses_event_associations() {
    return true;
}

int QcnReactor::open(size_t, bool, ACE_Sig_Handler*, ACE_Timer_Queue*, int, ACE_Reactor_Notify*) {
    return 0;
}
int QcnReactor::current_info(ACE_HANDLE, size_t&) {
    return 0;
}
int QcnReactor::set_sig_handler(ACE_Sig_Handler*) {
    return 0;
}
int QcnReactor::close() {
    return 0;
}
int QcnReactor::work_pending(const ACE_Time_Value&) {
    return 0;
}
int QcnReactor::handle_events(ACE_Time_Value*) {
    return 0;
}
int QcnReactor::alertable_handle_events(ACE_Time_Value*) {
    return 0;
}
int QcnReactor::handle_events(ACE_Time_Value&) {
    return 0;
}
int QcnReactor::alertable_handle_events(ACE_Time_Value&) {
    return 0;
}
int QcnReactor::deactivated() {
    return 0;
}
void QcnReactor::deactivate(int) {}

int QcnReactor::register_handler(ACE_Event_Handler*, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::register_handler(ACE_HANDLE, ACE_Event_Handler*, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::register_handler(ACE_HANDLE, ACE_HANDLE, ACE_Event_Handler*, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::register_handler(const ACE_Handle_Set&, ACE_Event_Handler*, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::register_handler(int, ACE_Event_Handler*, ACE_Sig_Action*, ACE_Event_Handler**, ACE_Sig_Action*) {
    return 0;
}
int QcnReactor::register_handler(const ACE_Sig_Set&, ACE_Event_Handler*, ACE_Sig_Action*) {
    return 0;
}
int QcnReactor::remove_handler(ACE_Event_Handler*, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::remove_handler(ACE_HANDLE, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::remove_handler(const ACE_Handle_Set&, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::remove_handler(int, ACE_Sig_Action*, ACE_Sig_Action*, int) {
    return 0;
}
int QcnReactor::remove_handler(const ACE_Sig_Set&) {
    return 0;
}

int QcnReactor::suspend_handler(ACE_Event_Handler*) {
    return 0;
}
int QcnReactor::suspend_handler(ACE_HANDLE) {
    return 0;
}
int QcnReactor::suspend_handler(const ACE_Handle_Set&) {
    return 0;
}
int QcnReactor::suspend_handlers() {
    return 0;
}
int QcnReactor::resume_handler(ACE_Event_Handler*) {
    return 0;
}
int QcnReactor::resume_handler(ACE_HANDLE) {
    return 0;
}
int QcnReactor::resume_handler(const ACE_Handle_Set&) {
    return 0;
}
int QcnReactor::resume_handlers() {
    return 0;
}
int QcnReactor::resumable_handler() {
    return 0;
}

long QcnReactor::schedule_timer(ACE_Event_Handler*, const void*, const ACE_Time_Value&, const ACE_Time_Value&) {
    return 0;
}
int QcnReactor::reset_timer_interval(long, const ACE_Time_Value&) {
    return 0;
}
int QcnReactor::cancel_timer(ACE_Event_Handler*, int) {
    return 0;
}
int QcnReactor::cancel_timer(long, const void**, int) {
    return 0;
}

int QcnReactor::schedule_wakeup(ACE_Event_Handler*, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::schedule_wakeup(ACE_HANDLE, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::cancel_wakeup(ACE_Event_Handler*, ACE_Reactor_Mask) {
    return 0;
}
int QcnReactor::cancel_wakeup(ACE_HANDLE, ACE_Reactor_Mask) {
    return 0;
}

int QcnReactor::notify(ACE_Event_Handler*, ACE_Reactor_Mask, ACE_Time_Value*) {
    return 0;
}
void QcnReactor::max_notify_iterations(int) {}
int QcnReactor::max_notify_iterations() {
    return 0;
}
int QcnReactor::purge_pending_notifications(ACE_Event_Handler*, ACE_Reactor_Mask) {
    return 0;
}

ACE_Event_Handler* QcnReactor::find_handler(ACE_HANDLE) {
    return nullptr;
}
int QcnReactor::handler(ACE_HANDLE, ACE_Reactor_Mask, ACE_Event_Handler**) {
    return 0;
}
int QcnReactor::handler(int, ACE_Event_Handler**) {
    return 0;
}

size_t QcnReactor::size() const {
    return 0;
}
void QcnReactor::wakeup_all_threads() {}
int QcnReactor::owner(ACE_thread_t, ACE_thread_t*) {
    return 0;
}
int QcnReactor::owner(ACE_thread_t*) {
    return 0;
}
void QcnReactor::requeue_position(int) {}
int QcnReactor::requeue_position() {
    return 0;
}

int QcnReactor::mask_ops(ACE_Event_Handler*, ACE_Reactor_Mask, int) {
    return 0;
}
int QcnReactor::mask_ops(ACE_HANDLE, ACE_Reactor_Mask, int) {
    return 0;
}
int QcnReactor::ready_ops(ACE_Event_Handler*, ACE_Reactor_Mask, int) {
    return 0;
}
int QcnReactor::ready_ops(ACE_HANDLE, ACE_Reactor_Mask, int) {
    return 0;
}
void QcnReactor::dump() const {}
