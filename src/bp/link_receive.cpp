#include "bp/link.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "bp/errno_text.h"
#include "bp/frame_head.h"
#include "bp/registration.h"
#include "nss/nss_msg_type.h"

#include <array>
#include <cerrno>

#include <sys/socket.h>

namespace BP {

namespace {

// A wake serves one link for this much at most, so that a busy peer cannot keep the others waiting.
constexpr std::size_t kReadChunkBytes = 64u * 1024u;
constexpr int kReadsPerWake = 2;

}  // namespace

int Link::handle_input(ACE_HANDLE) {
    // One buffer serves all links: there is one I/O thread, and what is read is used up before the next read.
    static thread_local std::array<char, kReadChunkBytes> buffer;
    for (int reads = 0; reads < kReadsPerWake && m_state != State::Closed; ++reads) {
        const ssize_t got = ::recv(m_socket.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
            break;
        }
        if (got <= 0) {
            PeerEnded(got < 0 ? errno : 0);
            break;
        }
        m_lastHeardMs = gvx::MonotonicMilliseconds();
        if (!Consume(buffer.data(), static_cast<std::size_t>(got)) || static_cast<std::size_t>(got) < buffer.size()) {
            break;
        }
    }
    return 0;
}

bool Link::Consume(const char* data, std::size_t length) {
    bool frameEnded = false;
    while (length > 0) {
        const std::size_t used = m_reader.Feed(data, length);
        data += used;
        length -= used;
        if (m_reader.GetFault() != FrameReader::Fault::None) {
            CloseForReaderFault();
            return false;
        }
        if (m_reader.Complete()) {
            frameEnded = true;
            FrameArrived(m_reader.Take());
            if (m_state == State::Closed) {
                return false;
            }
        }
    }
    if (!m_reader.Partial()) {
        m_frameDeadlineMs = kNoDeadline;
    } else if (frameEnded || m_frameDeadlineMs == kNoDeadline) {
        m_frameDeadlineMs = m_lastHeardMs + m_options.frameTimeoutMs;
        m_owner.WakeBy(m_frameDeadlineMs);
    }
    return true;
}

void Link::CloseForReaderFault() {
    char text[96] = {0};
    switch (m_reader.GetFault()) {
        case FrameReader::Fault::Version:
            sprintf_s(text, sizeof(text), "bad frame: protocol version 0x%04x", m_reader.HeadVersion());
            break;
        case FrameReader::Fault::Length:
            sprintf_s(text, sizeof(text), "bad frame: length %u is outside %zu to %zu", m_reader.HeadLength(),
                      kNssHeaderBytes, m_reader.MaxFrameBytes());
            break;
        default:
            sprintf_s(text, sizeof(text), "no memory for a frame of %u bytes", m_reader.HeadLength());
            break;
    }
    Close(OM_LOG_WARNING, text);
}

void Link::PeerEnded(int error) {
    if (m_state == State::Connecting) {
        Close(m_connectLogLevel, ErrnoText("connect failed", error));
    } else if (error != 0) {
        Close(OM_LOG_WARNING, ErrnoText("the connection broke", error));
    } else if (m_reader.Partial()) {
        Close(OM_LOG_WARNING, "the peer ended the connection inside a frame");
    } else if (m_state == State::Registering) {
        Close(OM_LOG_WARNING, "the peer ended the connection without a registration");
    } else {
        Close(OM_LOG_INFO, "the peer ended the connection");
    }
}

void Link::FrameArrived(MessageBlockPtr frame) {
    NssMsgHeader head;
    ReadFrameHead(frame.get(), head);
    const std::uint16_t type = head.usiMsgType;
    const bool registration = type == NSS_BP_REGISTER_REQ || type == static_cast<std::uint16_t>(NSS_BP_REGISTER_RSP);
    if (m_state == State::Registering) {
        RegistrationArrived(std::move(frame), type, head.uiRspCode);
    } else if (registration) {
        Close(OM_LOG_WARNING, "a registration on a link that is open already");
    } else if (type == NSS_KEEPALIVE_REQ) {
        // Dropped when the queue is full: the bytes that wait there tell the peer as much.
        SendControl(MakeKeepAliveResponse(frame.get()));
    } else if (type != static_cast<std::uint16_t>(NSS_KEEPALIVE_RSP)) {
        ++m_framesIn;
        m_owner.FrameReceived(*this, std::move(frame));
    }
}

int Link::handle_close(ACE_HANDLE, ACE_Reactor_Mask) {
    int error = 0;
    socklen_t length = sizeof(error);
    ::getsockopt(m_socket.Get(), SOL_SOCKET, SO_ERROR, &error, &length);
    PeerEnded(error);
    return 0;
}

}  // namespace BP
