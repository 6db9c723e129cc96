#include "gvx_common/event/gvx_reactor.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "base/shortage.h"
#include "gvx_common/event/NVR_Reactor.h"
#include "gvx_common/event/QcnReactor.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Guard_T.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_unistd.h>
#include <ace/Thread.h>
#include <ace/Thread_Manager.h>
#include <openssl/crypto.h>

#include <cerrno>
#include <csignal>
#include <new>

namespace {

constexpr std::size_t kDefaultStackBytes = 524288;
constexpr unsigned int kMaxQueuedCmds = 512;
constexpr int kSemaphoreMax = 2147483647;
constexpr unsigned int kLoopErrorPauseSeconds = 1;
constexpr long kNotifyPauseMicroseconds = 100000;

// What ACE says of a call that failed goes to standard error, and reactors that are made as the library is loaded come
// before any program could turn it off. What it says is said here in the log.
class ScopedQuietAce {
public:
    ScopedQuietAce() : m_former(ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS)) {}
    ~ScopedQuietAce() { ACE_LOG_MSG->priority_mask(m_former, ACE_Log_Msg::PROCESS); }
    ScopedQuietAce(const ScopedQuietAce&) = delete;
    ScopedQuietAce& operator=(const ScopedQuietAce&) = delete;

private:
    const u_long m_former;
};

// A signal that some thread of the process takes must not end the wait of this one early. Reactors that are made as the
// library is loaded come before any mask that a program sets.
void BlockSignals() {
    sigset_t all;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP}) {
        sigdelset(&all, fault);
    }
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

// An NVR_Reactor and the QcnReactor that it deletes.
constexpr long kObjectsOfReactor = 2;

}  // namespace

CGvxReactor::CGvxReactor() {
    classMemberInit();
    Init();
}

CGvxReactor::CGvxReactor(unsigned long stackSize) {
    classMemberInit();
    m_unStackSize = stackSize;
    Init();
}

CGvxReactor::CGvxReactor(unsigned long stackSize, const char* threadName) {
    classMemberInit();
    m_unStackSize = stackSize;
    const int result = sprintf_s(m_aucThreadName, sizeof(m_aucThreadName), "%s", threadName);
    if (result < 0) {
        GVX_LOG_ERR("create reactor", "sprintf_s fail, return iret[%d]", result);
    }
    Init();
}

CGvxReactor::~CGvxReactor() {
    if (UnInit() != 0) {
        // The thread could not be told to end. It still uses this object, so nothing of it may go yet.
        while (m_pReactor->notify(nullptr, ACE_Event_Handler::EXCEPT_MASK) != 0) {
            ACE_OS::sleep(ACE_Time_Value(0, kNotifyPauseMicroseconds));
        }
        WaitForThreadEnd();
    }
    FreeSemaphore();
    DropQueue();
}

void CGvxReactor::classMemberInit() {
    m_unStackSize = kDefaultStackBytes;
    m_iMaxCmdCnt = kMaxQueuedCmds;
    m_spareTexts.reserve(kMaxQueuedCmds);
    strncpy_s(m_aucThreadName, sizeof(m_aucThreadName), "gvx", sizeof(m_aucThreadName) - 1);
}

int CGvxReactor::Init() {
    const int result = createResources();
    if (result != 0) {
        GVX_LOG_ERR("init reactor", "failed to Init iret[%d]", result);
        return 1;
    }
    m_bRunFlag = true;
    if (createServiceThreads() != 0) {
        m_bRunFlag = false;
        // Without its thread it would take handlers and timers and serve none of them.
        CloseReactor();
        return 1;
    }
    return 0;
}

int CGvxReactor::createResources() {
    const ScopedQuietAce quiet;
    if (!gvx::FindsMemory(m_unStackSize)) {
        GVX_LOG_ERR("init reactor", "Create debug reactor fail.");
        return 1;
    }
    auto* implementation = new (std::nothrow) QcnReactor();
    auto* reactor = implementation != nullptr && implementation->IsUsable() ? new (std::nothrow)
                                                                                  NVR_Reactor(implementation, true)
                                                                            : nullptr;
    if (reactor == nullptr) {
        gvx::NoteShortage(implementation != nullptr && !implementation->IsUsable() ? errno : ENOMEM);
        delete implementation;
        GVX_LOG_ERR("init reactor", "Create debug reactor fail.");
        return 1;
    }
    if (!reactor->IsUsable()) {
        // Without a descriptor the loop would spin, and without a doorbell it would never wake.
        gvx::NoteShortage(errno);
        reactor->close();
        delete reactor;
        GVX_LOG_ERR("init reactor", "Create debug reactor fail.");
        return 1;
    }
    g_bp_memstat += kObjectsOfReactor;
    m_pReactor = reactor;
    return 0;
}

int CGvxReactor::createServiceThreads() {
    std::size_t stackSize = m_unStackSize;
    errno = ENOMEM;
    const int result = gvx::FindsMemory(stackSize)
                           ? activate(THR_NEW_LWP | THR_DETACHED, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, -1, nullptr,
                                      nullptr, nullptr, &stackSize)
                           : -1;
    if (result == -1) {
        const int error = errno;
        gvx::NoteShortage(gvx::Resource::Thread, error);
        GVX_LOG_ERR("Create gvxReactor service threads fail.", "error code[%d].", error);
        return 1;
    }
    // UnInit needs the semaphore, which is the first thing that the thread makes. Without it the thread ends.
    m_threadStarted.acquire();
    if (!m_bRunFlag) {
        WaitForThreadEnd();
        return 1;
    }
    return 0;
}

int CGvxReactor::svc() {
    BlockSignals();
    m_ownThread = std::this_thread::get_id();
    CGvxUtility::pthreadSetThreadname(pthread_self(), m_aucThreadName);  // by itself: that needs no descriptor
    if (m_pReactor == nullptr) {
        GVX_LOG_ERR("reactor thread", "reactor  thread exit, resource not created.");
        m_threadStarted.release();
        return 1;
    }
    m_pReactor->owner(ACE_Thread::self());
    m_pReactor->restart(false);
    m_pReactorEventThreadSemaphore = new (std::nothrow) ACE_Thread_Semaphore(0, nullptr, nullptr, kSemaphoreMax);
    g_bp_memstat += m_pReactorEventThreadSemaphore != nullptr ? 1 : 0;
    m_bRunFlag = m_pReactorEventThreadSemaphore != nullptr;
    m_threadStarted.release();
    GVX_CHECK_NULL_RETURN(m_pReactorEventThreadSemaphore, 1);
    while (m_bRunFlag) {
        if (m_pReactor->handle_events(nullptr) < 0) {
            const int error = errno;
            GVX_LOG_ERR("reactor event loop error, ", "error code[%d].", error);
            ACE_OS::sleep(kLoopErrorPauseSeconds);
        }
    }
    // What the cryptographic library keeps for this thread: nobody waits for the thread's very end, and behind the end
    // of main the library could not give it back any more.
    OPENSSL_thread_stop();
    m_pReactorEventThreadSemaphore->release();
    GVX_LOG(OM_LOG_DEBUG, "reactor thread", "Reactor loop thread exit.");
    return 0;
}

int CGvxReactor::close(unsigned long) {
    GVX_LOG(OM_LOG_DEBUG, "reactor thread", "ace task has closed.");
    return 0;
}

int CGvxReactor::UnInit() {
    m_bRunFlag = false;
    if (m_pReactor == nullptr) {
        return 0;
    }
    if (m_pReactor->notify(nullptr, ACE_Event_Handler::EXCEPT_MASK) != 0) {
        GVX_LOG_ERR("uninit reactor", "Failed to notify reactor, EXCEPT_MASK");
        return 1;
    }
    WaitForThreadEnd();
    FreeSemaphore();
    CloseReactor();
    return 0;
}

void CGvxReactor::CloseReactor() {
    m_pReactor->close();
    delete m_pReactor;
    m_pReactor = nullptr;
    g_bp_memstat -= kObjectsOfReactor;
}

void CGvxReactor::FreeSemaphore() {
    if (m_pReactorEventThreadSemaphore != nullptr) {
        delete m_pReactorEventThreadSemaphore;
        m_pReactorEventThreadSemaphore = nullptr;
        --g_bp_memstat;
    }
}

// The semaphore tells that the loop has ended. The thread then leaves through the base class, which calls this object
// once more and takes the thread off the manager's list last.
void CGvxReactor::WaitForThreadEnd() {
    if (m_pReactorEventThreadSemaphore != nullptr) {
        m_pReactorEventThreadSemaphore->acquire();
    }
    while (thr_mgr() != nullptr && thr_mgr()->num_threads_in_task(this) > 0) {
        ACE_Thread::yield();
    }
}

void CGvxReactor::DropQueue() {
    for (const BP::CGvxNssCmd_& entry : m_queueCmd) {
        delete entry.m_pCmd;
    }
    m_queueCmd.clear();
}

void CGvxReactor::AttachReactor() {
    ACE_Guard<ACE_Thread_Mutex> guard(m_EventHdMutex);
    ++m_iEventHandleNum;
}

void CGvxReactor::DetachReactor() {
    ACE_Guard<ACE_Thread_Mutex> guard(m_EventHdMutex);
    --m_iEventHandleNum;
}

void CGvxReactor::IncreaseHistoryTrackNum() {
    ACE_Guard<ACE_Thread_Mutex> guard(m_EventHdMutex);
    ++m_historyTrackNum;
}

void CGvxReactor::DecreaseHistoryTrackNum() {
    ACE_Guard<ACE_Thread_Mutex> guard(m_EventHdMutex);
    --m_historyTrackNum;
}

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
    GVX_LOG(OM_LOG_DEBUG, "register handler", "Register handler success, handle[%p], mask[%lu].",
            static_cast<void*>(handler), mask);
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
    GVX_LOG(OM_LOG_DEBUG, "register timer", "Register timer, handle[%p] timerID[%ld].", static_cast<void*>(handler),
            timerId);
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
    GVX_LOG(OM_LOG_DEBUG, "cancel timer", "Cancel timer success, timerID[%ld].", timerId);
    return 0;
}

int CGvxReactor::notify(ACE_Event_Handler* handler, unsigned long mask) {
    return m_pReactor != nullptr ? m_pReactor->notify(handler, mask, nullptr) : 1;
}
