#pragma once

#include "bp/cmd.h"

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Task.h>
#include <ace/Thread_Mutex.h>
#include <ace/Thread_Semaphore.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <vector>

class NVR_Reactor;

namespace BP {
class CGvxSessionBase;
}

using CCmdQueue = std::deque<BP::CGvxNssCmd_>;

// One thread, one event loop and one command queue: the unit of serial execution. The commands in its queue are
// served one at a time on its own thread, in order, deletions first. It also carries timers and handlers for
// whoever registers them. A reactor runs as soon as it is made.
//
// Commands and handlers may be given by any thread. A session runs under the event loop's lock, so another thread
// that registers a handler here waits for the running command; PushMessage never does.
//
// Unless said otherwise, 0 is success and nonzero failure.
class CGvxReactor : public ACE_Task<ACE_MT_SYNCH, ACE_System_Time_Policy> {
public:
    CGvxReactor();
    explicit CGvxReactor(unsigned long stackSize);
    // Stack in bytes; the name is that of the thread, at most 15 characters.
    CGvxReactor(unsigned long stackSize, const char* threadName);
    // Stops the thread. Nobody may use the reactor any more; handlers that name it as their reactor must be gone.
    ~CGvxReactor() override;
    CGvxReactor(const CGvxReactor&) = delete;
    CGvxReactor& operator=(const CGvxReactor&) = delete;

    int Init();
    // Ends the thread and waits for it, hence for the command that runs. Queued commands are not served any more.
    // It deletes the event loop, so no other thread may push, register or notify from here on; what comes after it
    // has returned is refused.
    int UnInit();
    // False when the event loop or the thread could not be made, and after UnInit.
    bool IsRunning() const { return m_bRunFlag.load(); }

    // Whether the calling thread is the reactor's own. Any thread.
    bool IsOwnThread() const { return m_ownThread.load() == std::this_thread::get_id(); }

    // Queues a clone of the command; the caller keeps its own. Never waits for a running command. Nonzero: the
    // queue is full (513 entries; stop-stream requests and device SDK exceptions of type 1 always get in), no
    // memory, or the event loop cannot be woken.
    int PushMessage(const BP::CGvxNssCmd_& cmd);
    // 0 when out holds a command to run, which the caller then owns; 2 when the queue held a null command; 1 when
    // there is nothing to run. The reactor's thread.
    int PopMessage(BP::CGvxNssCmd_& out);

    // The handler stays the caller's, and from then on names this reactor's event loop as its reactor().
    int RegistHandle(ACE_Event_Handler* handler, unsigned long mask);
    // Works on the reactor that the handler itself names. 1 when it names none; 0 even when that one refuses.
    int UnRegistHandle(const ACE_Event_Handler* handler, unsigned long mask);
    // The timer's id, -1 for failure.
    long RegistTimer(ACE_Event_Handler* handler, const void* arg, const ACE_Time_Value& delay,
                     const ACE_Time_Value& interval);
    // dontCall nonzero: the handler's handle_close is not called. 1 for an unknown timer.
    int UnRegistTimer(long timerId, int dontCall);
    int notify(ACE_Event_Handler* handler, unsigned long mask);

    // What the reactor has to do and has done. Any thread; takes the queue's lock for a moment.
    struct Load {
        std::string threadName;
        std::size_t queued = 0;
        std::size_t most = 0;       // the queue is full above it
        std::uint64_t served = 0;   // commands since it was made
        std::uint64_t refused = 0;  // for a full queue, since it was made
    };
    Load GetLoad();

    // Devices bound now, and devices that have a track here. Read without a lock: a moment's figure.
    int GetEventHandleNum() const { return m_iEventHandleNum.load(); }
    int GetHistoryTrackNum() const { return m_historyTrackNum.load(); }
    void AttachReactor();
    void DetachReactor();
    void IncreaseHistoryTrackNum();
    void DecreaseHistoryTrackNum();

    // Serves one command; called once for every notification. The result of the session; 1 when there is no command,
    // no session for it, or when serving threw, in which case the command is destroyed and logged.
    int handle_exception(ACE_HANDLE handle = ACE_INVALID_HANDLE) override;
    int close(unsigned long flags = 0) override;
    int svc() override;

private:
    void classMemberInit();
    int createResources();
    int createServiceThreads();
    void WaitForThreadEnd();
    void CloseReactor();
    void FreeSemaphore();

    int EnqueueCmd(const BP::CGvxNssCmd_& cmd);
    bool QueueClone(const BP::CGvxNssCmd_& cmd);
    void TakeBackLastCmd();
    int PushMsgWhenQueueFull(const BP::CGvxNssCmd_& cmd);
    int RefuseCmd(const BP::CGvxNssCmd_& cmd);
    void TellRefusedCmds();
    void DiscardCmdAfterDelDev(const BP::CGvxNssCmd_& entry);
    bool DiscardTimeoutCmd(std::unique_ptr<BP::CCmd>& cmd);
    void DropQueue();

    std::unique_ptr<BP::CGvxSessionBase> CreatSession(const BP::CCmd* pCmd, const std::string& devID);
    int ServeNextCmd(BP::CGvxNssCmd_& entry, std::unique_ptr<BP::CCmd>& cmd);
    int ServeCmd(const BP::CCmd& cmd, const std::string& devID);

    std::atomic<bool> m_bRunFlag{false};
    std::atomic<std::thread::id> m_ownThread{};
    NVR_Reactor* m_pReactor = nullptr;                               // owned, made and deleted by Init and UnInit
    ACE_Thread_Semaphore* m_pReactorEventThreadSemaphore = nullptr;  // owned, made by the thread before Init ends
    std::atomic<int> m_iEventHandleNum{0};                           // Written under m_EventHdMutex.
    std::atomic<int> m_historyTrackNum{0};                           // Written under m_EventHdMutex.
    std::size_t m_unStackSize = 0;
    ACE_Thread_Mutex m_EventHdMutex;  // Never taken together with m_mutexCmd.
    char m_aucThreadName[16] = {};
    BP::CGvxNssCmd_ m_served;               // the reactor's thread alone
    std::string m_sessionID;                // of the session made last; the same
    std::vector<std::string> m_spareTexts;  // of commands that were served, for the next; guarded by m_mutexCmd
    CCmdQueue m_queueCmd;                   // Guarded by m_mutexCmd.
    ACE_Recursive_Thread_Mutex m_mutexCmd;  // Never held across notify or a session.
    unsigned int m_iMaxCmdCnt = 0;
    unsigned long m_refusedCmds = 0;          // since the queue is full; guarded by m_mutexCmd
    std::uint64_t m_refusedInAll = 0;         // guarded by m_mutexCmd
    std::uint64_t m_poppedCmds = 0;           // to be served; guarded by m_mutexCmd
    ACE_Thread_Semaphore m_threadStarted{0};  // given when the thread has made all that UnInit looks at
};
