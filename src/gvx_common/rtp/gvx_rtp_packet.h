#pragma once

#include <cstdint>

// Heads of an RTP packet as they stand on the wire (RFC 3550, sections 5.1 and 5.3.1): big-endian, no padding.
#pragma pack(push, 1)
struct RTP_FIXED_HEADER {
    std::uint8_t ucVersionBits;  // version 2 bits, padding 1, extension 1, CSRC count 4
    std::uint8_t ucTypeBits;     // marker 1, payload type 7
    std::uint16_t usSeqNum;
    std::uint32_t uiTimeStamp;
    std::uint32_t uiSSRC;
};

struct RTP_EXTEND_HEADER {
    std::uint16_t usProfile;
    std::uint16_t usLength;  // 32-bit words behind this head
};

struct RTP_EXTENSION_DATA_EX_S {
    std::uint16_t usMultiLayerCodeType;
    std::uint16_t usWaterMarkType;
    std::uint32_t uiWaterMarkValue;
    std::uint32_t uiEncryptExLen;
    std::uint16_t usLostFrame;
    std::uint16_t usGmtMillsecond;
    std::uint32_t uiGmtSecond;
};
#pragma pack(pop)
using RTP_EXTENSION_DATA_EX = RTP_EXTENSION_DATA_EX_S;

constexpr unsigned int GVX_RTP_FIXED_HEAD_LEN = 12;
constexpr unsigned int GVX_RTP_EXTENDED_HEAD_LEN = 36;
static_assert(sizeof(RTP_FIXED_HEADER) == GVX_RTP_FIXED_HEAD_LEN, "RFC 3550, section 5.1");
static_assert(sizeof(RTP_EXTEND_HEADER) == 4, "RFC 3550, section 5.3.1");
static_assert(sizeof(RTP_EXTENSION_DATA_EX_S) == 20, "five words behind the extension head");

// A view over a caller's buffer that reads and writes an RTP head in place. It owns no memory; the buffer must
// outlive it. Values are given and returned in host byte order unless stated. Without a buffer the setters log and do
// nothing, and the getters log and give 0. One thread at a time.
class CRtpPacket {
public:
    CRtpPacket() = default;
    virtual ~CRtpPacket() = default;

    // Sets the view up for a new head over buf: clears len bytes, version 2, payload type 96, no marker, X bit 0,
    // head length 12. With ext the extension is at buf + 12 and its data at buf + 16, so the buffer must hold 36
    // bytes, of which only len are cleared. 0; 2 for a null buf, which changes nothing. len is at least 12.
    int GeneratePacket(char* buf, unsigned int len, bool ext);

    // Sets the view up for reading a received packet. The head length counts the CSRC list and the extension. The
    // bytes are not changed; no setter may be called afterwards. 0, or 1 with a log line; a failure changes nothing.
    int ParsePacket(const char* buf, unsigned int len);

    void setHeadLen(unsigned int headLen) { m_ulHeadLen = headLen; }
    unsigned int GetHeadLen() const { return m_ulHeadLen; }

    void setExtension(bool extension);                                     // the X bit
    void setExternHead(unsigned short profile, unsigned short length);     // profile as given, length swapped
    void setExtDataTime(unsigned short millisecond, unsigned int second);  // both swapped

    void SetSeqNum(unsigned short seqNum);
    unsigned short GetSeqNum() const;
    void SetTimeStamp(unsigned long timeStamp);  // the low 32 bits
    unsigned long GetTimeStamp() const;
    void SetSSRC(unsigned int ssrc);
    unsigned int GetSSRC() const;
    void SetPayloadType(unsigned char payloadType);  // the low 7 bits
    unsigned char GetPayloadType() const;
    void SetMarker(bool marker);
    bool GetMarker() const;
    void SetVersion(unsigned char version);  // the low 2 bits
    unsigned char GetVersion() const;
    int CheckVersion() const;  // 0 for version 2, else 1 with a log line

    // Extension data behind the head; null when there is none. Fields are big-endian.
    const RTP_EXTENSION_DATA_EX_S* GetExtData() const { return m_ExternData; }

private:
    char* m_pRtpData = nullptr;
    RTP_FIXED_HEADER* m_pFixedHead = nullptr;
    RTP_EXTEND_HEADER* m_pExtHead = nullptr;
    RTP_EXTENSION_DATA_EX_S* m_ExternData = nullptr;
    unsigned int m_ulPacketLen = 0;
    unsigned int m_ulHeadLen = GVX_RTP_FIXED_HEAD_LEN;
};
