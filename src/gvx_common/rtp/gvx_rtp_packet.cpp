#include "gvx_common/rtp/gvx_rtp_packet.h"

#include "base/bounded_string.h"
#include "base/log.h"

#include <arpa/inet.h>

namespace {

constexpr std::uint8_t kVersionShift = 6;
constexpr std::uint8_t kExtensionBit = 0x10;
constexpr std::uint8_t kCsrcCountMask = 0x0F;
constexpr std::uint8_t kMarkerBit = 0x80;
constexpr std::uint8_t kPayloadTypeMask = 0x7F;
constexpr unsigned char kRtpVersion = 2;
constexpr unsigned char kFirstPayloadType = 96;
constexpr unsigned int kExtendHeadLen = sizeof(RTP_EXTEND_HEADER);
constexpr const char* kTitle = "Rtp packet";

}  // namespace

// A setter or getter without a buffer.
#define GVX_RTP_CHECK_HEAD(...)                         \
    do {                                                \
        if (m_pFixedHead == nullptr) {                  \
            GVX_LOG_ERR(kTitle, "Fixed head is null."); \
            return __VA_ARGS__;                         \
        }                                               \
    } while (false)

int CRtpPacket::GeneratePacket(char* buf, unsigned int len, bool ext) {
    if (buf == nullptr) {
        GVX_LOG_ERR(kTitle, "pRtpPacket is null.");
        return ZVS_PARA_INVALID;
    }
    memset_s(buf, len, 0, len);
    m_pRtpData = buf;
    m_ulPacketLen = len;
    m_pFixedHead = reinterpret_cast<RTP_FIXED_HEADER*>(buf);
    m_pExtHead = ext ? reinterpret_cast<RTP_EXTEND_HEADER*>(buf + GVX_RTP_FIXED_HEAD_LEN) : nullptr;
    m_ExternData = ext ? reinterpret_cast<RTP_EXTENSION_DATA_EX_S*>(buf + GVX_RTP_FIXED_HEAD_LEN + kExtendHeadLen)
                       : nullptr;
    SetVersion(kRtpVersion);
    SetPayloadType(kFirstPayloadType);
    SetMarker(false);
    setExtension(false);
    m_ulHeadLen = GVX_RTP_FIXED_HEAD_LEN;
    return ZVS_SUCCEED;
}

int CRtpPacket::ParsePacket(const char* buf, unsigned int len) {
    if (buf == nullptr) {
        GVX_LOG_ERR(kTitle, "Rtp data is null.");
        return ZVS_FAIL;
    }
    if (len < GVX_RTP_FIXED_HEAD_LEN) {
        GVX_LOG_ERR(kTitle, "Packet len is too short, uilen[%d]", static_cast<int>(len));
        return ZVS_FAIL;
    }
    CRtpPacket view;  // taken over only when everything holds
    view.m_pRtpData = const_cast<char*>(buf);
    view.m_ulPacketLen = len;
    view.m_pFixedHead = reinterpret_cast<RTP_FIXED_HEADER*>(view.m_pRtpData);
    if (view.CheckVersion() != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "Check version fail.");
        return ZVS_FAIL;
    }
    // RFC 3550, 5.1: the extension stands behind the CSRC list.
    const unsigned int csrcEnd = GVX_RTP_FIXED_HEAD_LEN + 4u * (view.m_pFixedHead->ucVersionBits & kCsrcCountMask);
    view.m_ulHeadLen = csrcEnd;
    if ((view.m_pFixedHead->ucVersionBits & kExtensionBit) != 0) {
        if (len < csrcEnd + kExtendHeadLen) {
            GVX_LOG_ERR(kTitle, "Packet len is too short to contain extend head, uilen[%d]", static_cast<int>(len));
            return ZVS_FAIL;
        }
        view.m_pExtHead = reinterpret_cast<RTP_EXTEND_HEADER*>(view.m_pRtpData + csrcEnd);
        const unsigned int extensionLen = 4u * ntohs(view.m_pExtHead->usLength);
        view.m_ulHeadLen = csrcEnd + kExtendHeadLen + extensionLen;
        if (extensionLen >= sizeof(RTP_EXTENSION_DATA_EX_S)) {
            view.m_ExternData =
                reinterpret_cast<RTP_EXTENSION_DATA_EX_S*>(view.m_pRtpData + csrcEnd + kExtendHeadLen);
        }
    }
    if (len < view.m_ulHeadLen) {
        GVX_LOG_ERR(kTitle, "As ulLen[%d] is smaller than ulHeadLen[%d].", static_cast<int>(len),
                    static_cast<int>(view.m_ulHeadLen));
        return ZVS_FAIL;
    }
    *this = view;
    return ZVS_SUCCEED;
}

void CRtpPacket::setExtension(bool extension) {
    GVX_RTP_CHECK_HEAD();
    const unsigned int bits = m_pFixedHead->ucVersionBits;
    m_pFixedHead->ucVersionBits =
        static_cast<std::uint8_t>(extension ? (bits | kExtensionBit) : (bits & ~unsigned{kExtensionBit}));
}

void CRtpPacket::setExternHead(unsigned short profile, unsigned short length) {
    if (m_pExtHead == nullptr) {
        GVX_LOG_ERR(kTitle, "Extend head is null.");
        return;
    }
    m_pExtHead->usProfile = profile;
    m_pExtHead->usLength = htons(length);
}

void CRtpPacket::setExtDataTime(unsigned short millisecond, unsigned int second) {
    if (m_ExternData == nullptr) {
        GVX_LOG_ERR(kTitle, "Extension data is null.");
        return;
    }
    m_ExternData->usGmtMillsecond = htons(millisecond);
    m_ExternData->uiGmtSecond = htonl(second);
}

void CRtpPacket::SetSeqNum(unsigned short seqNum) {
    GVX_RTP_CHECK_HEAD();
    m_pFixedHead->usSeqNum = htons(seqNum);
}

unsigned short CRtpPacket::GetSeqNum() const {
    GVX_RTP_CHECK_HEAD(0);
    return ntohs(m_pFixedHead->usSeqNum);
}

void CRtpPacket::SetTimeStamp(unsigned long timeStamp) {
    GVX_RTP_CHECK_HEAD();
    m_pFixedHead->uiTimeStamp = htonl(static_cast<std::uint32_t>(timeStamp));
}

unsigned long CRtpPacket::GetTimeStamp() const {
    GVX_RTP_CHECK_HEAD(0);
    return ntohl(m_pFixedHead->uiTimeStamp);
}

void CRtpPacket::SetSSRC(unsigned int ssrc) {
    GVX_RTP_CHECK_HEAD();
    m_pFixedHead->uiSSRC = htonl(ssrc);
}

unsigned int CRtpPacket::GetSSRC() const {
    GVX_RTP_CHECK_HEAD(0);
    return ntohl(m_pFixedHead->uiSSRC);
}

void CRtpPacket::SetPayloadType(unsigned char payloadType) {
    GVX_RTP_CHECK_HEAD();
    m_pFixedHead->ucTypeBits =
        static_cast<std::uint8_t>((m_pFixedHead->ucTypeBits & kMarkerBit) | (payloadType & kPayloadTypeMask));
}

unsigned char CRtpPacket::GetPayloadType() const {
    GVX_RTP_CHECK_HEAD(0);
    return m_pFixedHead->ucTypeBits & kPayloadTypeMask;
}

void CRtpPacket::SetMarker(bool marker) {
    GVX_RTP_CHECK_HEAD();
    m_pFixedHead->ucTypeBits =
        static_cast<std::uint8_t>((m_pFixedHead->ucTypeBits & kPayloadTypeMask) | (marker ? kMarkerBit : 0));
}

bool CRtpPacket::GetMarker() const {
    GVX_RTP_CHECK_HEAD(false);
    return (m_pFixedHead->ucTypeBits & kMarkerBit) != 0;
}

void CRtpPacket::SetVersion(unsigned char version) {
    GVX_RTP_CHECK_HEAD();
    m_pFixedHead->ucVersionBits =
        static_cast<std::uint8_t>((m_pFixedHead->ucVersionBits & 0x3F) | ((version & 0x03) << kVersionShift));
}

unsigned char CRtpPacket::GetVersion() const {
    GVX_RTP_CHECK_HEAD(0);
    return static_cast<unsigned char>(m_pFixedHead->ucVersionBits >> kVersionShift);
}

int CRtpPacket::CheckVersion() const {
    const int version = GetVersion();
    if (version != kRtpVersion) {
        GVX_LOG_ERR(kTitle, "Version is not 2. version[%d]", version);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

#undef GVX_RTP_CHECK_HEAD
