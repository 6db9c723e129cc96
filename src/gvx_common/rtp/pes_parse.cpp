#include "gvx_common/rtp/pes_parse.h"

#include "base/log.h"
#include "gvx_common/rtp/rtp_view.h"

#include <algorithm>

namespace {

constexpr std::size_t kLengthEnd = 6;  // start code and 16-bit length
constexpr std::size_t kHeadEnd = 9;    // through PES_header_data_length
constexpr std::size_t kTimeLen = 5;
constexpr std::uint8_t kFirstStream = 0xBC;

// 33 bits over five bytes, with marker bits between.
std::uint64_t ReadTime(const unsigned char* at) {
    return static_cast<std::uint64_t>((at[0] >> 1) & 0x07) << 30 |
           static_cast<std::uint64_t>(gvx::LoadBe16(at + 1) >> 1) << 15 | gvx::LoadBe16(at + 3) >> 1;
}

}  // namespace

bool CHstPESParse::HasHead(std::uint8_t streamId) {
    switch (streamId) {
        case 0xBC:  // program_stream_map
        case 0xBE:  // padding_stream
        case 0xBF:  // private_stream_2
        case 0xF0:  // ECM
        case 0xF1:  // EMM
        case 0xF2:  // DSMCC
        case 0xF8:  // H.222.1 type E
        case 0xFF:  // program_stream_directory
            return false;
        default:
            return true;
    }
}

std::size_t CHstPESParse::PacketLength(const unsigned char* pData) {
    const std::size_t length = gvx::LoadBe16(pData + 4);
    return length == 0 ? 0 : kLengthEnd + length;
}

enPESResult CHstPESParse::Read(const unsigned char* pData, std::size_t size, HstPESPacket& packet) {
    if (pData == nullptr || size < kLengthEnd) {
        return PES_INCOMPLETE;
    }
    if (pData[0] != 0 || pData[1] != 0 || pData[2] != 1 || pData[3] < kFirstStream) {
        return PES_NO_START;
    }
    const std::size_t length = PacketLength(pData);
    const std::size_t end = length == 0 ? size : std::min(size, length);
    const std::size_t stated = length == 0 ? size : length;
    HstPESPacket read;
    read.ucStreamId = pData[3];
    std::size_t payload = kLengthEnd;
    if (HasHead(read.ucStreamId)) {
        if (end < kHeadEnd) {
            return length != 0 && length < kHeadEnd ? PES_WRONG_LENGTH : PES_INCOMPLETE;
        }
        if ((pData[6] & 0xC0) != 0x80) {
            return PES_WRONG_HEAD;
        }
        payload = kHeadEnd + pData[8];
        if (payload > end) {
            return length != 0 && payload > stated ? PES_WRONG_LENGTH : PES_INCOMPLETE;
        }
        read.bAligned = (pData[6] & 0x04) != 0;
        read.bHavePts = (pData[7] & 0x80) != 0 && pData[8] >= kTimeLen;
        read.bHaveDts = (pData[7] & 0xC0) == 0xC0 && pData[8] >= 2 * kTimeLen;
        read.ullPts = read.bHavePts ? ReadTime(pData + kHeadEnd) : 0;
        read.ullDts = read.bHaveDts ? ReadTime(pData + kHeadEnd + kTimeLen) : read.ullPts;
    }
    read.pPayload = pData + payload;
    read.uiPayloadLen = static_cast<unsigned int>(end - payload);
    read.uiPacketLen = static_cast<unsigned int>(end);
    packet = read;
    return PES_OK;
}

int CHstPESParse::ParsePES(const unsigned char* pData, int iLen, HstPESPacket& packet) const {
    const enPESResult result =
        iLen < 0 ? PES_INCOMPLETE : Read(pData, pData == nullptr ? 0 : static_cast<std::size_t>(iLen), packet);
    if (result != PES_OK) {
        GVX_LOG_ERR("Pes parse", "Parse PES packet failed, %s, len[%d]", PesResultName(result), iLen);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

const char* PesResultName(enPESResult result) {
    switch (result) {
        case PES_OK:
            return "ok";
        case PES_INCOMPLETE:
            return "the head is incomplete";
        case PES_NO_START:
            return "no start code";
        case PES_WRONG_HEAD:
            return "the head is not of MPEG-2";
        case PES_WRONG_LENGTH:
            return "the head is longer than the packet";
    }
    return "unknown";
}
