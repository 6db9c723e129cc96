#include "gvx_common/intake/gvx_qfc.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shortage.h"
#include "bp/cmd.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/event/gvx_reactor_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Guard_T.h>
#include <ace/Thread_Manager.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <memory>
#include <new>
#include <thread>
#include <utility>

namespace {

using Guard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

const ACE_Time_Value kTimerPeriod(30);
constexpr std::int64_t kMicroseconds = 1000000;
constexpr std::chrono::milliseconds kThreadWait(1);

// A manager of our own, which is never destroyed: the threads never end, and the process's manager would lose its
// records of them when the process ends.
ACE_Thread_Manager* ThreadsWithoutEnd() {
    static ACE_Thread_Manager* const manager = new ACE_Thread_Manager;
    return manager;
}

}  // namespace

CQueueFlowControl::CQueueFlowControl(std::string strQueName, std::string strProtocal)
    : ACE_Task<ACE_MT_SYNCH, ACE_System_Time_Policy>(ThreadsWithoutEnd()),
      m_strQueName(std::move(strQueName)),
      m_strProtocal(std::move(strProtocal)) {}

CQueueFlowControl::~CQueueFlowControl() {
    Fini();
}

int CQueueFlowControl::QFC_MsgProc(void*) {
    GVX_LOG_ERR("Flow control", "The message process must be overwrite.");
    return 0;
}

void CQueueFlowControl::QFC_MsgFree(void*) {}

bool CQueueFlowControl::initAllMaxValue(unsigned int maxQueueMsgs, unsigned int timeoutMs, unsigned int maxEnqueueRate,
                                        unsigned int threadNum, unsigned int alarmIntervalSec) {
    SetMaxQueMsgCount(maxQueueMsgs);
    SetMaxTimeOutSec(timeoutMs);
    SetMaxEnQueRate(maxEnqueueRate);
    SetMaxMsgProcThreadNum(threadNum);
    SetMaxAlarmIntervalSec(alarmIntervalSec);
    return Init();
}

void CQueueFlowControl::SetMaxTimeOutSec(unsigned int milliseconds) {
    m_ulMsgTimeOutMs = milliseconds;
}

void CQueueFlowControl::SetMaxMsgProcThreadNum(unsigned int count) {
    m_ThreadNum = std::min(count, kMaxThreads);
}

bool CQueueFlowControl::Init() {
    if (m_init_b) {
        return true;
    }
    const Guard guard(m_init_mutex);
    if (!guard.locked()) {
        return false;
    }
    if (m_init_b) {
        return true;  // another thread was first
    }
    m_work_b = true;
    m_lQfcAlarmTimerID =
        CGvxReactorManager::Instance()->RegistTimer(&m_QfcAlarmTimer, this, ACE_Time_Value::zero, kTimerPeriod);
    if (m_lQfcAlarmTimerID == -1) {
        GVX_LOG_ERR("Flow control", "Queue %s has no timer.", m_strQueName.c_str());
    }
    if (m_lQfcAlarmTimerID == -1 || !StartThreads()) {
        StopTimer();
        m_work_b = false;
        return false;
    }
    m_init_b = true;
    return true;
}

// After Fini the threads of the first Init are still there and serve on.
bool CQueueFlowControl::StartThreads() {
    if (m_begun != 0) {
        return true;
    }
    m_ThreadNum = std::min(m_ThreadNum, kMaxThreads);
    ACE_thread_t ids[kMaxThreads] = {};
    unsigned int started = 0;
    constexpr int kBesideOthers = 1;
    while (started < m_ThreadNum && activate(THR_NEW_LWP | THR_DETACHED, 1, kBesideOthers, ACE_DEFAULT_THREAD_PRIORITY,
                                             -1, nullptr, nullptr, nullptr, nullptr, &ids[started]) == 0) {
        ++started;
    }
    const int error = errno;
    // One that is only just starting must not meet the end of the process: it would find what it makes itself of gone.
    while (m_begun < started) {
        std::this_thread::sleep_for(kThreadWait);
    }
    if (started == m_ThreadNum) {
        CGvxUtility::pthreadSetThreadname(ids, static_cast<int>(m_ThreadNum), m_strQueName);
        return true;
    }
    gvx::NoteShortage(gvx::Resource::Thread, error);
    GVX_LOG_ERR("Flow control", "There is no thread for queue %s, error code[%d].", m_strQueName.c_str(), error);
    m_work_b = false;
    while (m_begun != 0) {
        m_evWait.signal();
        std::this_thread::sleep_for(kThreadWait);
    }
    return false;
}

void CQueueFlowControl::Fini() {
    {
        const Guard guard(m_post_to_app_mutex);
        if (!guard.locked()) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
        for (std::size_t left = guard.locked() ? m_FlowControlQue.size() : 0; left > 0 && !m_FlowControlQue.empty();
             --left) {
            const std::unique_ptr<FLOW_CONGTROL_MSG> item(m_FlowControlQue.front());
            m_FlowControlQue.pop_front();
            if (item->pData != nullptr) {
                QFC_MsgFree(item->pData);
            }
        }
    }
    StopTimer();
    m_init_b = false;
}

void CQueueFlowControl::StopTimer() {
    if (m_lQfcAlarmTimerID != -1) {
        constexpr int kDontCall = 1;
        CGvxReactorManager::Instance()->UnRegistTimer(m_lQfcAlarmTimerID, kDontCall);
        m_lQfcAlarmTimerID = -1;
    }
}

int CQueueFlowControl::enqueue_tail(void* pData) {
    ++m_ulTotoalEnQueCnt;
    if (QFC_CheckQueueRate() != 0) {
        ++m_ulReachRatelimitDiscardCnt;
        sendFlowContolAlarm(QFC_ALARM_TYPE_SPEED_LIMIT);
        return 1;
    }
    const Guard guard(m_post_to_app_mutex);
    if (!guard.locked()) {
        return 0;
    }
    if (m_ulEnterQueCnt >= m_ulMaxMsgCnt) {
        return RefuseFull();
    }
    std::unique_ptr<FLOW_CONGTROL_MSG> pMsgEnQue(new (std::nothrow) FLOW_CONGTROL_MSG);
    if (pMsgEnQue == nullptr) {
        GVX_LOG_ERR_CODE("Flow control", ZVS_ALLOC_MEMORY_ERROR, "Point pMsgEnQue is null.");
        return 1;
    }
    pMsgEnQue->EnQueueTime = ACE_Time_Value(BP::OSTime::Time());
    pMsgEnQue->pData = pData;
    try {
        m_FlowControlQue.push_back(pMsgEnQue.get());
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Flow control", ZVS_ALLOC_MEMORY_ERROR, "There is no memory for a message in the queue.");
        return 1;
    }
    (void)pMsgEnQue.release();  // the queue's
    ++m_ulEnterQueCnt;
    m_evWait.signal();
    GVX_DEBUG("[QueName: %s , Protocal :%s]The queue message count is %u", m_strQueName.c_str(), m_strProtocal.c_str(),
              m_ulEnterQueCnt);
    return 0;
}

int CQueueFlowControl::RefuseFull() {
    const int level = ShedLevel(QFC_ALARM_TYPE_QUEUE_FULL);
    sendFlowContolAlarm(QFC_ALARM_TYPE_QUEUE_FULL);
    const unsigned int discarded = ++m_ulRejectQueFullCnt;
    GVX_LOG(level, "Flow control",
            "[QueName: %s , Protocal :%s]The message count is reached the upper limit %u, "
            "discarded: %u",
            m_strQueName.c_str(), m_strProtocal.c_str(), m_ulMaxMsgCnt.load(), discarded);
    return 1;
}

// A line for each message that is shed would flood the log when it is needed most, and hold up the threads: the first
// of an episode is the error, and the statistics count the others.
int CQueueFlowControl::ShedLevel(EN_QFC_ALARM_TYPE type) const {
    return m_szbAlarmQueStatus[type] ? OM_LOG_DEBUG : OM_LOG_ERR;
}

int CQueueFlowControl::QFC_CheckQueueRate() {
    const std::time_t now = BP::OSTime::Time();
    const std::time_t last = m_lastRecordTime;
    if (now < last || now - last > 1) {
        GVX_DEBUG("[QFC] Discard received message. DiscardCnt :%u, RecvCnt:%u, lastTime:%ld , Cur:%ld ",
                  m_ulDiscardCnt.load(), m_ulRecvCnt.load(), static_cast<long>(last), static_cast<long>(now));
        m_ulDiscardCnt = 0;
        m_lastRecordTime = now;
        m_ulRecvCnt = 1;
        return 0;
    }
    if (++m_ulRecvCnt > m_ulMaxRateCnt) {
        ++m_ulDiscardCnt;
        return 1;
    }
    return 0;
}

int CQueueFlowControl::svc() {
    ++m_begun;
    bool expired = false;
    bool succeeded = false;
    while (m_work_b) {
        std::unique_ptr<FLOW_CONGTROL_MSG> item;
        {
            const Guard guard(m_post_to_app_mutex);
            if (guard.locked()) {
                SettleRound(expired, succeeded);
                item.reset(PopFront());
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
        if (item != nullptr) {
            Serve(*item, expired, succeeded);
        } else {
            m_evWait.wait();
        }
    }
    --m_begun;
    return 0;
}

void CQueueFlowControl::SettleRound(bool& expired, bool& succeeded) {
    m_ulProcTimeOutCnt += std::exchange(expired, false) ? 1 : 0;
    m_ulProcSuccedCnt += std::exchange(succeeded, false) ? 1 : 0;
}

FLOW_CONGTROL_MSG* CQueueFlowControl::PopFront() {
    if (m_FlowControlQue.empty()) {
        return nullptr;
    }
    FLOW_CONGTROL_MSG* const item = m_FlowControlQue.front();
    m_FlowControlQue.pop_front();
    --m_ulEnterQueCnt;
    // Two arrivals signal the event once when no thread has waited between them: whoever leaves something behind wakes
    // the next.
    if (!m_FlowControlQue.empty()) {
        m_evWait.signal();
    }
    return item;
}

void CQueueFlowControl::Serve(FLOW_CONGTROL_MSG& item, bool& expired, bool& succeeded) {
    const std::int64_t waitLimit = m_ulMsgTimeOutMs;
    const ACE_Time_Value latest = item.EnQueueTime + ACE_Time_Value(static_cast<time_t>(waitLimit / 1000),
                                                                    static_cast<suseconds_t>(waitLimit % 1000 * 1000));
    if (ACE_Time_Value(BP::OSTime::Time()) > latest) {
        QFC_MsgFree(item.pData);
        expired = true;
        const int level = ShedLevel(QFC_ALARM_TYPE_TIME_OUT);
        sendFlowContolAlarm(QFC_ALARM_TYPE_TIME_OUT);
        GVX_LOG(level, "Flow control", "[QueName: %s , Protocal :%s]The message process timeout.", m_strQueName.c_str(),
                m_strProtocal.c_str());
        return;
    }
    try {
        succeeded = QFC_MsgProc(item.pData) == 0;
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Flow control", "[QueName: %s , Protocal :%s]The message is dropped: %s.", m_strQueName.c_str(),
                    m_strProtocal.c_str(), fault.what());
    }
    QFC_MsgFree(item.pData);
}

void CQueueFlowControl::sendFlowContolAlarm(EN_QFC_ALARM_TYPE type) {
    const Guard guard(m_init_mutex);
    if (!guard.locked() || type < 0 || type >= QFC_ALARM_TYPE_MAX) {
        return;
    }
    if (!m_szbAlarmQueStatus[type]) {
        try {
            CEmergencyProtection::Instance()->OnFluxControlWarn(m_strProtocal, m_strQueName,
                                                                szFlowControlDescription[type]);
        } catch (const std::bad_alloc&) {
            return;  // the next message that is shed raises it
        }
        // The time is set before the flag, because the clearing side looks at the flag first.
        m_szLastAlarmTime[type] = gvx::CurrentClock().WallMicroseconds();
        m_szbAlarmQueStatus[type] = true;
        return;
    }
    m_szLastAlarmTime[type] = gvx::CurrentClock().WallMicroseconds();
}

void CQueueFlowControl::sendFlowContolAlarmResume(EN_QFC_ALARM_TYPE type) {
    if (type < 0 || type >= QFC_ALARM_TYPE_MAX || !m_szbAlarmQueStatus[type]) {
        return;
    }
    const std::int64_t quietSince = m_szLastAlarmTime[type];
    if (gvx::CurrentClock().WallMicroseconds() < quietSince + m_ulMaxIntervalSec * kMicroseconds) {
        return;
    }
    try {
        CEmergencyProtection::Instance()->OnFluxControlResume(m_strProtocal, m_strQueName,
                                                              szFlowControlDescription[type]);
    } catch (const std::bad_alloc&) {
        return;  // the next turn of the timer clears it
    }
    m_szbAlarmQueStatus[type] = false;
}

void CQueueFlowControl::printMsgStatToString() {
    const unsigned int total = m_ulTotoalEnQueCnt;
    if (total == m_ulLastTotoalEnQueCnt) {
        return;
    }
    const unsigned int rate = m_ulReachRatelimitDiscardCnt;
    const unsigned int full = m_ulRejectQueFullCnt;
    const unsigned int late = m_ulProcTimeOutCnt;
    const unsigned int done = m_ulProcSuccedCnt;
    GVX_LOG_INFO("Flow control message statistics in this period.",
                 "[QueName: %s , Protocal :%s] Recieve total message : %u, discard: exceed rate limit : %u, queue full "
                 ": %u, process timeout : %u, process succeed : %u.",
                 m_strQueName.c_str(), m_strProtocal.c_str(), total - m_ulLastTotoalEnQueCnt,
                 rate - m_ulLastReachRatelimitDiscardCnt, full - m_ulLastRejectQueFullCnt,
                 late - m_ulLastProcTimeOutCnt, done - m_ulLastProcSuccedCnt);
    m_ulLastTotoalEnQueCnt = total;
    m_ulLastReachRatelimitDiscardCnt = rate;
    m_ulLastRejectQueFullCnt = full;
    m_ulLastProcTimeOutCnt = late;
    m_ulLastProcSuccedCnt = done;
}

int CQfcAlarmTimer::handle_timeout(const ACE_Time_Value& /*now*/, const void* act) {
    if (act == nullptr) {
        GVX_LOG_ERR_CODE("Qfc alarm resume timer handle timeout.", ZVS_GVX_ONVIF_APP_OBJECT_INVALID,
                         "Input arg is null.");
        return -1;
    }
    auto* const queue = static_cast<CQueueFlowControl*>(const_cast<void*>(act));
    for (const EN_QFC_ALARM_TYPE type :
         {QFC_ALARM_TYPE_QUEUE_FULL, QFC_ALARM_TYPE_TIME_OUT, QFC_ALARM_TYPE_SPEED_LIMIT}) {
        queue->sendFlowContolAlarmResume(type);
    }
    queue->printMsgStatToString();
    return 0;
}
