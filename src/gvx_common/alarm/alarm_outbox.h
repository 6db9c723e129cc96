#pragma once

#include "bp/net_factory.h"
#include "gvx_common/records/gvx_alarm_records.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace gvx {

// The texts of an alarm that waits for a link.
struct HeldAlarm {
    std::string type;
    std::string inType;
    std::string location;
    std::string description;
};

// The part of an alarm that is meant for one peer, once a link has queued it.
struct QueuedFrame {
    std::shared_ptr<const BP::LinkProgress> link;  // null: it waits in no queue
    std::uint64_t number = 0;                      // among the link's frames, from 1

    bool IsOut() const { return link == nullptr || link->written >= number; }
    bool IsLost() const { return link != nullptr && link->closed && link->written < number; }
};

// An alarm of the gateway on its way out.
struct OutboundAlarm : HeldAlarm {
    // What the alarm clears: identifier and text as they are remembered, and the number of this clear, 0 for an alarm
    // that clears nothing.
    std::string endedId{};
    std::string endedInfo{};
    std::uint64_t ending = 0;
    bool tellsStore = true;  // the store's success with the row is told as an alarm of its own
    bool repeats = false;    // it says what was said before, and pushes nothing else out
    bool forBoth = false;    // its part for OMU waits for the first link to OMU, and KSP's goes ahead
    int parts = 1;           // of the clear; what it clears is ended when so many have left

    // Of the outbox:
    bool toKsp = true;  // not queued yet, or lost with its link
    bool toOmu = true;
    QueuedFrame ksp{};
    QueuedFrame omu{};
    bool handed = false;  // a link has taken it
    bool waited = false;
};

// The alarms of the gateway on their way to KSP and OMU, in one order: what comes later never overtakes, whatever the
// links do. Alarms are handed over while both links have room in their queues and wait otherwise, in memory, at most
// kMostHeld; beyond that the oldest is lost, which is counted and told. From half of it on an alarm that repeats
// another is left out while one of its kind waits. An alarm has left when the sockets have taken it: what a link still
// had in its queue when it closed is sent again. Until then, and where memory ends on the way, it keeps its place.
//
// Any thread. Nothing is sent under a lock. A keeper's thread sends where there is one; otherwise whoever adds an alarm
// sends for all, unless another thread is at it.
class AlarmOutbox {
public:
    static constexpr std::size_t kMostHeld = 131072;

    // Told of clears that have left, several at a time, on a sending thread outside every lock, while others may send.
    using Ended = std::function<void(const std::vector<OutboundAlarm>& clears)>;

    explicit AlarmOutbox(Ended ended) : m_ended(std::move(ended)) {}
    AlarmOutbox(const AlarmOutbox&) = delete;
    AlarmOutbox& operator=(const AlarmOutbox&) = delete;

    // Who sends from now on: wake is called, on any thread and perhaps under its locks, when there is something to
    // send, and Send is then called soon after by another thread, as it is now and then beside. An empty function takes
    // the keeper away.
    void SetKeeper(std::function<void()> wake);

    // Adds an alarm behind those that wait, and has sent what can be sent. With the main-service link down it is held,
    // as by Hold. A text that does not fit its field drops it with a log line.
    void Add(OutboundAlarm alarm);
    // The same behind the first link to OMU, for which the alarms wait in a list of their own.
    void AddBehindOmu(std::vector<OutboundAlarm> alarms);
    // The first link to OMU has its identifier: its list joins the others.
    void OmuIsKnown();

    // Holds an alarm for the next sending. 0; 2 when type, inType or location is empty; 1 when a text is too long.
    int Hold(OutboundAlarm alarm);

    // Sends what waits, oldest first, until nothing waits, a link has no room or memory ends, and looks what has left
    // since.
    void Send();

    // From HoldBack on nothing is sent, the alarm that is on its way to its links excepted, whose sending HoldBack
    // waits for. LetGo sends what waits as Send does, on its own thread: what the caller sends before the one and
    // behind the other stands around the alarms, as many as the links have room for. What has left is told all the
    // while.
    void HoldBack();
    void LetGo();

    // What waits, oldest first, that for OMU behind the rest.
    std::vector<HeldAlarm> Waiting() const;
    std::size_t CountWaiting() const;
    std::uint64_t CountLost() const;

private:
    // Alarms change lists by their nodes, which takes no memory and moves none of them.
    using Alarms = std::list<OutboundAlarm>;

    // Alarms in their order, and what was lost of them since they last were none.
    struct Line {
        Alarms alarms;
        std::uint64_t lost = 0;
        std::size_t repeats = 0;  // of the alarms, those that repeat

        // Takes one of them out into a list of one.
        Alarms Take(Alarms::iterator alarm) noexcept;
    };

    void Queue(Alarms& from);
    int HoldFirst(Alarms& from);
    void PushLocked(Line& line, Alarms& from);
    void LetSend();
    void SendLocked(std::unique_lock<std::mutex> lock, bool tells);
    void SendFrames(std::unique_lock<std::mutex>& lock, bool tells);
    bool NextMayLeave(std::size_t sent, bool tells);
    bool SendOne(OutboundAlarm& alarm);
    bool LeaveToOmu(OutboundAlarm& alarm);
    void JoinBehindOmu() noexcept;
    void SettleLocked() noexcept;
    void TellEnded(std::unique_lock<std::mutex>& lock);
    static bool Fill(GVX_ALARM_REPORT& report, const HeldAlarm& alarm);
    static bool LinksHaveRoom();  // while the main service's opening is served, too

    const Ended m_ended;
    // Guards the list for OMU and the step from it into the line. Taken ahead of m_mutex; nothing is sent under it.
    mutable std::mutex m_omuMutex;
    Line m_behindOmu;  // Guarded by m_omuMutex.

    mutable std::mutex m_mutex;  // Guards all below; nothing is called while it is held.
    Line m_line;                 // its first alarm may be on its way out while m_sending
    Alarms m_inQueues;           // in the order in which links have queued them
    Alarms m_left;               // clears that have left and are not told yet
    std::shared_ptr<const std::function<void()>> m_wake;
    std::uint64_t m_nextEvent = 0;  // the next alarm's event number
    std::uint64_t m_lost = 0;
    bool m_sending = false;    // a thread sends; outside m_mutex it is at the first alarm of the line
    bool m_telling = false;    // a thread tells m_left
    bool m_sendAgain = false;  // somebody has asked while another sent, or while the alarms were held back
    bool m_heldBack = false;
    std::condition_variable m_turnEnded;  // m_sending is false again
};

}  // namespace gvx
