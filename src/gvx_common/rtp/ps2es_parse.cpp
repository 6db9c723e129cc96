#include "gvx_common/rtp/ps2es_parse.h"

#include "base/log.h"
#include "gvx_common/rtp/pes_parse.h"

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

// Where bytes of unknown length end: at the next start code that a program stream can have. Up to three bytes at the
// end of the buffer that may begin one are not counted in.
std::size_t EndlessSize(const unsigned char* data, std::size_t size) {
    std::size_t at = 0;
    for (; at + kStartCodeLen <= size; ++at) {
        if (data[at] == 0 && IsStartCode(data + at)) {
            return at;
        }
    }
    for (; at < size; ++at) {
        const std::size_t left = size - at;
        if (data[at] == 0 && (left < 2 || data[at + 1] == 0) && (left < 3 || data[at + 2] == 1)) {
            return at;
        }
    }
    return size;
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
    if (pPacket == nullptr || iPktLen <= 0) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es packet is null or empty, len[%d]", iPktLen);
        return ZVS_FAIL;
    }
    int result = ZVS_FAIL;
    try {
        result = Parse(Span{pPacket, static_cast<std::size_t>(iPktLen)}, header);
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "Parse Ps2Es has no memory, len[%d]", iPktLen);
    }
    if (result != ZVS_SUCCEED) {
        m_Carry.clear();
        m_openBytes = 0;
        m_openEndless = false;
        return result;
    }
    pVideoData = m_VideoBuf.data();
    pAudioData = m_AudioBuf.data();
    iVideoLen = static_cast<unsigned int>(m_VideoBuf.size());
    iAudioLen = static_cast<unsigned int>(m_AudioBuf.size());
    return ZVS_SUCCEED;
}

int CPs2EsParse::Parse(Span rest, HstPSHeader& header) {
    if (rest.size >= kStartCodeLen && IsStartCode(rest.begin)) {
        // No payload of video holds such a code (ISO/IEC 13818-1, 2.4.3.7), so what was waited for is lost.
        m_Carry.clear();
        m_openBytes = 0;
        m_openEndless = false;
    } else if (!m_Carry.empty()) {
        m_Joined.swap(m_Carry);
        m_Carry.clear();
        m_Joined.insert(m_Joined.end(), rest.begin, rest.begin + rest.size);
        rest = Span{m_Joined.data(), m_Joined.size()};
    }
    while (rest.size != 0) {
        std::size_t used = TakeOpen(rest);
        if (used == 0) {
            used = ParseOne(rest, header);
        }
        if (used == kRefused) {
            return ZVS_FAIL;
        }
        if (used == kIncomplete) {
            m_Carry.assign(rest.begin, rest.begin + rest.size);
            return ZVS_SUCCEED;
        }
        rest = Span{rest.begin + used, rest.size - used};
    }
    return ZVS_SUCCEED;
}

// Takes what belongs to the packet that is still open; 0 when none is.
std::size_t CPs2EsParse::TakeOpen(const Span& rest) {
    std::size_t size = std::min(rest.size, m_openBytes);
    m_openBytes -= size;
    if (m_openEndless) {
        size = EndlessSize(rest.begin, rest.size);
        if (size < rest.size && rest.size - size < kStartCodeLen) {
            m_Carry.assign(rest.begin + size, rest.begin + rest.size);
            Take(m_openStream, rest.begin, size);
            return rest.size;
        }
        m_openEndless = size == rest.size;
    }
    Take(m_openStream, rest.begin, size);
    return size;
}

void CPs2EsParse::Take(Stream stream, const unsigned char* begin, std::size_t size) {
    if (stream != Stream::LeftOut) {
        std::vector<unsigned char>& gathered = stream == Stream::Video ? m_VideoBuf : m_AudioBuf;
        gathered.insert(gathered.end(), begin, begin + size);
    }
}

std::size_t CPs2EsParse::ParseOne(const Span& rest, HstPSHeader& header) {
    const std::size_t zeros = static_cast<std::size_t>(
        std::find_if(rest.begin, rest.begin + rest.size, [](unsigned char c) { return c != 0; }) - rest.begin);
    // Of the zeros before a start code two are its own.
    if (zeros > 2 || zeros == rest.size) {
        return zeros == rest.size && zeros <= 2 ? kIncomplete : zeros - 2;
    }
    if (rest.size < kStartCodeLen && zeros == 2 && rest.begin[2] == 1) {
        return kIncomplete;
    }
    if (rest.size < kStartCodeLen || !IsStartCode(rest.begin)) {
        unsigned char seen[kStartCodeLen] = {};
        std::copy_n(rest.begin, std::min(rest.size, kStartCodeLen), seen);
        GVX_LOG_ERR(kTitle, "Parse Ps2Es start code is wrong, [%02x %02x %02x %02x], left[%zu]", seen[0], seen[1],
                    seen[2], seen[3], rest.size);
        return kRefused;
    }
    const unsigned char id = rest.begin[3];
    if (id == kProgramEnd) {
        return kStartCodeLen;
    }
    if (id == kPackHeader) {
        return ParsePackHeader(rest, header);
    }
    if (rest.size < kLengthEnd) {
        return kIncomplete;
    }
    if (id == kSystemHeader) {
        return ParseSystemHeader(rest, header);
    }
    if (id == kStreamMap) {
        return ParseStreamMap(rest, header);
    }
    return IsAudio(id) || IsVideo(id) ? ParsePes(rest, header) : LeaveOut(rest);
}

// A private stream, padding or whatever else; the rest of it may come with the next buffer.
std::size_t CPs2EsParse::LeaveOut(const Span& rest) {
    const std::size_t length = kLengthEnd + Read16(rest.begin + kStartCodeLen);
    m_openStream = Stream::LeftOut;
    m_openBytes = length - std::min(length, rest.size);
    return length - m_openBytes;
}

std::size_t CPs2EsParse::ParsePackHeader(const Span& rest, HstPSHeader& header) {
    constexpr std::size_t kFixedLen = 14;
    const unsigned char* data = rest.begin;
    if (rest.size > kStartCodeLen && (data[4] & 0xC0) != 0x40) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es pack header is not of MPEG-2, [%02x]", data[4]);
        return kRefused;
    }
    if (rest.size < kFixedLen || rest.size < kFixedLen + (data[13] & 0x07)) {
        return kIncomplete;
    }
    // system_clock_reference_base: 3, 15 and 15 bits, each followed by a marker bit.
    header.ullSystemClock = static_cast<std::uint64_t>((data[4] >> 3) & 0x07) << 30 |
                            static_cast<std::uint64_t>(data[4] & 0x03) << 28 |
                            static_cast<std::uint64_t>(data[5]) << 20 | static_cast<std::uint64_t>(data[6] >> 3) << 15 |
                            static_cast<std::uint64_t>(data[6] & 0x03) << 13 |
                            static_cast<std::uint64_t>(data[7]) << 5 | static_cast<std::uint64_t>(data[8] >> 3);
    header.uiMuxRate = static_cast<std::uint32_t>(data[10]) << 14 | static_cast<std::uint32_t>(data[11]) << 6 |
                       static_cast<std::uint32_t>(data[12] >> 2);
    return kFixedLen + (data[13] & 0x07);
}

std::size_t CPs2EsParse::ParseSystemHeader(const Span& rest, HstPSHeader& header) {
    constexpr std::size_t kRateEnd = 9;
    const unsigned char* data = rest.begin;
    const std::size_t end = kLengthEnd + Read16(data + kStartCodeLen);
    if (rest.size < end) {
        return kIncomplete;
    }
    if (end >= kRateEnd) {
        header.uiRateBound = static_cast<std::uint32_t>(data[6] & 0x7F) << 15 |
                             static_cast<std::uint32_t>(data[7]) << 7 | static_cast<std::uint32_t>(data[8] >> 1);
    }
    return end;
}

std::size_t CPs2EsParse::ParseStreamMap(const Span& rest, HstPSHeader& header) {
    constexpr std::size_t kInfoEnd = 10;  // through program_stream_info_length
    constexpr std::size_t kEntryLen = 4;
    const unsigned char* data = rest.begin;
    const std::size_t end = kLengthEnd + Read16(data + kStartCodeLen);
    if (rest.size < end) {
        return kIncomplete;
    }
    if (end < kInfoEnd + 2) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es stream map is too short, len[%zu]", end);
        return kRefused;
    }
    const std::size_t mapLengthAt = kInfoEnd + Read16(data + 8);
    if (mapLengthAt + 2 > end) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es stream map info is too long, len[%zu], end[%zu]", mapLengthAt, end);
        return kRefused;
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
    HstPESPacket packet;
    const enPESResult result = CHstPESParse::Read(rest.begin, rest.size, packet);
    if (result == PES_INCOMPLETE) {
        return kIncomplete;
    }
    if (result != PES_OK) {
        GVX_LOG_ERR(kTitle, "Parse Ps2Es PES packet[%02x] is refused, %s, left[%zu]", rest.begin[3],
                    PesResultName(result), rest.size);
        return kRefused;
    }
    const bool video = IsVideo(packet.ucStreamId);
    if (packet.bHavePts) {
        (video ? header.ullVideoPts : header.ullAudioPts) = packet.ullPts;
    }
    m_openStream = video ? Stream::Video : Stream::Audio;
    const std::size_t length = CHstPESParse::PacketLength(rest.begin);
    if (length == 0) {
        // TakeOpen finds its end.
        m_openEndless = true;
        return rest.size - packet.uiPayloadLen;
    }
    Take(m_openStream, packet.pPayload, packet.uiPayloadLen);
    m_openBytes = length - packet.uiPacketLen;
    return packet.uiPacketLen;
}
