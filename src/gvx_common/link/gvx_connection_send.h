#pragma once

#include "bp/message_block_ptr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "nss/nss_msg_header.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include <arpa/inet.h>

// What the sending operations of CGvxConnectionMgr share, here and where alarms are sent. Any thread.
namespace gvx {

// The head of a request in wire order, the transaction text left out. The header must be clear.
inline void FillRequestHead(NssMsgHeader& header, unsigned int msgType, unsigned int seq, std::size_t bodyLength) {
    header.usiProtocolVersion = htons(kNssProtocolVersion);
    header.usiMsgType = htons(static_cast<std::uint16_t>(msgType));
    header.uiSeqID = htonl(seq);
    header.uiPacketLength = htonl(static_cast<std::uint32_t>(kNssHeaderBytes + bodyLength));
}

// CGvxConnectionMgr::SendMsgOut for a block that its sender does not want back: the dispatcher takes what it accepts,
// and what is left when a send has failed is released here. The result is that of SendMsgOut.
inline int SendOwned(CGvxConnectionMgr& mgr, BP::MessageBlockPtr block, unsigned int netElemType,
                     const std::string& link, const std::string& trans, unsigned int msgType, unsigned int serviceId) {
    ACE_Message_Block* handed = block.release();
    const int result = mgr.SendMsgOut(netElemType, link.c_str(), trans.c_str(), msgType, handed, serviceId, false);
    block.reset(result == 0 ? nullptr : handed);
    return result;
}

}  // namespace gvx
