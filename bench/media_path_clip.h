#pragma once

#include "gvx_common/records/media_types.h"

#include <cstdint>
#include <string>
#include <vector>

// Clips as a device would hand them over: whole frames in memory.
namespace bench {

using Bytes = std::vector<unsigned char>;

enum class Codec { H264, H265 };

struct Clip {
    std::string name;
    std::string path;
    Codec codec = Codec::H264;
    std::vector<Bytes> frames;  // with four-byte start codes
    std::size_t fileBytes = 0;
};

// Reads an Annex B file; its ending, .h264 or .h265, tells the codec. Ends the process with a message when there is no
// stream in it.
Clip ReadClip(const std::string& path);

// A lens with one channel that hands its packets to func with that user pointer. Lives until the process ends.
class ClipSender {
public:
    ClipSender(SEND_STREAM_FUNC* func, void* user, bool overTcp);
    // Cuts the frame into packets and sends them.
    void Send(Bytes& frame, Codec codec);

private:
    class Lens;
    Lens* m_lens;
    void* m_user;
    bool m_overTcp;
};

// Sizes of the packets that one pass of the clip makes.
std::vector<std::size_t> PacketSizes(Clip& clip, bool overTcp);

}  // namespace bench
