#pragma once

#include <ace/Auto_Event.h>
#include <ace/Event_Handler.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Task.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <list>
#include <string>

// Why a queue sheds load; each has an alarm of its own.
enum EN_QFC_ALARM_TYPE : int {
    QFC_ALARM_TYPE_QUEUE_FULL = 0,
    QFC_ALARM_TYPE_TIME_OUT = 1,
    QFC_ALARM_TYPE_SPEED_LIMIT = 2,
    QFC_ALARM_TYPE_MAX = 3,
};

// The reasons as alarms name them.
constexpr const char* szFlowControlDescription[QFC_ALARM_TYPE_MAX] = {"queue full", "over time",
                                                                      "speed limit exceeded"};

// One queued item; owned by the queue.
struct FLOW_CONGTROL_MSG {
    ACE_Time_Value EnQueueTime;  // whole seconds of the wall clock
    void* pData;                 // the caller's message
};

using FlowControl_Q = std::list<FLOW_CONGTROL_MSG*>;

// Clears the alarms of the queue that its argument names and prints the queue's figures. Runs on the general reactor.
class CQfcAlarmTimer : public ACE_Event_Handler {
public:
    // act is the CQueueFlowControl. 0, or -1 for null.
    int handle_timeout(const ACE_Time_Value& now, const void* act) override;
};

// A bounded work queue with threads of its own, for front ends that take messages faster than they can be served. It
// sheds load by an arrival rate, by its length, and by the time that a message may wait. Each is counted and raises an
// alarm once an episode; the alarm clears when nothing of the kind has happened for the alarm interval.
//
// A derived class supplies the work. The threads are never stopped: once Init has succeeded the object must live until
// the process ends, so make it with new and keep it; Fini empties it for good measure. A derived class that is
// destroyed all the same calls Fini in its own destructor, since the messages are released by its QFC_MsgFree.
//
// Any thread may enqueue. With more than one thread, the work on successive messages may overlap. Limits are set before
// Init. Lock order: m_post_to_app_mutex, then m_init_mutex.
class CQueueFlowControl : public ACE_Task<ACE_MT_SYNCH, ACE_System_Time_Policy> {
public:
    static constexpr unsigned int kNoRateLimit = 0xFFFFFFFF;
    static constexpr unsigned int kMaxThreads = 32;

    // The names stand in logs and alarms; the first also names the threads (15 characters of it).
    CQueueFlowControl(std::string strQueName, std::string strProtocal);
    CQueueFlowControl(const CQueueFlowControl&) = delete;
    CQueueFlowControl& operator=(const CQueueFlowControl&) = delete;
    ~CQueueFlowControl() override;

    int svc() override;

    // The work; runs on the queue's threads. 0 counts as a success.
    virtual int QFC_MsgProc(void* pData);
    // Releases a message after its work, when it has waited too long, and in Fini under the queue's lock.
    virtual void QFC_MsgFree(void* pData);
    // Nonzero when the rate limit refuses this arrival.
    virtual int QFC_CheckQueueRate();

    // Sets all limits, then Init; its result.
    bool initAllMaxValue(unsigned int maxQueueMsgs, unsigned int timeoutMs, unsigned int maxEnqueueRate,
                         unsigned int threadNum, unsigned int alarmIntervalSec);
    void SetMaxQueMsgCount(unsigned int count) { m_ulMaxMsgCnt = count; }
    // In milliseconds, in spite of the name. Waiting is measured in whole seconds.
    void SetMaxTimeOutSec(unsigned int milliseconds);
    // Messages in a window of up to two seconds; kNoRateLimit for none.
    void SetMaxEnQueRate(unsigned int count) { m_ulMaxRateCnt = count; }
    // At most kMaxThreads.
    void SetMaxMsgProcThreadNum(unsigned int count);
    void SetMaxAlarmIntervalSec(unsigned int seconds) { m_ulMaxIntervalSec = seconds; }

    // Starts threads and timer. True also when they run already.
    bool Init();
    // Releases what is queued and stops the timer. The threads stay, and so does the length that is counted.
    void Fini();

    // 0 when the message is taken; 1 when it is refused and stays the caller's.
    int enqueue_tail(void* pData);

    void sendFlowContolAlarm(EN_QFC_ALARM_TYPE type);
    void sendFlowContolAlarmResume(EN_QFC_ALARM_TYPE type);
    // Logs what has changed since the last call; nothing when nothing has arrived.
    void printMsgStatToString();

protected:
    using Counter = std::atomic<unsigned int>;

    int RefuseFull();
    int ShedLevel(EN_QFC_ALARM_TYPE type) const;
    void SettleRound(bool& expired, bool& succeeded);
    FLOW_CONGTROL_MSG* PopFront();
    void Serve(FLOW_CONGTROL_MSG& item, bool& expired, bool& succeeded);
    bool StartThreads();
    void StopTimer();

    const std::string m_strQueName;
    const std::string m_strProtocal;
    // The rate window. Atomic for concurrent arrivals, which make the check approximate.
    Counter m_ulDiscardCnt{0};
    Counter m_ulRecvCnt{0};
    std::atomic<std::time_t> m_lastRecordTime{0};  // start of the window

    std::atomic<std::int64_t> m_ulMsgTimeOutMs{2000};  // limit on waiting, milliseconds
    Counter m_ulMaxMsgCnt{1024};
    Counter m_ulMaxRateCnt{kNoRateLimit};
    Counter m_ulMaxIntervalSec{60};
    unsigned int m_ThreadNum = 1;

    ACE_Recursive_Thread_Mutex m_post_to_app_mutex;  // Guards the queue and its length.
    FlowControl_Q m_FlowControlQue;                  // Guarded by m_post_to_app_mutex.
    unsigned int m_ulEnterQueCnt = 0;                // Guarded by m_post_to_app_mutex.
    ACE_Auto_Event m_evWait;                         // the threads sleep on it

    // Running totals, and those at the last printing.
    Counter m_ulTotoalEnQueCnt{0};
    Counter m_ulReachRatelimitDiscardCnt{0};
    Counter m_ulRejectQueFullCnt{0};
    Counter m_ulProcTimeOutCnt{0};
    Counter m_ulProcSuccedCnt{0};
    Counter m_ulLastTotoalEnQueCnt{0};
    Counter m_ulLastReachRatelimitDiscardCnt{0};
    Counter m_ulLastRejectQueFullCnt{0};
    Counter m_ulLastProcTimeOutCnt{0};
    Counter m_ulLastProcSuccedCnt{0};

    Counter m_begun{0};  // threads that are at their work
    std::atomic<bool> m_init_b{false};
    std::atomic<bool> m_work_b{false};                                     // the threads run while it is true
    ACE_Recursive_Thread_Mutex m_init_mutex;                               // Guards Init and the raising of alarms.
    std::atomic<bool> m_szbAlarmQueStatus[QFC_ALARM_TYPE_MAX] = {};        // raised
    std::atomic<std::int64_t> m_szLastAlarmTime[QFC_ALARM_TYPE_MAX] = {};  // last occurrence, wall microseconds
    CQfcAlarmTimer m_QfcAlarmTimer;
    long m_lQfcAlarmTimerID = -1;  // Of whoever calls Init and Fini.
};
