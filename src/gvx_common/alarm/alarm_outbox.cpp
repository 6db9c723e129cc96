#include "gvx_common/alarm/alarm_outbox.h"

#include "base/fixed_text.h"
#include "base/log.h"
#include "base/zvs_error.h"
#include "bp/dispatcher.h"
#include "bp/net_factory.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <iterator>
#include <new>
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

// Lets go of a lock for a scope.
class Unlocked {
public:
    explicit Unlocked(std::unique_lock<std::mutex>& lock) : m_lock(lock) { m_lock.unlock(); }
    ~Unlocked() { m_lock.lock(); }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

private:
    std::unique_lock<std::mutex>& m_lock;
};

// Sends by `send`; whether a link has queued the frame, whose place in the queue is noted. `only` is the connection
// that may take it, null for any. Throws without memory.
template <typename Send>
bool SendNoted(const std::string& linkId, const std::shared_ptr<const BP::LinkProgress>& only, QueuedFrame& frame,
               Send send) {
    const std::shared_ptr<const BP::LinkProgress> before = BP::CDispatcher::ProgressOf(linkId);
    const std::uint64_t next = before != nullptr ? before->queued + 1 : 0;
    const BP::SendReceipt receipt(only);
    const SendOutcome outcome = send();
    if (outcome.noMemory) {
        throw std::bad_alloc();
    }
    if (!outcome.sent) {
        return false;
    }
    // Frames for a link that is just opening are held back by the gateway for a moment: they come behind what it has.
    const bool queued = receipt.Connection() != nullptr;
    frame.link = queued ? receipt.Connection() : before;
    frame.number = queued ? receipt.Number() : next;
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

// Takes the first alarm out of a list: into the line, or away when it cannot be sent.
void AlarmOutbox::Queue(Alarms& from) {
    const OutboundAlarm& alarm = from.front();
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
            PushLocked(m_line, from);
            return;
        }
        ++m_nextEvent;  // an alarm that is held, or dropped, spends a number all the same
    }
    if (isLinked || HoldFirst(from) != ZVS_SUCCEED) {
        from.pop_front();
    }
}

AlarmOutbox::Alarms AlarmOutbox::Line::Take(Alarms::iterator alarm) noexcept {
    Alarms taken;
    repeats -= alarm->repeats ? 1 : 0;
    taken.splice(taken.begin(), alarms, alarm);
    return taken;
}

// Takes the first alarm of another list.
void AlarmOutbox::PushLocked(Line& line, Alarms& from) {
    if (from.front().repeats && line.repeats != 0 && line.alarms.size() >= kMostHeld / 2) {
        from.pop_front();
        return;
    }
    line.repeats += from.front().repeats ? 1 : 0;
    line.alarms.splice(line.alarms.end(), from, from.begin());
    if (line.alarms.size() > kMostHeld) {
        const bool firstLeaves = &line == &m_line && m_sending;
        const Alarms lost = line.Take(std::next(line.alarms.begin(), firstLeaves ? 1 : 0));
        const OutboundAlarm& oldest = lost.front();
        if (line.lost++ == 0) {
            GVX_LOG_ERR("Alarms are lost", "%zu wait for a link, the oldest goes: type[%s], location[%s]", kMostHeld,
                        oldest.type.c_str(), oldest.location.c_str());
        } else {
            GVX_DEBUG("The oldest alarm is lost: type[%s], location[%s]", oldest.type.c_str(), oldest.location.c_str());
        }
    }
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
    Alarms one;
    one.push_back(std::move(alarm));
    Queue(one);
    LetSend();
}

void AlarmOutbox::AddBehindOmu(std::vector<OutboundAlarm> alarms) {
    Alarms added(std::make_move_iterator(alarms.begin()), std::make_move_iterator(alarms.end()));
    {
        const std::lock_guard<std::mutex> lock(m_omuMutex);
        const bool waits = !m_behindOmu.alarms.empty() || GvxConnectionMgr()->GetOmuLinkId().empty();
        while (!added.empty()) {
            GVX_LOG_INFO("Set gvx alarm",
                         waits ? "Push gvx alarm to msglist, alarm type is %s."
                               : "Send gvx alarm to msglist, alarm type is [%s].",
                         added.front().type.c_str());
            if (waits) {
                PushLocked(m_behindOmu, added);
            } else {
                Queue(added);
            }
        }
        if (waits && GvxConnectionMgr()->GetOmuLinkId().empty()) {
            return;
        }
    }
    LetSend();
}

void AlarmOutbox::OmuIsKnown() {
    LetSend();
}

// Where memory ends the rest joins at the next sending.
void AlarmOutbox::JoinBehindOmu() noexcept {
    try {
        const std::lock_guard<std::mutex> lock(m_omuMutex);
        if (m_behindOmu.alarms.empty() || GvxConnectionMgr()->GetOmuLinkId().empty()) {
            return;
        }
        while (!m_behindOmu.alarms.empty()) {
            const std::size_t repeats = m_behindOmu.alarms.front().repeats ? 1 : 0;
            Queue(m_behindOmu.alarms);
            m_behindOmu.repeats -= repeats;
        }
        const std::lock_guard<std::mutex> lineLock(m_mutex);
        m_line.lost += std::exchange(m_behindOmu.lost, 0);
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Alarm delivery", ZVS_ALLOC_MEMORY_ERROR, "Alarms behind the link to OMU wait for memory.");
    }
}

int AlarmOutbox::Hold(OutboundAlarm alarm) {
    Alarms one;
    one.push_back(std::move(alarm));
    return HoldFirst(one);
}

// As Hold, for the first alarm of a list, which keeps it when it cannot be held.
int AlarmOutbox::HoldFirst(Alarms& from) {
    OutboundAlarm& alarm = from.front();
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
    PushLocked(m_line, from);
    return ZVS_SUCCEED;
}

// OMU's part is lost while OMU has no link; a link that is there must have room. A main service that has registered
// anew gets nothing until its opening is served.
bool AlarmOutbox::LinksHaveRoom() {
    const CGvxConnection mainService = GvxConnectionMgr()->MainServiceConnection();
    const std::string& link = mainService.GetLinkId();
    return !link.empty() && BP::CDispatcher::ProgressOf(link) == mainService.GetProgress() &&
           BP::CDispatcher::RoomOf(link) == BP::LinkRoom::Free &&
           BP::CDispatcher::RoomOf(GvxConnectionMgr()->GetOmuLinkId()) != BP::LinkRoom::Full;
}

void AlarmOutbox::HoldBack() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_heldBack = true;
    m_turnEnded.wait(lock, [this] { return !m_sending; });
}

// The keeper tells the store, so that what the caller sends next need not wait for a disk.
void AlarmOutbox::LetGo() {
    JoinBehindOmu();
    std::unique_lock<std::mutex> lock(m_mutex);
    const std::shared_ptr<const std::function<void()>> wake = m_wake;
    m_heldBack = false;
    SendLocked(std::move(lock), wake == nullptr);
    if (wake != nullptr) {
        (*wake)();
    }
}

void AlarmOutbox::Send() {
    JoinBehindOmu();
    SendLocked(std::unique_lock<std::mutex>(m_mutex), true);
}

// One thread sends at a time, and one tells what has left; the store that is told may take its time.
void AlarmOutbox::SendLocked(std::unique_lock<std::mutex> lock, bool tells) {
    m_sendAgain = true;
    try {
        do {
            if (!m_sending) {
                SendFrames(lock, tells);
            }
            if (tells) {
                TellEnded(lock);
            }
        } while (tells && m_sendAgain && !m_sending && !m_telling && !m_heldBack);
    } catch (const std::bad_alloc&) {  // the next sending goes on where this one ends
        GVX_LOG_ERR_CODE("Alarm delivery", ZVS_ALLOC_MEMORY_ERROR, "%zu alarms wait for memory.", m_line.alarms.size());
    }
    const std::uint64_t lost = m_line.alarms.empty() ? std::exchange(m_line.lost, 0) : 0;
    m_lost += lost;
    const std::uint64_t all = m_lost;
    lock.unlock();
    if (lost != 0) {
        GVX_LOG_ERR("Alarms are lost", "%llu of those that waited are lost, %llu since the start",
                    static_cast<unsigned long long>(lost), static_cast<unsigned long long>(all));
    }
}

// An alarm stays the first of the line until it has left.
void AlarmOutbox::SendFrames(std::unique_lock<std::mutex>& lock, bool tells) {
    struct Turn {
        explicit Turn(AlarmOutbox& owner) : outbox(owner) { outbox.m_sending = true; }
        ~Turn() {
            outbox.m_sending = false;
            outbox.m_turnEnded.notify_all();
        }
        AlarmOutbox& outbox;
    };
    const Turn turn(*this);
    m_sendAgain = false;
    SettleLocked();
    bool goesOn = true;
    for (std::size_t sent = 1; goesOn && NextMayLeave(sent, tells); ++sent) {
        const Alarms::iterator alarm = m_line.alarms.begin();
        {
            const Unlocked unlocked(lock);
            goesOn = LinksHaveRoom() && SendOne(*alarm);
        }
        if (!goesOn) {
            alarm->waited = true;
            continue;
        }
        Alarms gone = m_line.Take(alarm);
        if (alarm->handed) {
            m_inQueues.splice(m_inQueues.end(), gone);
        }
    }
    SettleLocked();
}

bool AlarmOutbox::NextMayLeave(std::size_t sent, bool tells) {
    // What was lost with a link goes ahead of what waits.
    if (!m_inQueues.empty() && (m_inQueues.back().ksp.IsLost() || m_inQueues.back().omu.IsLost() ||
                                m_inQueues.size() == 1 || sent % kMostEndedAtOnce == 0)) {
        SettleLocked();
    }
    // Where so many clears have left, the sending goes on when they are told: no more come twice from a process that is
    // killed.
    if (tells && m_left.size() >= kMostEndedAtOnce) {
        m_sendAgain = true;
        return false;
    }
    return !m_heldBack && !m_line.alarms.empty();
}

// Takes out of the queues' list what has left, and what was lost with a link back into the line, ahead of the rest.
void AlarmOutbox::SettleLocked() noexcept {
    Alarms again;
    for (Alarms::iterator next = m_inQueues.begin(); next != m_inQueues.end();) {
        const Alarms::iterator alarm = next++;
        alarm->toKsp = alarm->ksp.IsLost();
        alarm->toOmu = alarm->omu.IsLost();
        if (alarm->toKsp || alarm->toOmu) {
            alarm->ksp = alarm->toKsp ? QueuedFrame{} : alarm->ksp;
            alarm->omu = alarm->toOmu ? QueuedFrame{} : alarm->omu;
            alarm->waited = true;
            m_line.repeats += alarm->repeats ? 1 : 0;
            again.splice(again.end(), m_inQueues, alarm);
        } else if (alarm->ksp.IsOut() && alarm->omu.IsOut()) {
            if (alarm->ending != 0) {
                m_left.splice(m_left.end(), m_inQueues, alarm);
            } else {
                m_inQueues.erase(alarm);
            }
        }
    }
    m_line.alarms.splice(m_line.alarms.begin(), again);
}

// What has been told is forgotten behind it: whatever fails, it is told again.
void AlarmOutbox::TellEnded(std::unique_lock<std::mutex>& lock) {
    if (m_left.empty() || m_telling) {
        return;
    }
    const std::vector<OutboundAlarm> clears(m_left.begin(), m_left.end());
    struct Turn {
        explicit Turn(bool& flag) : telling(flag) { telling = true; }
        ~Turn() { telling = false; }
        bool& telling;
    };
    const Turn turn(m_telling);
    {
        const Unlocked unlocked(lock);
        m_ended(clears);
    }
    m_left.erase(m_left.begin(), std::next(m_left.begin(), static_cast<std::ptrdiff_t>(clears.size())));
}

// False when a link has taken its part no more: what it has not taken is sent to it again, as it is where memory ends.
// What else fails with links that take it is lost, with the lines that tell why.
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
    const CGvxConnection mainService = links.MainServiceConnection();
    const std::string omu = links.GetOmuLinkId();
    if (alarm.toKsp && SendNoted(mainService.GetLinkId(), mainService.GetProgress(), alarm.ksp,
                                 [&] { return links.ReportGatewayAlarm(report); })) {
        alarm.toKsp = false;
        alarm.handed = true;
    }
    if (alarm.toOmu && SendNoted(omu, nullptr, alarm.omu, [&] { return links.ReportToOmu(report); })) {
        alarm.toOmu = false;
        alarm.handed = true;
    }
    // A part that another main service's taking over has refused goes to that one.
    const bool done = !(alarm.toKsp || alarm.toOmu) ||
                      (LinksHaveRoom() && links.MainServiceConnection().GetProgress() == mainService.GetProgress());
    return done && alarm.toOmu && alarm.forBoth && omu.empty() ? LeaveToOmu(alarm) : done;
}

// OMU's part, which could not be sent, waits for OMU's first link. Behind that it is lost like any other, and what the
// alarm clears is not ended in this process. False when that link has come meanwhile: it is sent again.
bool AlarmOutbox::LeaveToOmu(OutboundAlarm& alarm) {
    Alarms one{alarm};
    OutboundAlarm& part = one.front();
    part.toKsp = false;
    part.ksp = {};
    part.parts = alarm.handed ? 2 : part.parts;
    part.handed = false;
    const std::lock_guard<std::mutex> lock(m_omuMutex);
    if (!GvxConnectionMgr()->GetOmuLinkId().empty()) {
        return false;
    }
    alarm.parts = part.parts;
    PushLocked(m_behindOmu, one);
    return true;
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
