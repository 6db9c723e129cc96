#pragma once

#include "bp/link_memory.h"
#include "bp/message_block_ptr.h"
#include "bp/net_factory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include <sys/types.h>

struct iovec;

namespace BP {

// Frames that wait to be written to one socket, bounded in what they take of the memory, heads and blocks included. Any
// thread pushes; one thread writes. Queued blocks are chained through their own next pointers, so pushing allocates
// nothing.
class SendQueue {
public:
    // account, whose memory they take, outlives the queue.
    SendQueue(std::size_t maxBytes, LinkAccount& account) : m_maxBytes(maxBytes), m_account(account) {}
    ~SendQueue();
    SendQueue(const SendQueue&) = delete;
    SendQueue& operator=(const SendQueue&) = delete;

    // FirstFull is the refusal that begins an episode; the episode lasts until the queue has been written out.
    enum class PushResult { Queued, FirstFull, Full, Closed };
    // Takes the block over when it is queued. An empty queue takes any frame, unless the account is denied more.
    PushResult Push(ACE_Message_Block* block);

    enum class WriteState { Drained, More, Blocked, Failed };
    struct WriteResult {
        WriteState state;
        std::size_t bytes;
        std::uint64_t refusedInEpisode;  // not 0 when this writing ended an episode of refusals
        int error;                       // errno of a failure
    };
    // As sendmsg with the parts, without waiting: how many bytes were taken, or -1 with errno.
    using Writer = std::function<ssize_t(struct iovec* parts, int count)>;
    // Writes what is taken, gathering frames, until about budget bytes have left. The lock is not held meanwhile.
    WriteResult WriteTo(const Writer& writer, std::size_t budget);

    // Releases what is queued; from then on nothing is taken.
    void Close();

    // What the queued frames take.
    std::size_t Bytes() const { return m_bytes; }
    std::uint64_t FramesOut() const { return m_framesOut; }
    std::uint64_t FramesRefused() const { return m_framesRefused; }
    std::shared_ptr<const LinkProgress> Progress() const { return m_progress; }

private:
    int Gather(struct iovec* parts, int maxParts);
    // Gives back the frames that have left whole, chained, for release outside the lock.
    ACE_Message_Block* ConsumeLocked(std::size_t bytes);
    static void ReleaseChain(ACE_Message_Block* first);

    const std::size_t m_maxBytes;
    LinkAccount& m_account;
    mutable std::mutex m_mutex;
    ACE_Message_Block* m_first = nullptr;  // Guarded by m_mutex. Owned, as are all behind it.
    ACE_Message_Block* m_last = nullptr;   // Guarded by m_mutex.
    bool m_closed = false;                 // Guarded by m_mutex.
    std::uint64_t m_episode = 0;           // Guarded by m_mutex. Refusals of the present episode.
    std::atomic<std::size_t> m_bytes{0};   // written under m_mutex, read anywhere
    const std::shared_ptr<LinkProgress> m_progress = std::make_shared<LinkProgress>();  // written under m_mutex
    std::atomic<std::uint64_t> m_framesOut{0};
    std::atomic<std::uint64_t> m_framesRefused{0};
};

}  // namespace BP
