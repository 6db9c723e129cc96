#include "gvx_common/alarm/alarm_outbox.h"

#include "base/fixed_text.h"
#include "base/log.h"
#include "base/zvs_error.h"
#include "bp/dispatcher.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <endian.h>

namespace gvx {

namespace {

constexpr const char* kMakerName = "TARVEL";
constexpr const char* kGatewayPrefix = "GVX#";
constexpr const char* kGatewayName = "CloudKSP_GVX";
constexpr std::size_t kLinkPrefixLength = 4;  // "OMU#"
constexpr const char* kOccurTimeForm = "YYYYMMDDhhmmss";

// So many clears at most share one write of the store.
constexpr std::size_t kMostEndedAtOnce = 32;

template <std::size_t N>
bool Put(const char* title, char (&field)[N], const std::string& text, const char* message) {
    if (!PutText(field, text)) {
        GVX_LOG_ERR(title, "%s", message);
        return false;
    }
    return true;
}

// Sends to a link by `send`, which says whether the link has queued the frame; the frame's place in the queue is noted.
template <typename Send>
bool SendNoted(const std::string& linkId, QueuedFrame& frame, Send send) {
    const std::shared_ptr<const BP::LinkProgress> before = BP::CDispatcher::ProgressOf(linkId);
    // The gateway holds frames for a link that is just opening back for a moment, hence at least the next number.
    const std::uint64_t next = before != nullptr ? before->queued + 1 : 0;
    if (!send()) {
        return false;
    }
    frame.link = before;
    frame.number = before != nullptr ? std::max<std::uint64_t>(before->queued, next) : 0;
    return true;
}

}  // namespace

bool AlarmOutbox::Fill(GVX_ALARM_REPORT& report, const HeldAlarm& alarm) {
    const std::string omuLink = GvxConnectionMgr()->GetOmuLinkId();
    const std::string element = omuLink.size() > kLinkPrefixLength ? omuLink.substr(kLinkPrefixLength) : std::string();
    std::string occurTime;
    CGvxUtility::GetCurrentUtcTime(occurTime, kOccurTimeForm);
    constexpr const char* kTitle = "SetGvxBPAlarmRepMsg";
    return Put(kTitle, report.cFac, kMakerName, "memcpy_s cFac failed!") &&
           Put(kTitle, report.cNetEleID, element, "memcpy_s cNetEleID failed!") &&
           Put(kTitle, report.cAlarmInCode, kGatewayPrefix + element, "memcpy_s cAlarmInCode failed!") &&
           Put(kTitle, report.cAlarmInName, kGatewayName, "memcpy_s cAlarmInName failed!") &&
           Put(kTitle, report.cAlarmType, alarm.type, "strncpy_s stGvxAlarmReport.cAlarmType failed!") &&
           Put(kTitle, report.cAlarmInType, alarm.inType, "strncpy_s stGvxAlarmReport.cAlarmInType failed!") &&
           Put(kTitle, report.cOccurTime, occurTime, "strncpy_s stGvxAlarmReport.cOccurTime failed!") &&
           Put(kTitle, report.cLocationInfo, alarm.location.empty() ? GvxConfigMgr()->GetLocalIP() : alarm.location,
               "strncpy_s stGvxAlarmReport.cLocationInfo failed!") &&
           Put(kTitle, report.cAlarmDesc, alarm.description, "strncpy_s stGvxAlarmReport.cAlarmDesc failed!");
}

void AlarmOutbox::Queue(OutboundAlarm alarm) {
    GVX_LOG_INFO("SetGvxBPAlarmRepMsg", "Emergency Protection set gvx alarm reponse message is called.");
    GVX_LOG_INFO("Gateway alarm", "type[%s], input type[%s], location[%s], description[%s]", alarm.type.c_str(),
                 alarm.inType.c_str(), alarm.location.c_str(), alarm.description.c_str());
    unsigned int elementType = 0;
    std::string linkId;
    GVX_ALARM_REPORT report{};
    const bool isLinked = GvxConnectionMgr()->GetLinkInfoByType(BP::SUBSYS_GVX, elementType, linkId);
    const bool isSent = isLinked && Fill(report, alarm);
    if (!isLinked) {
        GVX_LOG_ERR("SetGvxBPAlarmRepMsg", "Get PeerNetLinkID Error [%d]", static_cast<int>(BP::SUBSYS_GVX));
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (isSent) {
            PushLocked(m_line, std::move(alarm));
            return;
        }
        ++m_nextEvent;  // an alarm that is held, or dropped, spends a number all the same
    }
    if (!isLinked) {
        Hold(std::move(alarm));
    }
}

OutboundAlarm AlarmOutbox::Line::Pop() {
    OutboundAlarm alarm = std::move(alarms.front());
    alarms.pop_front();
    repeats -= alarm.repeats ? 1 : 0;
    return alarm;
}

void AlarmOutbox::PushLocked(Line& line, OutboundAlarm alarm) {
    if (alarm.repeats && line.repeats != 0 && line.alarms.size() >= kMostHeld / 2) {
        return;
    }
    line.repeats += alarm.repeats ? 1 : 0;
    if (line.alarms.size() >= kMostHeld) {
        const OutboundAlarm oldest = line.Pop();
        if (line.lost++ == 0) {
            GVX_LOG_ERR("Alarms are lost", "%zu wait for a link, the oldest goes: type[%s], location[%s]", kMostHeld,
                        oldest.type.c_str(), oldest.location.c_str());
        } else {
            GVX_DEBUG("The oldest alarm is lost: type[%s], location[%s]", oldest.type.c_str(), oldest.location.c_str());
        }
    }
    line.alarms.push_back(std::move(alarm));
}

void AlarmOutbox::SetKeeper(std::function<void()> wake) {
    auto shared = wake ? std::make_shared<const std::function<void()>>(std::move(wake)) : nullptr;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_wake.swap(shared);
}

void AlarmOutbox::LetSend() {
    std::unique_lock<std::mutex> lock(m_mutex);
    const std::shared_ptr<const std::function<void()>> wake = m_wake;
    lock.unlock();
    if (wake != nullptr) {
        (*wake)();
    } else {
        Send();
    }
}

void AlarmOutbox::Add(OutboundAlarm alarm) {
    // A link that has opened meanwhile has looked at an empty line, hence the second look.
    Queue(std::move(alarm));
    LetSend();
}

void AlarmOutbox::AddBehindOmu(std::vector<OutboundAlarm> alarms) {
    {
        const std::lock_guard<std::mutex> lock(m_omuMutex);
        const bool waits = !m_behindOmu.alarms.empty() || GvxConnectionMgr()->GetOmuLinkId().empty();
        for (OutboundAlarm& alarm : alarms) {
            GVX_LOG_INFO("Set gvx alarm",
                         waits ? "Push gvx alarm to msglist, alarm type is %s."
                               : "Send gvx alarm to msglist, alarm type is [%s].",
                         alarm.type.c_str());
            if (waits) {
                PushLocked(m_behindOmu, std::move(alarm));
            } else {
                Queue(std::move(alarm));
            }
        }
        if (waits) {
            return;
        }
    }
    LetSend();
}

void AlarmOutbox::OmuIsKnown() {
    {
        const std::lock_guard<std::mutex> lock(m_omuMutex);
        while (!m_behindOmu.alarms.empty()) {
            Queue(m_behindOmu.Pop());
        }
        const std::lock_guard<std::mutex> lineLock(m_mutex);
        m_line.lost += std::exchange(m_behindOmu.lost, 0);
    }
    LetSend();
}

int AlarmOutbox::Hold(OutboundAlarm alarm) {
    if (alarm.type.empty() || alarm.inType.empty() || alarm.location.empty()) {
        return ZVS_PARA_INVALID;
    }
    constexpr const char* kTitle = "CachePluginAlarm";
    _ZVS_REPORT_LIST fields{};
    if (!Put(kTitle, fields.cAlarmType, alarm.type, "alarmType snprintf failed") ||
        !Put(kTitle, fields.cAlarmInType, alarm.inType, "alarmInType snprintf failed") ||
        !Put(kTitle, fields.cLocationInfo, alarm.location, "localInfo strncpy_s failed") ||
        !Put(kTitle, fields.cAlarmDesc, alarm.description,
             ("alarmDesc[" + alarm.description + "] snprintf failed").c_str())) {
        return ZVS_FAIL;
    }
    GVX_LOG_INFO("Cache alarm success,", "alarm type[%s]", alarm.type.c_str());
    alarm.waited = true;
    const std::lock_guard<std::mutex> lock(m_mutex);
    PushLocked(m_line, std::move(alarm));
    return ZVS_SUCCEED;
}

// OMU's part is lost while OMU has no link; a link that is there must have room.
bool AlarmOutbox::LinksHaveRoom() {
    const std::string mainService = GvxConnectionMgr()->MainServiceLinkId();
    return !mainService.empty() && BP::CDispatcher::RoomOf(mainService) == BP::LinkRoom::Free &&
           BP::CDispatcher::RoomOf(GvxConnectionMgr()->GetOmuLinkId()) != BP::LinkRoom::Full;
}

void AlarmOutbox::Send() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_sendAgain = true;
    if (m_sending) {
        return;
    }
    m_sending = true;
    try {
        while (std::exchange(m_sendAgain, false)) {
            SendLine(lock);
        }
    } catch (...) {  // no memory: the next sending goes on where this one ends
        if (!lock.owns_lock()) {
            lock.lock();
        }
        m_sending = false;
        throw;
    }
    m_sending = false;
    const std::uint64_t lost = m_line.alarms.empty() ? std::exchange(m_line.lost, 0) : 0;
    m_lost += lost;
    const std::uint64_t all = m_lost;
    lock.unlock();
    if (lost != 0) {
        GVX_LOG_ERR("Alarms are lost", "%llu of those that waited are lost, %llu since the start",
                    static_cast<unsigned long long>(lost), static_cast<unsigned long long>(all));
    }
}

void AlarmOutbox::SendLine(std::unique_lock<std::mutex>& lock) {
    std::vector<OutboundAlarm> ended;
    SettleLocked(ended);
    bool goesOn = true;
    for (std::size_t sent = 1; goesOn && !m_line.alarms.empty(); ++sent) {
        // What was lost with a link goes ahead of what waits.
        if (!m_inQueues.empty() && (m_inQueues.back().ksp.IsLost() || m_inQueues.back().omu.IsLost() ||
                                    m_inQueues.size() == 1 || sent % kMostEndedAtOnce == 0)) {
            SettleLocked(ended);
        }
        if (ended.size() >= kMostEndedAtOnce) {
            lock.unlock();
            m_ended(std::exchange(ended, {}));
            lock.lock();
        }
        OutboundAlarm alarm = m_line.Pop();
        lock.unlock();
        try {
            goesOn = LinksHaveRoom() && SendOne(alarm);
        } catch (...) {
            lock.lock();
            m_line.repeats += alarm.repeats ? 1 : 0;
            m_line.alarms.push_front(std::move(alarm));
            throw;
        }
        lock.lock();
        if (!goesOn) {
            alarm.waited = true;
            m_line.repeats += alarm.repeats ? 1 : 0;
            m_line.alarms.push_front(std::move(alarm));
        } else if (alarm.handed) {
            m_inQueues.push_back(std::move(alarm));
        }
    }
    SettleLocked(ended);
    if (!ended.empty()) {
        lock.unlock();
        m_ended(ended);
        lock.lock();
    }
}

// Takes out of the queues' list what has left, and what was lost with a link back into the line, ahead of the rest.
void AlarmOutbox::SettleLocked(std::vector<OutboundAlarm>& ended) {
    std::deque<OutboundAlarm> still;
    std::vector<OutboundAlarm> again;
    for (OutboundAlarm& alarm : m_inQueues) {
        alarm.toKsp = alarm.ksp.IsLost();
        alarm.toOmu = alarm.omu.IsLost();
        if (alarm.toKsp || alarm.toOmu) {
            alarm.ksp = alarm.toKsp ? QueuedFrame{} : alarm.ksp;
            alarm.omu = alarm.toOmu ? QueuedFrame{} : alarm.omu;
            alarm.waited = true;
            m_line.repeats += alarm.repeats ? 1 : 0;
            again.push_back(std::move(alarm));
        } else if (!alarm.ksp.IsOut() || !alarm.omu.IsOut()) {
            still.push_back(std::move(alarm));
        } else if (alarm.ending != 0) {
            ended.push_back(std::move(alarm));
        }
    }
    m_inQueues.swap(still);
    m_line.alarms.insert(m_line.alarms.begin(), std::make_move_iterator(again.begin()),
                         std::make_move_iterator(again.end()));
}

// False when a link has taken its part no more: what it has not taken is sent to it again. What fails with links that
// take it is lost, with the lines that tell why.
bool AlarmOutbox::SendOne(OutboundAlarm& alarm) {
    if (alarm.waited) {
        GVX_LOG_INFO("SendAlarmCacheToGvx", "Send alarm[%s] to GVX.", alarm.type.c_str());
    }
    GVX_ALARM_REPORT report{};
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        report.iAlarmEventID = static_cast<std::int64_t>(htobe64(m_nextEvent++));
    }
    if (!Fill(report, alarm)) {
        return true;
    }
    CGvxConnectionMgr& links = *GvxConnectionMgr();
    if (alarm.toKsp &&
        SendNoted(links.MainServiceLinkId(), alarm.ksp, [&] { return links.ReportGatewayAlarm(report).sent; })) {
        alarm.toKsp = false;
        alarm.handed = true;
    }
    if (alarm.toOmu && SendNoted(links.GetOmuLinkId(), alarm.omu,
                                 [&] { return links.SendGvxAlarmReqMsgToOMU(report, false, false) == 0; })) {
        alarm.toOmu = false;
        alarm.handed = true;
    }
    const bool done = !(alarm.toKsp || alarm.toOmu) || LinksHaveRoom();
    if (done && alarm.toOmu && alarm.forBoth) {
        LeaveToOmu(alarm);
    }
    return done;
}

// OMU's part, which could not be sent, waits for OMU's first link. Behind that it is lost like any other, and what the
// alarm clears is not ended in this process.
void AlarmOutbox::LeaveToOmu(OutboundAlarm& alarm) {
    OutboundAlarm part = alarm;
    part.toKsp = false;
    part.ksp = {};
    part.parts = alarm.parts = alarm.handed ? 2 : part.parts;
    part.handed = false;
    const std::lock_guard<std::mutex> lock(m_omuMutex);
    if (GvxConnectionMgr()->GetOmuLinkId().empty()) {
        PushLocked(m_behindOmu, std::move(part));
    }
}

std::vector<HeldAlarm> AlarmOutbox::Waiting() const {
    std::vector<HeldAlarm> waiting;
    const std::lock_guard<std::mutex> omuLock(m_omuMutex);
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const Line* line : {&m_line, &m_behindOmu}) {
        waiting.insert(waiting.end(), line->alarms.begin(), line->alarms.end());
    }
    return waiting;
}

std::size_t AlarmOutbox::CountWaiting() const {
    const std::lock_guard<std::mutex> omuLock(m_omuMutex);
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_line.alarms.size() + m_behindOmu.alarms.size();
}

std::uint64_t AlarmOutbox::CountLost() const {
    const std::lock_guard<std::mutex> omuLock(m_omuMutex);
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lost + m_line.lost + m_behindOmu.lost;
}

}  // namespace gvx
