#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

namespace gvx {

// When the next RTCP report is due (RFC 3550, 6.2, 6.3 and A.7): five seconds and more by the share of the session's
// bandwidth, half of that before the first one, each drawn from half to one and a half of it. One thread.
class RtcpSchedule {
public:
    // Who takes part, this end included.
    struct Session {
        unsigned int members = 1;
        unsigned int senders = 0;
        bool weSend = false;
    };

    // bandwidth: of the session, in bits a second; five parts of a hundred are RTCP's.
    void Start(std::int64_t nowUs, std::uint32_t bandwidth, const Session& session);

    // Whether a report is to be sent now. When the session has grown meanwhile, the moment is put off instead (6.3.6).
    bool IsDue(std::int64_t nowUs, const Session& session);
    // After a report was sent: draws the next moment.
    void OnSent(std::int64_t nowUs, std::size_t bytes, const Session& session);
    void OnReceived(std::size_t bytes) { Average(bytes); }

    std::int64_t NextUs() const { return m_nextUs; }

private:
    std::int64_t Interval(const Session& session);
    void Average(std::size_t bytes);

    double m_bytesASecond = 0;
    double m_averageBytes = 0;
    std::int64_t m_lastUs = 0;
    std::int64_t m_nextUs = 0;
    bool m_initial = true;
    std::minstd_rand m_random;
};

}  // namespace gvx
