#pragma once

#include <cstddef>
#include <cstdint>

// The head of every NSS frame, 116 bytes, packed. Every number is big-endian on the wire; NssSwapHeader of
// nss/nss_msg.h does the turning.
#pragma pack(push, 1)
struct TNssMsgHeader {
    std::uint16_t usiProtocolVersion;  // kNssProtocolVersion on every frame made here
    std::uint16_t usiMsgType;          // a value of enNssMsgType
    std::uint32_t uiSeqID;             // a response repeats its request's value
    std::uint32_t uiTraceID;           // 0 on requests; a response repeats its request's value
    char szTransactionNo[64];          // transaction text, zero-padded; may fill the field
    std::uint32_t uiRspCode;           // 0 on requests; result code on responses
    char szReserve[32];                // zero
    std::uint32_t uiPacketLength;      // whole frame length: 116 + body length
};
#pragma pack(pop)
using NssMsgHeader = TNssMsgHeader;

static_assert(sizeof(NssMsgHeader) == 116, "the frame head is a wire format");
static_assert(offsetof(NssMsgHeader, szTransactionNo) == 12 && offsetof(NssMsgHeader, uiRspCode) == 76 &&
                  offsetof(NssMsgHeader, uiPacketLength) == 112,
              "the frame head is a wire format");

constexpr std::uint16_t kNssProtocolVersion = 0x0100;
constexpr std::size_t kNssHeaderBytes = sizeof(NssMsgHeader);

// A response's type is its request's type plus this, in 16 bits.
constexpr std::uint16_t kNssResponseOffset = 0x9000;

// Tags of the items that form XML and JSON bodies. An item is a 16-bit tag, a 32-bit length, both big-endian,
// and then as many bytes as the length says.
enum enNssMsgTagType : std::uint16_t {
    NSS_TAG_XML_CONTENT = 1,
    NSS_TAG_USER_ID = 2,
    NSS_TAG_ATTACHMENT = 3,
    NSS_TAG_ALARM_DESC = 4,
    NSS_TAG_EXT_PARAM = 5,
    NSS_TAG_OPERATE_INFO = 6,
    NSS_TAG_JSON_CONTENT = 7,
    NSS_TAG_INVALID = 8,
};
constexpr std::size_t kNssTlvHeadBytes = 6;
