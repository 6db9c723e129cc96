#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <netinet/in.h>
#include <sys/types.h>

// Receivers in processes of their own, so that their work is not counted.
namespace bench {

// How long packets were on their way, as the receiver counted it.
struct Delays {
    std::uint64_t packets = 0;
    double p50Us = 0;
    double p99Us = 0;
};

// Takes everything that comes to its ports of loopback. Over UDP it looks by itself every now and then and never sleeps
// in a socket: waking it would be charged to whoever sends, and the slower a path sends, the more often. Made before
// the process has threads.
class Sink {
public:
    enum class Kind { Udp, Tcp };
    explicit Sink(Kind kind, std::size_t ports = 1);
    ~Sink();
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    const sockaddr_in& Address(std::size_t port = 0) const { return m_addresses[port % m_addresses.size()]; }

    // UDP: the delays of the first packets of frames since the last call. A first packet carries, kStampAt bytes behind
    // its start, the real time in nanoseconds at which the frame was handed over; arrival is what the kernel noted.
    Delays TakeDelays();
    static constexpr std::size_t kStampAt = 14;

private:
    struct Shared;
    [[noreturn]] void DrainUdp() const;
    [[noreturn]] void DrainTcp() const;

    void Open(Kind kind);

    std::vector<int> m_handles;
    std::vector<sockaddr_in> m_addresses;
    pid_t m_child = -1;
    Shared* m_shared;
};

// Real time in nanoseconds.
std::int64_t RealNs();
void SleepUntilNs(std::int64_t when);

}  // namespace bench
