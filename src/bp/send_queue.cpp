#include "bp/send_queue.h"

#include "bp/registration.h"

#include <cerrno>

#include <sys/uio.h>

namespace BP {

namespace {

constexpr int kMaxParts = 64;  // enough for a wake, and far below IOV_MAX

}  // namespace

SendQueue::~SendQueue() {
    Close();
}

SendQueue::PushResult SendQueue::Push(ACE_Message_Block* block) {
    const std::size_t bytes = LinkAccount::BytesOf(block);
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_closed) {
        return PushResult::Closed;
    }
    if ((m_first != nullptr && m_bytes + bytes > m_maxBytes) || m_account.Denied()) {
        if (IsControlFrame(block)) {
            return PushResult::Full;
        }
        ++m_framesRefused;
        return ++m_episode == 1 ? PushResult::FirstFull : PushResult::Full;
    }
    block->next(nullptr);
    if (m_last != nullptr) {
        m_last->next(block);
    } else {
        m_first = block;
    }
    m_last = block;
    m_bytes += bytes;
    m_account.Charge(bytes);
    SendReceipt::Note(m_progress, ++m_progress->queued);
    return PushResult::Queued;
}

// Only the writer removes blocks, so what is gathered stays in place when the lock is left.
int SendQueue::Gather(struct iovec* parts, int maxParts) {
    std::lock_guard<std::mutex> guard(m_mutex);
    int count = 0;
    for (ACE_Message_Block* frame = m_first; frame != nullptr && count < maxParts; frame = frame->next()) {
        for (ACE_Message_Block* part = frame; part != nullptr && count < maxParts; part = part->cont()) {
            if (part->length() > 0) {
                parts[count].iov_base = part->rd_ptr();
                parts[count].iov_len = part->length();
                ++count;
            }
        }
    }
    return count;
}

ACE_Message_Block* SendQueue::ConsumeLocked(std::size_t bytes) {
    ACE_Message_Block* const first = m_first;
    ACE_Message_Block* lastLeft = nullptr;
    std::size_t freed = 0;
    while (m_first != nullptr && bytes >= m_first->total_length()) {
        bytes -= m_first->total_length();
        freed += LinkAccount::BytesOf(m_first);
        m_framesOut += IsControlFrame(m_first) ? 0 : 1;
        ++m_progress->written;
        lastLeft = m_first;
        m_first = m_first->next();
    }
    for (ACE_Message_Block* part = m_first; part != nullptr && bytes > 0; part = part->cont()) {
        const std::size_t take = bytes < part->length() ? bytes : part->length();
        part->rd_ptr(take);
        bytes -= take;
    }
    if (m_first == nullptr) {
        m_last = nullptr;
    }
    m_bytes -= freed;
    m_account.Discharge(freed);
    if (lastLeft == nullptr) {
        return nullptr;
    }
    lastLeft->next(nullptr);
    return first;
}

SendQueue::WriteResult SendQueue::WriteTo(const Writer& writer, std::size_t budget) {
    WriteResult result{WriteState::More, 0, 0, 0};
    struct iovec parts[kMaxParts];
    while (result.bytes < budget) {
        const int count = Gather(parts, kMaxParts);
        const ssize_t sent = count > 0 ? writer(parts, count) : 0;
        if (sent < 0) {
            if (errno == EINTR) {
                continue;
            }
            result.error = errno;
            result.state = errno == EAGAIN ? WriteState::Blocked : WriteState::Failed;
            return result;
        }
        result.bytes += static_cast<std::size_t>(sent);
        std::unique_lock<std::mutex> lock(m_mutex);
        ACE_Message_Block* const left = ConsumeLocked(static_cast<std::size_t>(sent));
        const bool drained = m_first == nullptr;
        if (drained) {
            result.refusedInEpisode += m_episode;
            m_episode = 0;
        }
        lock.unlock();
        ReleaseChain(left);
        if (drained) {
            result.state = WriteState::Drained;
            return result;
        }
    }
    return result;
}

void SendQueue::ReleaseChain(ACE_Message_Block* first) {
    while (first != nullptr) {
        ACE_Message_Block* const next = first->next();
        first->next(nullptr);
        first->release();
        first = next;
    }
}

void SendQueue::Close() {
    std::unique_lock<std::mutex> lock(m_mutex);
    ACE_Message_Block* const first = m_first;
    m_first = m_last = nullptr;
    m_account.Discharge(m_bytes.exchange(0));
    m_closed = true;
    m_progress->closed = true;
    lock.unlock();
    ReleaseChain(first);
}

}  // namespace BP
