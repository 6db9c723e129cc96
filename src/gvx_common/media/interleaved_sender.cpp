#include "gvx_common/media/interleaved_sender.h"

#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/media/packet_batch.h"
#include "gvx_common/media/room_wait.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>

namespace gvx {

namespace {

constexpr std::int64_t kStallLimitMs = 2000;
constexpr std::int64_t kFlushIntervalMs = 5;
constexpr std::size_t kRestListRoom = 64;

// How far a gathered write has come.
class GatheredWrite {
public:
    GatheredWrite(const iovec* packets, std::size_t count) : m_packets(packets), m_count(count) {}

    bool Finished() const { return m_at == m_count; }
    std::size_t At() const { return m_at; }          // the packet that goes on next
    std::size_t Offset() const { return m_offset; }  // its bytes that have left

    // One write without waiting. 0, or errno.
    int Write(ACE_HANDLE handle) {
        std::array<iovec, PacketBatch::kRoom> parts;
        const std::size_t left = m_count - m_at;
        std::copy(m_packets + m_at, m_packets + m_count, parts.begin());
        parts[0].iov_base = static_cast<char*>(parts[0].iov_base) + m_offset;
        parts[0].iov_len -= m_offset;
        msghdr head{};
        head.msg_iov = parts.data();
        head.msg_iovlen = left;
        const ssize_t sent = ::sendmsg(handle, &head, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0) {
            return errno;
        }
        Advance(static_cast<std::size_t>(sent));
        return 0;
    }

private:
    void Advance(std::size_t bytes) {
        bytes += m_offset;
        while (m_at < m_count && bytes >= m_packets[m_at].iov_len) {
            bytes -= m_packets[m_at++].iov_len;
        }
        m_offset = bytes;
    }

    const iovec* m_packets;
    std::size_t m_count;
    std::size_t m_at = 0;
    std::size_t m_offset = 0;
};

// Goes on until all has left, an error comes or the time is up. 0, or errno; EAGAIN when the time was up.
int WriteWithin(GatheredWrite& write, ACE_HANDLE handle, const ACE_Time_Value& timeout) {
    RoomWait room(timeout);
    int error = EAGAIN;
    while (!write.Finished() && (error == 0 || InterleavedSender::IsErrorOk(error))) {
        if (!room.For(handle)) {
            return EAGAIN;
        }
        error = write.Write(handle);
    }
    return error;
}

}  // namespace

InterleavedSender::InterleavedSender() {
    m_restStreams.reserve(kRestListRoom);
}

bool InterleavedSender::IsErrorOk(int error) {
    return error == EAGAIN || error == EINTR || error == ETIME || error == ENOBUFS || error == ENOMEM;
}

// One try without waiting, which nearly always suffices. Only when it finds no room, and the send before did, is the
// stated time waited: a stream that stands still costs the others of this thread nothing.
void InterleavedSender::Send(SOCKET_INFO& info, const iovec* packets, std::size_t count,
                             const ACE_Time_Value& timeout) {
    if (info.bGone.load(std::memory_order_relaxed) || !SendRest(info)) {
        info.ulDropped.fetch_add(count, std::memory_order_relaxed);
        return;
    }
    const ACE_HANDLE handle = info.videoSockStream.get_handle();
    GatheredWrite write(packets, count);
    int error = write.Write(handle);
    if (!write.Finished() && !info.bStalled && (error == 0 || IsErrorOk(error))) {
        error = WriteWithin(write, handle, timeout);
    }
    const bool stalledBefore = info.bStalled;
    info.bStalled = !write.Finished();
    if (write.Finished()) {
        return;
    }
    LogSendFault(info, error);
    if (error != 0 && !IsErrorOk(error)) {
        info.bGone = true;
    }
    std::size_t unsent = count - write.At();
    if (write.Offset() != 0) {
        const iovec& broken = packets[write.At()];
        KeepRest(info, static_cast<const char*>(broken.iov_base) + write.Offset(), broken.iov_len - write.Offset());
        --unsent;
    } else if (stalledBefore && write.At() == 0) {
        CheckStall(info);
    } else {
        info.llStalledSince = MonotonicMilliseconds();
    }
    info.ulDropped.fetch_add(unsent, std::memory_order_relaxed);
}

void InterleavedSender::CheckStall(SOCKET_INFO& info) {
    if (!info.bGone && MonotonicMilliseconds() - info.llStalledSince >= kStallLimitMs) {
        GVX_LOG_WARN("Stream transfer thread ", "Stream[%s] takes no data any more and counts as gone.",
                     info.chServiceID);
        info.bGone = true;
    }
}

void InterleavedSender::KeepRest(SOCKET_INFO& info, const char* bytes, std::size_t size) {
    if (size > info.szRest.size()) {  // no block is that long; without its rest the framing would be lost
        info.bGone = true;
        return;
    }
    std::memcpy(info.szRest.data(), bytes, size);
    info.unRestBegin = 0;
    info.unRestEnd = size;
    info.llStalledSince = MonotonicMilliseconds();
    if (!info.bRestListed && info.Hold()) {
        info.bRestListed = true;
        m_restStreams.push_back(&info);
    }
}

// True when the stream has no rest, or has none any more.
bool InterleavedSender::SendRest(SOCKET_INFO& info) {
    if (info.unRestBegin == info.unRestEnd) {
        return true;
    }
    const ssize_t sent = ::send(info.videoSockStream.get_handle(), info.szRest.data() + info.unRestBegin,
                                info.unRestEnd - info.unRestBegin, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && !IsErrorOk(errno)) {
        LogSendFault(info, errno);
        info.bGone = true;
        return false;
    }
    info.unRestBegin += sent > 0 ? static_cast<std::size_t>(sent) : 0;
    if (info.unRestBegin == info.unRestEnd) {
        info.bStalled = false;
        return true;
    }
    CheckStall(info);
    return false;
}

void InterleavedSender::FlushRests() {
    if (m_restStreams.empty()) {
        return;
    }
    const std::int64_t now = MonotonicMilliseconds();
    if (now < m_nextFlush) {
        return;
    }
    m_nextFlush = now + kFlushIntervalMs;
    const auto finished = [this](SOCKET_INFO* info) {
        if (!info->bStopped && !info->bGone && !SendRest(*info) && !info->bGone) {
            return false;
        }
        info->bRestListed = false;
        info->Drop();
        return true;
    };
    m_restStreams.erase(std::remove_if(m_restStreams.begin(), m_restStreams.end(), finished), m_restStreams.end());
}

void InterleavedSender::DropRests() {
    for (SOCKET_INFO* info : m_restStreams) {
        info->bRestListed = false;
        info->Drop();
    }
    m_restStreams.clear();
}

}  // namespace gvx
