#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// What the headers of a program stream said last (ISO/IEC 13818-1, 2.5.3 and 2.5.4). Kept between packets, since
// system headers and maps come only now and then.
struct HstPSHeader {
    std::uint64_t ullSystemClock = 0;  // system_clock_reference_base, 90 kHz
    std::uint32_t uiMuxRate = 0;       // program_mux_rate, units of 50 bytes/s
    std::uint32_t uiRateBound = 0;     // rate_bound of the system header
    std::uint64_t ullVideoPts = 0;     // last presentation time of video, 90 kHz
    std::uint64_t ullAudioPts = 0;
    std::uint8_t ucVideoStreamType = 0;  // stream_type of the map, 0 while unknown
    std::uint8_t ucAudioStreamType = 0;
    bool bHaveMap = false;
};

// Takes the elementary streams out of program-stream packets. One thread at a time; the gathering buffers are kept
// and reused, so a steady stream allocates nothing.
class CPs2EsParse {
public:
    // Parses a buffer of pack, system, map and PES packets and gathers the bytes of video streams (ids 0xE0 to 0xEF)
    // and audio streams (0xC0 to 0xDF); private and other streams are left out, and so are zero bytes between packets.
    // A map is not needed. The buffer may end anywhere: a PES payload is given as far as it is there and goes on with
    // the next buffer, a head that is not all there waits for it. A buffer that begins with a start code of the pack
    // layer begins anew instead, whatever the one before promised.
    // The spans belong to the parser and stay until its next call; a stream that did not occur has length 0.
    // 0; 1 for what is not a program stream or contradicts itself, with a log line and both lengths 0; what was
    // waiting is then forgotten.
    int ParsePSPack(const unsigned char* pPacket, int iPktLen, unsigned char*& pVideoData, unsigned int& iVideoLen,
                    unsigned char*& pAudioData, unsigned int& iAudioLen, HstPSHeader& header);

private:
    struct Span {
        const unsigned char* begin;
        std::size_t size;
    };
    enum class Stream { Video, Audio, LeftOut };

    int Parse(Span rest, HstPSHeader& header);
    std::size_t TakeOpen(const Span& rest);
    void Take(Stream stream, const unsigned char* begin, std::size_t size);

    // Each takes what begins at a start code and gives the bytes it used: kRefused for a refusal, kIncomplete when
    // more of it is needed.
    static constexpr std::size_t kRefused = 0;
    static constexpr std::size_t kIncomplete = static_cast<std::size_t>(-1);
    std::size_t ParseOne(const Span& rest, HstPSHeader& header);
    static std::size_t ParsePackHeader(const Span& rest, HstPSHeader& header);
    static std::size_t ParseSystemHeader(const Span& rest, HstPSHeader& header);
    static std::size_t ParseStreamMap(const Span& rest, HstPSHeader& header);
    std::size_t ParsePes(const Span& rest, HstPSHeader& header);
    std::size_t LeaveOut(const Span& rest);

    std::vector<unsigned char> m_VideoBuf;
    std::vector<unsigned char> m_AudioBuf;
    std::vector<unsigned char> m_Carry;   // start of what was incomplete at the end of the last buffer
    std::vector<unsigned char> m_Joined;  // that and the buffer behind it
    Stream m_openStream = Stream::LeftOut;
    std::size_t m_openBytes = 0;  // of the open packet that are still to come
    bool m_openEndless = false;   // it has no length: to the next start code
};
