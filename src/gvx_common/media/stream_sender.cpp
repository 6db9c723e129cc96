#include "gvx_common/media/stream_sender.h"

#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/media/packet_batch.h"
#include "gvx_common/media/room_wait.h"
#include "gvx_common/media/socket_write.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace gvx {

namespace {

bool HasRest(const SOCKET_INFO& info) {
    return info.unRestBegin != info.unRestEnd;
}

bool IsWaiting(const SOCKET_INFO& info) {
    return HasRest(info) || !info.parked.IsEmpty();
}

ACE_HANDLE HandleOf(const SOCKET_INFO& info) {
    if (info.protocol == RTP_OVER_TCP) {
        return info.videoSockStream.get_handle();
    }
    return info.bVideoStream ? info.videoSockDgram.get_handle() : info.audioSockDgram.get_handle();
}

SocketWrite Write(SOCKET_INFO& info, const iovec* packets, std::size_t count) {
    return info.protocol == RTP_OVER_TCP ? WriteInterleaved(info, packets, count)
                                         : WriteDatagrams(info, packets, count);
}

void LoseAged(SOCKET_INFO& info) {
    if (!info.parked.IsEmpty()) {
        const std::size_t aged = info.parked.RemoveOlderThan(MonotonicMilliseconds() - StreamSender::kMostAgeMs);
        info.losses.EndWaiting(aged, aged);
    }
}

}  // namespace

void StreamSender::SetParkBytes(std::size_t bytes) {
    m_parkBytes = bytes == 0 ? 0 : std::max(bytes, ParkedPackets::kLeastLimit);
}

void StreamSender::Send(SOCKET_INFO& info, const iovec* packets, std::size_t count, const ACE_Time_Value& timeout) {
    std::size_t done = 0;
    if (SendWaitingOf(info)) {
        done = SendNew(info, packets, count);
    } else {
        LoseAged(info);
    }
    done += Park(info, packets + done, count - done);
    if (done < count && !info.bGone && !info.bWaitedFor) {
        RoomWait room(timeout);
        info.bWaitedFor = true;  // until room is made
        while (done < count && !info.bGone && room.For(HandleOf(info), m_roomError)) {
            done += SendWaitingOf(info) ? SendNew(info, packets + done, count - done) : 0;
            done += Park(info, packets + done, count - done);
        }
    }
    if (done < count) {
        if (!info.bGone) {  // else the write that found out has told
            LogSendFault(info, m_roomError);
        }
        info.losses.Lose(count - done);
    }
}

// True when nothing waits any more and the stream can go on.
bool StreamSender::SendWaitingOf(SOCKET_INFO& info) {
    std::array<iovec, PacketBatch::kRoom> packets;
    while (IsWaiting(info) && !info.bGone) {
        std::size_t count = 0;
        const bool hasRest = HasRest(info);
        if (hasRest) {
            packets[count++] = {info.szRest.data() + info.unRestBegin, info.unRestEnd - info.unRestBegin};
        }
        count += info.parked.Front(packets.data() + count, packets.size() - count);
        const SocketWrite write = Write(info, packets.data(), count);
        info.losses.EndWaiting(write.done, write.lost);
        std::size_t parked = write.done;
        if (hasRest && write.done == 0) {
            info.unRestBegin += write.offset;
        } else {
            info.unRestBegin = hasRest ? info.unRestEnd : info.unRestBegin;
            parked -= hasRest ? 1 : 0;
            if (write.offset != 0) {
                KeepRest(info, packets[write.done], write.offset);
                ++parked;
            }
        }
        info.parked.Remove(parked);
        NoteRoom(info, write);
        if (write.done < count) {
            return false;
        }
    }
    return !info.bGone;
}

// How many packets are dealt with; the one that left in part is.
std::size_t StreamSender::SendNew(SOCKET_INFO& info, const iovec* packets, std::size_t count) {
    if (count == 0) {
        return 0;
    }
    const SocketWrite write = Write(info, packets, count);
    info.losses.Lose(write.lost);
    if (write.done == count) {
        info.bStalled = false;
        info.bWaitedFor = false;
        return count;
    }
    if (write.offset != 0) {
        info.losses.BeginWaiting(1);
        KeepRest(info, packets[write.done], write.offset);
        List(info);
    }
    NoteRoom(info, write);
    return write.done + (write.offset != 0 ? 1 : 0);
}

// To be called after a write behind which something waits, or has to be parked.
void StreamSender::NoteRoom(SOCKET_INFO& info, const SocketWrite& write) {
    if (write.error == 0) {
        info.bStalled = IsWaiting(info);
        info.bWaitedFor = false;
        return;
    }
    m_roomError = write.error;
    const std::int64_t now = MonotonicMilliseconds();
    if (info.protocol == RTP_OVER_TCP && !IsRoomError(write.error)) {
        LogSendFault(info, write.error);
        info.bGone = true;
    } else if (write.HasMoved() || !info.bStalled) {
        info.bWaitedFor = info.bWaitedFor && !write.HasMoved();
        info.bStalled = true;
        info.llStalledSince = now;
    } else if (info.protocol == RTP_OVER_TCP && now - info.llStalledSince >= kStallLimitMs) {
        GVX_LOG_WARN("Stream transfer thread ", "Stream[%s] takes no data any more and counts as gone.",
                     info.chServiceID);
        info.bGone = true;
    }
    if (info.bGone) {
        LoseWaitingOf(info);
    }
}

void StreamSender::KeepRest(SOCKET_INFO& info, const iovec& packet, std::size_t sent) {
    const std::size_t size = packet.iov_len - sent;
    if (size > info.szRest.size()) {  // no block is that long; without its rest the framing would be lost
        info.losses.EndWaiting(1, 1);
        info.bGone = true;
        return;
    }
    std::memcpy(info.szRest.data(), static_cast<const char*>(packet.iov_base) + sent, size);
    info.unRestBegin = 0;
    info.unRestEnd = size;
}

// How many packets from the first on found a place.
std::size_t StreamSender::Park(SOCKET_INFO& info, const iovec* packets, std::size_t count) {
    if (count == 0 || info.bGone) {
        return 0;
    }
    const std::int64_t now = MonotonicMilliseconds();
    std::size_t parked = 0;
    while (parked < count && info.parked.Add(packets[parked], now, m_parkBytes)) {
        ++parked;
    }
    if (parked != 0) {
        info.losses.BeginWaiting(parked);
        List(info);
    }
    return parked;
}

void StreamSender::List(SOCKET_INFO& info) {
    if (!info.bListed && info.Hold()) {
        info.bListed = true;
        info.pNextListed = nullptr;
        *m_end = &info;
        m_end = &info.pNextListed;
    }
}

void StreamSender::SendWaiting() {
    if (m_first == nullptr) {
        return;
    }
    const std::int64_t now = MonotonicMilliseconds();
    if (now < m_nextRetry) {
        return;
    }
    m_nextRetry = now + kRetryMs;
    SOCKET_INFO** place = &m_first;
    while (*place != nullptr) {
        SOCKET_INFO& info = **place;
        if (StillWaits(info)) {
            place = &info.pNextListed;
            continue;
        }
        *place = info.pNextListed;
        LetGo(info);
    }
    m_end = place;
}

// Tries a stream of the list. False when it has nothing there any more.
bool StreamSender::StillWaits(SOCKET_INFO& info) {
    if (info.bStopped || info.bGone || SendWaitingOf(info) || info.bGone) {
        return false;
    }
    LoseAged(info);
    return IsWaiting(info);
}

void StreamSender::LoseWaiting() {
    while (m_first != nullptr) {
        SOCKET_INFO& info = *m_first;
        m_first = info.pNextListed;
        LetGo(info);
    }
    m_end = &m_first;
}

// Of a record that is off the list.
void StreamSender::LetGo(SOCKET_INFO& info) {
    LoseWaitingOf(info);
    info.bListed = false;
    info.Drop();
}

void StreamSender::LoseWaitingOf(SOCKET_INFO& info) {
    const std::size_t lost = info.parked.Count() + (HasRest(info) ? 1 : 0);
    if (lost != 0) {
        info.losses.EndWaiting(lost, lost);
        info.parked.Clear();
        info.unRestBegin = info.unRestEnd;
    }
}

}  // namespace gvx
