#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace gvx {

// Takes apart what comes on an RTSP link that carries RTP too (RFC 2326, 10.12): packets behind "$", channel and
// length, and RTSP messages between them, each with its body. Holds one buffer; a message longer than kMostText ends
// the link. One thread; the sinks are called on it.
class RtpInterleaveReader {
public:
    static constexpr std::size_t kMostText = 64 * 1024;

    // The bytes are valid during the call. textSink may be empty: messages are then passed over.
    using PacketSink = std::function<void(std::uint8_t channel, const std::uint8_t* data, std::size_t size)>;
    using TextSink = std::function<void(const char* text, std::size_t size)>;
    RtpInterleaveReader(PacketSink packetSink, TextSink textSink);

    // Reads what the socket holds, without waiting. 0; 1 when the peer has closed it; -1 for an error or for what is
    // neither packet nor message: the link is then of no more use.
    int Receive(int handle);

    // The same for bytes that somebody else has read. 0 or -1.
    int Feed(const void* data, std::size_t size);

private:
    bool TakeAll();
    // Bytes of the message at the front; 0 while more is needed, -1 when it is none.
    std::ptrdiff_t MessageSize(const std::uint8_t* at, std::size_t size) const;

    PacketSink m_packetSink;
    TextSink m_textSink;
    std::unique_ptr<std::uint8_t[]> m_buffer;
    std::size_t m_size = 0;
    bool m_broken = false;
};

}  // namespace gvx
