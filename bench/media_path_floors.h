#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include <netinet/in.h>
#include <semaphore.h>
#include <sys/uio.h>

// The loops that do only what cannot be avoided, and the peers that do the same work.
namespace bench {

struct Clip;

// A socket that sends packets of given sizes, all from one buffer of zeros.
class BareUdp {
public:
    explicit BareUdp(const sockaddr_in& to);
    ~BareUdp();
    BareUdp(const BareUdp&) = delete;
    BareUdp& operator=(const BareUdp&) = delete;

    // One sendto a packet.
    void SendEach(const std::size_t* sizes, std::size_t count) const;
    // Copies each packet once and sends runs of equal size as one segmented buffer. False when the kernel refuses it.
    bool SendSegmented(const std::size_t* sizes, std::size_t count) const;
    void SendBytes(const char* bytes, std::size_t size) const;
    // Sends packets as they stand, runs of equal size as one segmented buffer, many with one call.
    void SendParts(iovec* parts, std::size_t count) const;

private:
    int m_handle;
    sockaddr_in m_to;
};

class BareTcp {
public:
    explicit BareTcp(const sockaddr_in& to);
    ~BareTcp();
    BareTcp(const BareTcp&) = delete;
    BareTcp& operator=(const BareTcp&) = delete;
    void SendEach(const std::size_t* sizes, std::size_t count) const;
    // Copies each packet once and sends a NAL unit, whose last packet is shorter, with one gathered write.
    void SendUnits(const std::size_t* sizes, std::size_t count) const;
    // Sends packets as they stand with gathered writes.
    void SendParts(iovec* parts, std::size_t count) const;

private:
    int m_handle;
};

// What the stated design cannot avoid: one thread copies each packet once into a ring, a second one takes what is there
// and gives it to send, 128 packets at most. The maker publishes a NAL unit at a time and wakes the sender when that
// waits.
class TwoThreads {
public:
    using SendParts = std::function<void(iovec* parts, std::size_t count)>;
    explicit TwoThreads(SendParts send);
    ~TwoThreads();
    TwoThreads(const TwoThreads&) = delete;
    TwoThreads& operator=(const TwoThreads&) = delete;
    void Send(const std::size_t* sizes, std::size_t count);
    void WaitUntilSent() const;

private:
    static constexpr std::size_t kSlots = 4096;
    struct Slot {
        std::size_t size;
        char bytes[2040];
    };
    void Run();
    void Publish(std::size_t made);

    const SendParts m_send;
    std::vector<Slot> m_slots{kSlots};
    alignas(64) std::atomic<std::size_t> m_made{0};
    alignas(64) std::atomic<std::size_t> m_sent{0};
    alignas(64) std::atomic<bool> m_asleep{false};
    std::atomic<bool> m_stop{false};
    sem_t m_wake;
    std::thread m_thread;
};

// Copies each byte of the clip once into a packet's room, as many at a time as our largest packet holds.
void CopyFrames(const Clip& clip);

enum class Peer { GStreamer, Ffmpeg };

// CPU seconds that the program takes to packetize the clip times times and send it to the port, less what it takes to
// read and parse it only; negative when it did not run.
double PeerCpuSeconds(Peer peer, const Clip& clip, std::size_t times, std::uint16_t port);

}  // namespace bench
