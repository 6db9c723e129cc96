#pragma once

#include <cstdint>

class CStreamParam;

namespace gvx {

// The local UDP ports of one stream, where GVX_MEDIA_PORT_EXCHANGE has them come from the port manager; 0, the system's
// choice, otherwise. Used on the thread of the device's reactor alone.
class StreamPorts {
public:
    // Whether streams over UDP are to take their ports from the port manager.
    static bool AreManaged();

    // Takes a port for video, and for audio and metadata where the stream has them. False when there is none; what has
    // been taken stays until GiveBack. May wait for the main service.
    bool Take(bool audio, bool metadata);
    // To be called when the sockets have been closed, right before the parameters are deleted: their end gives back
    // the ports of video and audio, and this call that of the metadata.
    void GiveBack(CStreamParam& param);

    std::uint16_t Video() const { return static_cast<std::uint16_t>(m_video); }
    std::uint16_t Audio() const { return static_cast<std::uint16_t>(m_audio); }
    std::uint16_t Metadata() const { return static_cast<std::uint16_t>(m_metadata); }

private:
    unsigned int m_video = 0;
    unsigned int m_audio = 0;
    unsigned int m_metadata = 0;
};

}  // namespace gvx
