#include "gvx_common/link/gvx_connection_mgr.h"

#include "base/bounded_string.h"
#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/link/send_owned.h"
#include "nss/nss_msg.h"

#include <utility>

namespace {

// The head of the command that is answered; false, with a log line, when there is none to read.
bool DecodeRequest(const BP::CCmd* pCmd, unsigned int uiRspCode, CNssMsgBase& request) {
    if (pCmd == nullptr) {
        GVX_LOG_ERR("Send response", "Cmd pointer is null.");
        return false;
    }
    if (request.decode(pCmd->GetMsgBlock()) != 0) {
        GVX_LOG_ERR("Send response", "Nss msg base decode fail, rspCode[%u]", uiRspCode);
        return false;
    }
    return true;
}

unsigned short ResponseType(unsigned int requestType) {
    return static_cast<unsigned short>(requestType + kNssResponseOffset);
}

// A transaction text from outside may fill its field without a terminator.
std::string TransactionText(const NssMsgHeader& header) {
    return std::string(header.szTransactionNo, strnlen(header.szTransactionNo, sizeof(header.szTransactionNo)));
}

// Sends on behalf of the command that is answered.
int SendResponse(CGvxConnectionMgr& mgr, BP::MessageBlockPtr block, const BP::CCmd& cmd, unsigned int responseType,
                 unsigned int serviceId) {
    return gvx::SendOwned(mgr, std::move(block), static_cast<unsigned int>(cmd.GetNetElemType()), cmd.GetNetLinkID(),
                          cmd.GetTransID(), responseType, serviceId);
}

}  // namespace

void CGvxConnectionMgr::SendRespMsgWithXml(BP::CCmd* pCmd, CBB::CXml* pXmlResp, unsigned int uiRspCode,
                                           bool bWithTransaction) {
    CNssMsgBase request;
    if (!DecodeRequest(pCmd, uiRspCode, request)) {
        return;
    }
    const NssMsgHeader& header = request.GetHeader();
    const unsigned short type = ResponseType(header.usiMsgType);
    CNssXMLMsg response(type, header.uiSeqID, TransactionText(header).c_str(), uiRspCode, header.uiTraceID);
    bool copied = true;
    if (pXmlResp != nullptr) {
        unsigned int length = 0;
        const char* stream = pXmlResp->GetXMLStream(length);
        copied = response.SetXML(stream, length) == 0;
    }
    BP::MessageBlockPtr block = BP::MakeMessageBlock(0);
    if (!copied || block == nullptr || response.encode(block.get()) != 0) {
        GVX_LOG_ERR("Send response with xml", "Encode message fail, MsgType:0x%x.", static_cast<unsigned int>(type));
        return;
    }
    GVX_DEBUG("RspCode: %u, MsgType:0x%x.", uiRspCode, static_cast<unsigned int>(type));
    SendResponse(*this, std::move(block), *pCmd, type, bWithTransaction ? pCmd->GetServiceID() : 0);
}

void CGvxConnectionMgr::SendRespMsgWithStruct(BP::CCmd* pCmd, const char* pMsgBody, unsigned int iMsgBodyLen,
                                              unsigned int uiRspCode) {
    CNssMsgBase request;
    if (!DecodeRequest(pCmd, uiRspCode, request)) {
        return;
    }
    if (pMsgBody == nullptr) {
        iMsgBodyLen = 0;  // a length that no bytes follow would put the link out of step
    }
    NssMsgHeader header = request.GetHeader();
    const unsigned short type = ResponseType(header.usiMsgType);
    header.usiProtocolVersion = kNssProtocolVersion;
    header.usiMsgType = type;
    header.uiRspCode = uiRspCode;
    header.uiPacketLength = static_cast<std::uint32_t>(kNssHeaderBytes + iMsgBodyLen);
    NssSwapHeader(header);

    BP::MessageBlockPtr block = BP::MakeMessageBlock(kNssHeaderBytes + iMsgBodyLen);
    if (block == nullptr || block->copy(reinterpret_cast<const char*>(&header), kNssHeaderBytes) != 0) {
        GVX_LOG_ERR_CODE("Send response with struct", ZVS_ALLOC_MEMORY_ERROR, "MsgType:0x%x.",
                         static_cast<unsigned int>(type));
        return;
    }
    if (iMsgBodyLen != 0) {
        block->copy(pMsgBody, iMsgBodyLen);
    }
    GVX_DEBUG("ServerID:%u, NetElemType:%d, NetLinkID:%s, TransID:%s, ReqID:0x%04x, RspCode:%u.", pCmd->GetServiceID(),
              pCmd->GetNetElemType(), pCmd->GetNetLinkID().c_str(), pCmd->GetTransID().c_str(),
              static_cast<unsigned int>(type), uiRspCode);
    SendResponse(*this, std::move(block), *pCmd, type, pCmd->GetServiceID());
}

void CGvxConnectionMgr::SendRespMsgWithJson(BP::CCmd* pCmd, const Json::Value& value, unsigned int uiRspCode) {
    CNssMsgBase request;
    if (!DecodeRequest(pCmd, uiRspCode, request)) {
        return;
    }
    const NssMsgHeader& header = request.GetHeader();
    const unsigned short type = ResponseType(header.usiMsgType);
    CNssMsgBody response(header.usiMsgType, 0, pCmd->GetTransID().c_str(), header.uiRspCode, 0, NSS_TAG_JSON_CONTENT);
    response.GetHeader().usiProtocolVersion = header.usiProtocolVersion;
    response.GetHeader().usiMsgType = type;
    response.GetHeader().uiRspCode = uiRspCode;

    const std::string text = gvx::WriteJson(value);
    const bool copied = response.SetValue(text.c_str(), static_cast<unsigned int>(text.size())) == 0;
    GVX_DEBUG("Send request json: %s, length is[%u].", text.c_str(), static_cast<unsigned int>(text.size()));
    BP::MessageBlockPtr block = BP::MakeMessageBlock(0);
    if (!copied || block == nullptr || response.encode(block.get()) != 0) {
        GVX_LOG_ERR("Send response with json", "Encode Message Fail. Transfer Target Id[%s], MsgType[0x%4x].",
                    pCmd->GetNetLinkID().c_str(), static_cast<unsigned int>(type));
        return;
    }
    if (SendResponse(*this, std::move(block), *pCmd, type, pCmd->GetServiceID()) != 0) {
        GVX_LOG_ERR("Send response with json", "Seng Json Message Fail. Transfer Target Id[%s], MsgType[0x%4x].",
                    pCmd->GetNetLinkID().c_str(), static_cast<unsigned int>(type));
    }
}
