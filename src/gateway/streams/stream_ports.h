#pragma once

#include <cstdint>

class CStreamParam;

namespace gvx {

// The local UDP ports of one stream: from the port manager, where GVX_MEDIA_PORT_EXCHANGE says so; from the ranges of
// GVX_MEDIA_SEND_UDP, where there are any; otherwise 0, the system's choice. The stream's parameters keep them: they go
// back when those are deleted, after the stream's end. Its sockets may close a moment later, with its last packets: who
// finds no other port waits for that. Used on the thread of the device's reactor alone.
class StreamPorts {
public:
    // Whether streams over UDP are to take their ports rather than leave the choice to the system.
    static bool AreManaged();

    // Takes a port for video, and for audio and metadata where the stream has them. False when there is none; what has
    // been taken is kept. May wait for the main service, and half a second for ports of streams that have ended.
    bool Take(bool audio, bool metadata, CStreamParam& keeper);

    std::uint16_t Video() const { return m_video; }
    std::uint16_t Audio() const { return m_audio; }
    std::uint16_t Metadata() const { return m_metadata; }

private:
    std::uint16_t m_video = 0;
    std::uint16_t m_audio = 0;
    std::uint16_t m_metadata = 0;
};

}  // namespace gvx
