#pragma once

#include "nss/nss_msg_header.h"

#include <cstddef>
#include <cstdint>

#include <arpa/inet.h>

namespace gvx {

// The head of a request in wire order, the transaction text left out. The header must be clear.
inline void FillRequestHead(NssMsgHeader& header, unsigned int msgType, unsigned int seq, std::size_t bodyLength) {
    header.usiProtocolVersion = htons(kNssProtocolVersion);
    header.usiMsgType = htons(static_cast<std::uint16_t>(msgType));
    header.uiSeqID = htonl(seq);
    header.uiPacketLength = htonl(static_cast<std::uint32_t>(kNssHeaderBytes + bodyLength));
}

}  // namespace gvx
