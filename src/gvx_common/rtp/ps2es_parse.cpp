#include "gvx_common/rtp/ps2es_parse.h"

#include "base/log.h"

#include <algorithm>
#include <new>

// Layouts: ISO/IEC 13818-1, 2.5.3.3 (pack header), 2.5.3.5 (system header), 2.5.4.1 (program stream map) and
// 2.4.3.6 (PES packet).

namespace {

constexpr const char* kTitle = "Ps2Es";

constexpr std::size_t kStartCodeLen = 4;
constexpr std::size_t kLengthEnd = 6;  // start code and 16-bit length
constexpr unsigned char kProgramEnd = 0xB9;
constexpr unsigned char kPackHeader = 0xBA;
constexpr unsigned char kSystemHeader = 0xBB;
constexpr unsigned char kStreamMap = 0xBC;
constexpr unsigned char kFirstAudio = 0xC0;
constexpr unsigned char kLastAudio = 0xDF;
constexpr unsigned char kFirstVideo = 0xE0;
constexpr unsigned char kLastVideo = 0xEF;

bool IsAudio(unsigned char id) {
    return id >= kFirstAudio && id <= kLastAudio;
}

bool IsVideo(unsigned char id) {
    return id >= kFirstVideo && id <= kLastVideo;
}

bool IsStartCode(const unsigned char* at) {
    return at[0] == 0 && at[1] == 0 && at[2] == 1 && at[3] >= kProgramEnd;
}

unsigned int Read16(const unsigned char* at) {
    return static_cast<unsigned int>(at[0]) << 8 | at[1];
}

// 33 bits of a time stamp over five bytes, with marker bits between.
std::uint64_t ReadPts(const unsigned char* at) {
    return static_cast<std::uint64_t>((at[0] >> 1) & 0x07) << 30 | static_cast<std::uint64_t>(Read16(at + 1) >> 1) << 15 |
           Read16(at + 3) >> 1;
}

// Where a packet without a stated length ends: at the next start code that a program stream can have, or at the end.
std::size_t UnboundedEnd(const unsigned char* data, std::size_t size, std::size_t from) {
    for (std::size_t at = from; at + kStartCodeLen <= size; ++at) {
        if (data[at] == 0 && IsStartCode(data + at)) {
            return at;
        }
    }
    return size;
}

// End of the packet at the start of data by its 16-bit length, cut at the end of what is there.
std::size_t PacketEnd(const unsigned char* data, std::size_t size) {
    return std::min(size, kLengthEnd + Read16(data + kStartCodeLen));
}

}  // namespace

int CPs2EsParse::ParsePSPack(const unsigned char* pPacket, int iPktLen, unsigned char*& pVideoData,
                             unsigned int& iVideoLen, unsigned char*& pAudioData, unsigned int& iAudioLen,
                             HstPSHeader& header) {
    pVideoData = nullptr;
    pAudioData = nullptr;
    iVideoLen = 0;
    iAudioLen = 0;
    m_VideoBuf.clear();
    m_AudioBuf.clear();
    if (pPacket == nullptr || iPktLen < static_cast<int>(kStartCodeLen)) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es packet is null or too short, len[%d]", iPktLen);
        return ZVS_FAIL;
    }
    try {
        Span rest{pPacket, static_cast<std::size_t>(iPktLen)};
        while (rest.size >= kStartCodeLen) {
            const std::size_t used = ParseOne(rest, header);
            if (used == 0) {
                return ZVS_FAIL;
            }
            rest = Span{rest.begin + used, rest.size - used};
        }
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "Parse Ps2Es has no memory, len[%d]", iPktLen);
        return ZVS_FAIL;
    }
    pVideoData = m_VideoBuf.data();
    pAudioData = m_AudioBuf.data();
    iVideoLen = static_cast<unsigned int>(m_VideoBuf.size());
    iAudioLen = static_cast<unsigned int>(m_AudioBuf.size());
    return ZVS_SUCCEED;
}

std::size_t CPs2EsParse::ParseOne(const Span& rest, HstPSHeader& header) {
    if (!IsStartCode(rest.begin)) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es start code is wrong, [%02x %02x %02x %02x], left[%zu]", rest.begin[0],
                    rest.begin[1], rest.begin[2], rest.begin[3], rest.size);
        return 0;
    }
    const unsigned char id = rest.begin[3];
    if (id == kProgramEnd) {
        return kStartCodeLen;
    }
    if (id == kPackHeader) {
        return ParsePackHeader(rest, header);
    }
    if (rest.size < kLengthEnd) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es packet[%02x] has no length, left[%zu]", id, rest.size);
        return 0;
    }
    if (id == kSystemHeader) {
        return ParseSystemHeader(rest, header);
    }
    if (id == kStreamMap) {
        return ParseStreamMap(rest, header);
    }
    return IsAudio(id) || IsVideo(id) ? ParsePes(rest, header) : PacketEnd(rest.begin, rest.size);
}

std::size_t CPs2EsParse::ParsePackHeader(const Span& rest, HstPSHeader& header) {
    constexpr std::size_t kFixedLen = 14;
    const unsigned char* data = rest.begin;
    if (rest.size < kFixedLen) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es pack header is too short, left[%zu]", rest.size);
        return 0;
    }
    if ((data[4] & 0xC0) != 0x40) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es pack header is not of MPEG-2, [%02x]", data[4]);
        return 0;
    }
    // system_clock_reference_base: 3, 15 and 15 bits, each followed by a marker bit.
    header.ullSystemClock = static_cast<std::uint64_t>((data[4] >> 3) & 0x07) << 30 |
                            static_cast<std::uint64_t>(data[4] & 0x03) << 28 |
                            static_cast<std::uint64_t>(data[5]) << 20 |
                            static_cast<std::uint64_t>(data[6] >> 3) << 15 |
                            static_cast<std::uint64_t>(data[6] & 0x03) << 13 |
                            static_cast<std::uint64_t>(data[7]) << 5 | static_cast<std::uint64_t>(data[8] >> 3);
    header.uiMuxRate = static_cast<std::uint32_t>(data[10]) << 14 | static_cast<std::uint32_t>(data[11]) << 6 |
                       static_cast<std::uint32_t>(data[12] >> 2);
    const std::size_t stuffing = data[13] & 0x07;
    return std::min(rest.size, kFixedLen + stuffing);
}

std::size_t CPs2EsParse::ParseSystemHeader(const Span& rest, HstPSHeader& header) {
    constexpr std::size_t kRateEnd = 9;
    if (rest.size >= kRateEnd) {
        const unsigned char* data = rest.begin;
        header.uiRateBound = static_cast<std::uint32_t>(data[6] & 0x7F) << 15 |
                             static_cast<std::uint32_t>(data[7]) << 7 | static_cast<std::uint32_t>(data[8] >> 1);
    }
    return PacketEnd(rest.begin, rest.size);
}

std::size_t CPs2EsParse::ParseStreamMap(const Span& rest, HstPSHeader& header) {
    constexpr std::size_t kInfoEnd = 10;  // through program_stream_info_length
    constexpr std::size_t kEntryLen = 4;
    const unsigned char* data = rest.begin;
    const std::size_t end = PacketEnd(data, rest.size);
    if (end < kInfoEnd + 2) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es stream map is too short, len[%zu]", end);
        return 0;
    }
    const std::size_t mapLengthAt = kInfoEnd + Read16(data + 8);
    if (mapLengthAt + 2 > end) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es stream map info is too long, len[%zu], end[%zu]", mapLengthAt, end);
        return 0;
    }
    const std::size_t mapEnd = std::min(end, mapLengthAt + 2 + Read16(data + mapLengthAt));
    std::size_t at = mapLengthAt + 2;
    while (at + kEntryLen <= mapEnd) {
        const unsigned char streamType = data[at];
        const unsigned char id = data[at + 1];
        if (IsVideo(id)) {
            header.ucVideoStreamType = streamType;
        } else if (IsAudio(id)) {
            header.ucAudioStreamType = streamType;
        }
        at += kEntryLen + Read16(data + at + 2);
    }
    header.bHaveMap = true;
    return end;
}

std::size_t CPs2EsParse::ParsePes(const Span& rest, HstPSHeader& header) {
    constexpr std::size_t kHeadLen = 9;  // through PES_header_data_length
    constexpr unsigned char kPtsFlag = 0x80;
    constexpr std::size_t kPtsLen = 5;
    const unsigned char* data = rest.begin;
    const bool unbounded = Read16(data + kStartCodeLen) == 0;
    const std::size_t end =
        unbounded ? UnboundedEnd(data, rest.size, kLengthEnd) : PacketEnd(data, rest.size);
    if (end < kHeadLen) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es PES packet[%02x] is too short, len[%zu]", data[3], end);
        return 0;
    }
    if ((data[6] & 0xC0) != 0x80) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es PES packet[%02x] has a wrong head, [%02x]", data[3], data[6]);
        return 0;
    }
    const std::size_t payload = kHeadLen + data[8];
    if (payload > end) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es PES packet[%02x] head is too long, len[%zu], end[%zu]", data[3], payload, end);
        return 0;
    }
    const bool video = IsVideo(data[3]);
    if ((data[7] & kPtsFlag) != 0 && data[8] >= kPtsLen) {
        (video ? header.ullVideoPts : header.ullAudioPts) = ReadPts(data + kHeadLen);
    }
    std::vector<unsigned char>& gathered = video ? m_VideoBuf : m_AudioBuf;
    gathered.insert(gathered.end(), data + payload, data + end);
    return end;
}
