#include "gvx_common/media/socket_write.h"

#include "base/log.h"
#include "gvx_common/media/packet_batch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

namespace gvx {

namespace {

// What the kernel takes in one buffer: UDP_MAX_SEGMENTS of the older kernels, and the longest datagram with room for
// the heads of either IP version.
constexpr std::size_t kMostSegments = 64;
constexpr std::size_t kMostBytes = 65000;

// How many packets from the first on fit one segmented buffer: equal sizes, then perhaps one that is shorter.
std::size_t RunLength(const iovec* packets, std::size_t count, std::size_t mostSegments) {
    const std::size_t size = packets[0].iov_len;
    std::size_t total = size;
    std::size_t length = 1;
    while (length < count && length < mostSegments) {
        const std::size_t next = packets[length].iov_len;
        if (next > size || next == 0 || total + next > kMostBytes) {
            break;
        }
        total += next;
        ++length;
        if (next < size) {
            break;
        }
    }
    return length;
}

// A kernel without the option, a device that cannot sum up, a path with a smaller packet size.
bool IsSegmentationRefused(int error) {
    return error == EIO || error == EINVAL || error == EOPNOTSUPP || error == ENOPROTOOPT || error == EMSGSIZE;
}

// The messages of one system call. Only what is used is written: this stands on the stack of each send.
class Messages {
public:
    // Fills in messages for the packets and tells how many it takes.
    std::size_t Fill(const SOCKET_INFO& info, const iovec* packets, std::size_t count);
    mmsghdr* Data() { return m_heads.data(); }
    std::size_t PacketsOf(std::size_t messages) const {
        std::size_t packets = 0;
        for (std::size_t i = 0; i < messages; ++i) {
            packets += m_heads[i].msg_hdr.msg_iovlen;
        }
        return packets;
    }

private:
    void AskForSegments(std::size_t message, std::size_t segment);

    struct alignas(cmsghdr) Control {
        char bytes[CMSG_SPACE(sizeof(std::uint16_t))];
    };
    std::array<mmsghdr, PacketBatch::kRoom> m_heads;
    std::array<Control, PacketBatch::kRoom> m_controls;
};

std::size_t Messages::Fill(const SOCKET_INFO& info, const iovec* packets, std::size_t count) {
    const ACE_INET_Addr& to = info.bVideoStream ? info.videoDstAddr : info.audioDstAddr;
    const std::size_t mostSegments = info.bNoSegments ? 1 : kMostSegments;
    std::size_t messages = 0;
    for (std::size_t at = 0; at < count; ++messages) {
        const std::size_t length = RunLength(packets + at, count - at, mostSegments);
        m_heads[messages] = mmsghdr{};
        msghdr& head = m_heads[messages].msg_hdr;
        head.msg_name = to.get_addr();
        head.msg_namelen = static_cast<socklen_t>(to.get_size());
        head.msg_iov = const_cast<iovec*>(packets + at);
        head.msg_iovlen = length;
        if (length > 1) {
            AskForSegments(messages, packets[at].iov_len);
        }
        at += length;
    }
    return messages;
}

void Messages::AskForSegments(std::size_t message, std::size_t segment) {
    Control& control = m_controls[message];
    msghdr& head = m_heads[message].msg_hdr;
    head.msg_control = control.bytes;
    head.msg_controllen = sizeof(control.bytes);
    cmsghdr* const part = CMSG_FIRSTHDR(&head);
    part->cmsg_level = SOL_UDP;
    part->cmsg_type = UDP_SEGMENT;
    part->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
    const auto size = static_cast<std::uint16_t>(segment);
    std::memcpy(CMSG_DATA(part), &size, sizeof(size));
}

}  // namespace

bool IsRoomError(int error) {
    return error == EAGAIN || error == EINTR || error == ETIME || error == ENOBUFS || error == ENOMEM;
}

SocketWrite WriteDatagrams(SOCKET_INFO& info, const iovec* packets, std::size_t count) {
    const ACE_HANDLE handle = info.bVideoStream ? info.videoSockDgram.get_handle() : info.audioSockDgram.get_handle();
    Messages messages;
    SocketWrite write;
    while (write.done < count) {
        const std::size_t made = messages.Fill(info, packets + write.done, count - write.done);
        const int sent =
            ::sendmmsg(handle, messages.Data(), static_cast<unsigned int>(made), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            write.done += messages.PacketsOf(static_cast<std::size_t>(sent));
            continue;
        }
        const int error = errno;
        const std::size_t failed = messages.PacketsOf(1);
        if (IsRoomError(error)) {
            write.error = error;
            break;
        }
        if (failed > 1 && IsSegmentationRefused(error)) {
            info.bNoSegments = true;
            GVX_LOG_WARN("Stream transfer thread ",
                         "Stream[%s] sends its packets one by one: segmentation offload is refused, errno: %d.",
                         info.chServiceID, error);
            continue;
        }
        LogSendFault(info, error);
        write.lost += failed;
        write.done += failed;
    }
    return write;
}

SocketWrite WriteInterleaved(const SOCKET_INFO& info, const iovec* packets, std::size_t count) {
    SocketWrite write;
    std::array<iovec, PacketBatch::kRoom> parts;
    while (write.done < count) {
        std::copy(packets + write.done, packets + count, parts.begin());
        parts[0].iov_base = static_cast<char*>(parts[0].iov_base) + write.offset;
        parts[0].iov_len -= write.offset;
        msghdr head{};
        head.msg_iov = parts.data();
        head.msg_iovlen = count - write.done;
        const ssize_t sent = ::sendmsg(info.videoSockStream.get_handle(), &head, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0) {
            write.error = errno;
            break;
        }
        std::size_t bytes = static_cast<std::size_t>(sent) + write.offset;
        while (write.done < count && bytes >= packets[write.done].iov_len) {
            bytes -= packets[write.done++].iov_len;
        }
        write.offset = bytes;
    }
    return write;
}

}  // namespace gvx
