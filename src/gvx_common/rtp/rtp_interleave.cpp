#include "gvx_common/rtp/rtp_interleave.h"

#include "gvx_common/rtp/rtp_view.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <strings.h>
#include <sys/socket.h>

namespace gvx {

namespace {

constexpr std::size_t kFrameHead = 4;
constexpr std::size_t kRoom = 256 * 1024;  // more than the longest packet and the longest message together

// The value of Content-Length among header lines; 0 without one, -1 for one that is no number or too large.
std::ptrdiff_t ContentLength(std::string_view head) {
    constexpr std::string_view kName = "content-length:";
    while (!head.empty()) {
        const std::size_t end = std::min(head.find('\n'), head.size());
        std::string_view line = head.substr(0, end);
        head.remove_prefix(std::min(end + 1, head.size()));
        if (line.size() < kName.size() || ::strncasecmp(line.data(), kName.data(), kName.size()) != 0) {
            continue;
        }
        line.remove_prefix(kName.size());
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) {
            line.remove_suffix(1);
        }
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            line.remove_prefix(1);
        }
        std::ptrdiff_t value = line.empty() ? -1 : 0;
        for (const char c : line) {
            if (c < '0' || c > '9' || value > static_cast<std::ptrdiff_t>(RtpInterleaveReader::kMostText)) {
                return -1;
            }
            value = value * 10 + (c - '0');
        }
        return value;
    }
    return 0;
}

}  // namespace

RtpInterleaveReader::RtpInterleaveReader(PacketSink packetSink, TextSink textSink)
    : m_packetSink(std::move(packetSink)), m_textSink(std::move(textSink)), m_buffer(new std::uint8_t[kRoom]) {}

int RtpInterleaveReader::Receive(int handle) {
    constexpr int kMostReads = 8;  // others of the thread wait meanwhile
    for (int i = 0; i < kMostReads && !m_broken; ++i) {
        const std::size_t room = kRoom - m_size;
        const ssize_t got = ::recv(handle, m_buffer.get() + m_size, room, MSG_DONTWAIT);
        if (got == 0) {
            return 1;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno == EAGAIN ? 0 : -1;
        }
        m_size += static_cast<std::size_t>(got);
        m_broken = !TakeAll();
        if (static_cast<std::size_t>(got) < room) {
            break;
        }
    }
    return m_broken ? -1 : 0;
}

int RtpInterleaveReader::Feed(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    while (size != 0 && !m_broken) {
        const std::size_t part = std::min(size, kRoom - m_size);
        std::memcpy(m_buffer.get() + m_size, bytes, part);
        m_size += part;
        bytes += part;
        size -= part;
        m_broken = !TakeAll();
    }
    return m_broken ? -1 : 0;
}

// Hands over all that is whole and moves the rest to the front; that is always shorter than the buffer.
bool RtpInterleaveReader::TakeAll() {
    const std::uint8_t* at = m_buffer.get();
    const std::uint8_t* const end = at + m_size;
    while (at != end) {
        const auto left = static_cast<std::size_t>(end - at);
        if (*at == '$') {
            if (left < kFrameHead || left < kFrameHead + LoadBe16(at + 2)) {
                break;
            }
            m_packetSink(at[1], at + kFrameHead, LoadBe16(at + 2));
            at += kFrameHead + LoadBe16(at + 2);
        } else if (*at == '\r' || *at == '\n') {
            ++at;  // an empty line before a message counts for nothing (RFC 2326, 4.1)
        } else {
            const std::ptrdiff_t size = MessageSize(at, left);
            if (size < 0) {
                return false;
            }
            if (size == 0) {
                break;
            }
            if (m_textSink) {
                m_textSink(reinterpret_cast<const char*>(at), static_cast<std::size_t>(size));
            }
            at += size;
        }
    }
    m_size = static_cast<std::size_t>(end - at);
    std::memmove(m_buffer.get(), at, m_size);
    return true;
}

std::ptrdiff_t RtpInterleaveReader::MessageSize(const std::uint8_t* at, std::size_t size) const {
    // A message begins with a method or "RTSP/": anything else is no text, and waiting for its end would be in vain.
    if ((*at < 'A' || *at > 'Z') && (*at < 'a' || *at > 'z')) {
        return -1;
    }
    const std::string_view text(reinterpret_cast<const char*>(at), std::min(size, kMostText));
    const std::size_t blank = text.find("\r\n\r\n");
    if (blank == std::string_view::npos) {
        return size >= kMostText ? -1 : 0;
    }
    const std::ptrdiff_t body = ContentLength(text.substr(0, blank));
    const std::ptrdiff_t whole = static_cast<std::ptrdiff_t>(blank) + 4 + body;
    if (body < 0 || whole > static_cast<std::ptrdiff_t>(kMostText)) {
        return -1;
    }
    return whole <= static_cast<std::ptrdiff_t>(size) ? whole : 0;
}

}  // namespace gvx
