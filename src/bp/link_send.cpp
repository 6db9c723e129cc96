#include "bp/link.h"

#include "base/clock.h"
#include "base/log.h"
#include "bp/errno_text.h"

#include <ace/Reactor.h>

#include <cerrno>

#include <sys/socket.h>

namespace BP {

namespace {

// As for reading: no link has the thread to itself.
constexpr std::size_t kWriteBytesPerWake = 256u * 1024u;

}  // namespace

bool Link::SendControl(MessageBlockPtr frame) {
    return frame != nullptr && Send(frame.get()) == ZVS_SUCCEED && frame.release() != nullptr;
}

int Link::Send(ACE_Message_Block* block) {
    switch (m_queue.Push(block)) {
        case SendQueue::PushResult::Queued:
            if (!m_flushWanted.exchange(true)) {
                m_owner.RequestFlush(shared_from_this());
            }
            return ZVS_SUCCEED;
        case SendQueue::PushResult::FirstFull:
            GVX_LOG_WARN("Link queue full", "[peer:%s:%u, link:%s] %zu bytes wait, frames are refused until they left",
                         m_peer.ip.c_str(), m_peer.port, m_linkID.c_str(), m_queue.Bytes());
            return ZVS_NET_SEND_ERROR;
        default:
            return ZVS_NET_SEND_ERROR;
    }
}

void Link::Flush() {
    if (m_state == State::Closed || m_state == State::Connecting) {
        return;
    }
    // Cleared before the queue is looked at: a frame pushed behind our back then asks for another flush.
    m_flushWanted = false;
    const SendQueue::WriteResult written = m_queue.WriteTo(m_socket.Get(), kWriteBytesPerWake);
    if (written.bytes > 0) {
        m_lastSaidMs = gvx::MonotonicMilliseconds();
    }
    if (written.refusedInEpisode > 0) {
        GVX_LOG_INFO("Link queue drained", "[peer:%s:%u, link:%s] %llu frames were refused", m_peer.ip.c_str(),
                     m_peer.port, m_linkID.c_str(), static_cast<unsigned long long>(written.refusedInEpisode));
    }
    if (written.state == SendQueue::WriteState::Failed) {
        Close(OM_LOG_WARNING, ErrnoText("the connection broke", written.error));
        return;
    }
    const bool watch = written.state != SendQueue::WriteState::Drained;
    if (watch) {
        m_flushWanted = true;  // the socket asks for the next flush, so a push need not
    }
    if (watch && !m_writeWatched) {
        reactor()->schedule_wakeup(this, ACE_Event_Handler::WRITE_MASK);
    } else if (!watch && m_writeWatched) {
        reactor()->cancel_wakeup(this, ACE_Event_Handler::WRITE_MASK);
    }
    m_writeWatched = watch;
}

int Link::handle_output(ACE_HANDLE) {
    if (m_state != State::Connecting) {
        Flush();
        return 0;
    }
    int error = 0;
    socklen_t length = sizeof(error);
    if (::getsockopt(m_socket.Get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        error = errno;
    }
    if (error != 0) {
        PeerEnded(error);
    } else {
        Connected();
    }
    return 0;
}

}  // namespace BP
