#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <netinet/in.h>

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

private:
    int m_handle;
};

// Copies each byte of the clip once into a packet's room, as many at a time as our largest packet holds.
void CopyFrames(const Clip& clip);

enum class Peer { GStreamer, Ffmpeg };

// CPU seconds that the program takes to packetize the clip times times and send it to the port, less what it takes to
// read and parse it only; negative when it did not run.
double PeerCpuSeconds(Peer peer, const Clip& clip, std::size_t times, std::uint16_t port);

}  // namespace bench
