#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "base/unique_fd.h"
#include "gvx_common/rtp/common_rtp_receiver.h"

struct epoll_event;

namespace gvx {

// Serves many receivers with one thread of its user's: Poll in a loop. Receivers are added and removed on any thread.
class RtpPoller {
public:
    // restUs: how long Poll lets packets gather once the first has come, so that those of a frame and of several
    // streams are read together; the latency that this adds buys processor time. 0 reads at once. While packets come
    // more often than that, it rests twice as long and does not wait for the first: one wake-up instead of two, for
    // as many packets.
    static constexpr int kRestUs = 2000;
    explicit RtpPoller(int restUs = kRestUs);
    RtpPoller(const RtpPoller&) = delete;
    RtpPoller& operator=(const RtpPoller&) = delete;

    // False when no epoll descriptor could be made; nothing can then be added.
    bool IsUsable() const { return m_epoll.Valid(); }

    // The receiver is open and has sockets. From now on it belongs to the thread that polls, until it is removed. 0; 1
    // when it was added before or the system refuses.
    int Add(CCommonRtpReceiver& receiver);
    // When this returns, the receiver is no longer used and none of its callbacks runs, unless it is called from one of
    // these; a receiver must not be removed from a callback of its own. 1 when it was not there.
    int Remove(CCommonRtpReceiver& receiver);

    // Waits for packets, at most timeoutMs and never beyond the next moment at which a receiver needs its OnTimer, and
    // serves those that have some. How many receivers had packets, -1 for an error. The lock that Add and Remove take
    // is held during callbacks and not while it waits.
    int Poll(int timeoutMs);

    // Ends a wait of Poll from any thread.
    void Wake();

private:
    struct Entry {
        CCommonRtpReceiver* receiver;
        int handle;
        int controlHandle;
        std::int64_t timerUs;  // when OnTimer is needed
    };

    int Gather(epoll_event* events, int room, std::int64_t waitUs);
    void Serve(std::uint64_t key);
    std::int64_t RunTimers(std::int64_t nowUs);

    const int m_restUs;
    bool m_isFlowing = false;  // packets come more often than the rest is long; of the thread that polls
    UniqueFd m_epoll;
    UniqueFd m_wake;
    std::recursive_mutex m_mutex;  // guards what follows
    std::unordered_map<std::uint32_t, Entry> m_entries;
    std::vector<std::uint32_t> m_due;  // reused
    std::uint32_t m_nextId = 1;
    std::int64_t m_nextTimerUs = 0;
};

}  // namespace gvx
