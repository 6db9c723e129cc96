#include "gvx_common/link/gvx_connection_send.h"

#include "base/cbb_xml.h"
#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "bp/dispatcher.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/utility/gvx_utility.h"
#include "nss/nss_msg.h"

#include <new>
#include <stdexcept>
#include <utility>

namespace {

// Requests, responses, and the last mile in and out.
constexpr unsigned int kNoServicePointer = 2;

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

// The frame of a response, of whose body fault tells whether it could be set; null with the reason in fault.
BP::MessageBlockPtr EncodeResponse(const CNssMsgBody& response, int& fault) {
    BP::MessageBlockPtr block = fault == 0 ? BP::MakeMessageBlock(0) : nullptr;
    if (fault == 0) {
        fault = block != nullptr ? response.encode(block.get()) : ZVS_ALLOC_MEMORY_ERROR;
    }
    return fault == 0 ? std::move(block) : nullptr;
}

// Whoever serves the request refuses it then.
[[noreturn]] void ThrowUnsent(int fault) {
    if (fault == ZVS_ALLOC_MEMORY_ERROR) {
        throw std::bad_alloc();
    }
    throw std::length_error("The answer makes no frame.");
}

// Sends on behalf of the command that is answered.
int SendResponse(CGvxConnectionMgr& mgr, BP::MessageBlockPtr block, const BP::CCmd& cmd, unsigned int responseType,
                 unsigned int serviceId) {
    return gvx::SendOwned(mgr, std::move(block), static_cast<unsigned int>(cmd.GetNetElemType()), cmd.GetNetLinkID(),
                          cmd.GetTransID(), responseType, serviceId);
}

}  // namespace

int CGvxConnectionMgr::SendMsgOut(unsigned int /*iNetElemType*/, const char* /*link*/, const char* pszTransID,
                                  unsigned int uiReqID, ACE_Message_Block*& pMsgBlock, unsigned int uiServiceID,
                                  bool bCompress) {
    const std::string link = MainServiceLinkId();
    int result = 0;
    if (uiServiceID == 0) {
        result = BP::CDispatcher::dispatcherOutWithoutTransaction(kElementGVX, link.c_str(), pszTransID, uiReqID,
                                                                  pMsgBlock, bCompress, 0);
    } else {
        result = BP::CDispatcher::dispatcherOutWithTransaction(uiServiceID, kElementGVX, link.c_str(), pszTransID,
                                                               uiReqID, pMsgBlock, bCompress, 0);
        // The answer enters as a command of its own, so nothing here waits for the transaction.
        BP::CTransactionMgr::RemoveTransaction(pszTransID);
    }
    if (uiReqID == NSS_ALARM_REPORT_REQ) {
        return result;
    }
    GVX_DEBUG("%s, ServerID:%u, NetElemType:%u, NetLinkID:%s, TransID:%s, ReqID:0x%04x",
              result == 0 ? "Send msg out success" : "Send msg out fail", uiServiceID,
              static_cast<unsigned int>(kElementGVX), link.c_str(), pszTransID, uiReqID);
    if (result != 0) {
        GVX_LOG_ERR_CODE("Send msg out", ZVS_NET_SEND_ERROR, "ReqID is [0x%04x].", uiReqID);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxConnectionMgr::SendMsgIn(int iNetElemType, const char* pszNetLinkID, unsigned short usiMsgType,
                                 const char* pszTransID, ACE_Message_Block*& pMsgBlock) {
    GVX_DEBUG("NetElemType[%d], NetLinkID[%s], MsgType[0x%04x], TransID[%s]", iNetElemType, pszNetLinkID,
              static_cast<unsigned int>(usiMsgType), pszTransID);
    if (BP::CDispatcher::dispatcherInWithoutTransaction(iNetElemType, pszNetLinkID, usiMsgType, pszTransID, pMsgBlock,
                                                        0) != 0) {
        GVX_LOG_ERR_CODE("Send msg in", ZVS_NET_SEND_ERROR,
                         "NetElemType[%d], NetLinkID[%s], MsgType[0x%04x], TransID[%s]", iNetElemType, pszNetLinkID,
                         static_cast<unsigned int>(usiMsgType), pszTransID);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

unsigned int CGvxConnectionMgr::SendReqMsgWithXml(BP::enSubsysType eSubsysType, unsigned int uiNetEleType,
                                                  enNssMsgType uiMsgType, CBB::CXml& XmlReq, std::string strSCULinkID,
                                                  std::string strTransID) {
    if (m_pGvxService == nullptr) {
        GVX_LOG_ERR("Send request with xml", "Gvx service pointer is null.");
        return kNoServicePointer;
    }
    unsigned int length = 0;
    const char* stream = XmlReq.GetXMLStream(length);
    const unsigned int seq = CGvxUtility::CreatSeqID();
    const std::string trans = strTransID.empty() ? BP::CMKTransID::GenerateTransID() : strTransID;

    CNssXMLMsg message(static_cast<unsigned short>(uiMsgType), seq, trans.c_str(), 0, 0);
    const bool copied = message.SetXML(stream, length) == 0;
    BP::MessageBlockPtr pMsgBlock = BP::MakeMessageBlock(0);
    GVX_CHECK_NULL_RETURN(pMsgBlock, ZVS_ALLOC_MEMORY_ERROR);
    if (!copied || message.encode(pMsgBlock.get()) != 0) {
        GVX_LOG_ERR("Send request with xml", "Encode message fail, MsgType:0x%x.",
                    static_cast<unsigned int>(uiMsgType));
        return ZVS_FAIL;
    }
    if (gvx::SendOwned(*this, std::move(pMsgBlock), uiNetEleType, strSCULinkID, trans, uiMsgType,
                       m_pGvxService->GetServiceID()) != 0) {
        GVX_LOG_ERR("Send request with xml", "Send msg out failed, sub system type is [%d], element type is [%u]",
                    static_cast<int>(eSubsysType), uiNetEleType);
        return ZVS_FAIL;
    }
    if (uiMsgType == NSS_DEV_STATUS_REPORT_REQ) {
        GVX_LOG_OPERATION("NSS_DEV_STATUS_REPORT_REQ", GvxConfigMgr()->GetGvxNetElementID().c_str(),
                          strSCULinkID.c_str(), trans.c_str(), "gvx send device status report to scu", "successful");
    }
    return seq;
}

unsigned int CGvxConnectionMgr::SendReqMsgWithStruct(BP::enSubsysType eSubsysType, unsigned int uiNetEleType,
                                                     enNssMsgType uiMsgType, const char* pMsgBody,
                                                     unsigned int iMsgBodyLen, std::string strSCULinkID) {
    return static_cast<unsigned int>(
        SendStruct(eSubsysType, uiNetEleType, uiMsgType, pMsgBody, iMsgBodyLen, strSCULinkID).number);
}

SendOutcome CGvxConnectionMgr::SendStruct(BP::enSubsysType subsystem, unsigned int elementType, enNssMsgType msgType,
                                          const char* pMsgBody, unsigned int iMsgBodyLen, const std::string& link) {
    if (m_pGvxService == nullptr) {
        GVX_LOG_ERR("Send request with struct", "Gvx service pointer is null.");
        return {false, static_cast<int>(kNoServicePointer)};
    }
    BP::MessageBlockPtr pMsg = BP::MakeMessageBlock(kNssHeaderBytes + iMsgBodyLen);
    GVX_CHECK_NULL_RETURN(pMsg, (SendOutcome{false, ZVS_ALLOC_MEMORY_ERROR, true}));
    const unsigned int seq = CGvxUtility::CreatSeqID();
    const std::string frameTrans = BP::CMKTransID::GenerateTransID();
    NssMsgHeader aMsgHeader{};
    gvx::FillRequestHead(aMsgHeader, msgType, seq, iMsgBodyLen);
    if (!gvx::PutText(aMsgHeader.szTransactionNo, frameTrans)) {
        GVX_LOG_ERR("Send request with struct", "strncpy_s aMsgHeader.szTransactionNo failed!");
        return {false, ZVS_FAIL};
    }
    if (memcpy_s(pMsg->wr_ptr(), pMsg->space(), &aMsgHeader, kNssHeaderBytes) != 0 ||
        (iMsgBodyLen != 0 &&
         memcpy_s(pMsg->wr_ptr() + kNssHeaderBytes, pMsg->space() - kNssHeaderBytes, pMsgBody, iMsgBodyLen) != 0)) {
        GVX_LOG_ERR("Send request with struct", "memcpy_s to pMsg failed.");
        return {false, ZVS_FAIL};
    }
    pMsg->wr_ptr(kNssHeaderBytes + iMsgBodyLen);

    // The dispatcher's transaction is another one than the frame's own: the answer is matched by sequence number.
    const std::string trans = BP::CMKTransID::GenerateTransID();
    const int result =
        gvx::SendOwned(*this, std::move(pMsg), elementType, link, trans, msgType, m_pGvxService->GetServiceID());
    if (result != 0) {
        GVX_LOG_ERR("Send request with struct", "Send msg out failed, sub system type is [%d], element type is [%u]",
                    static_cast<int>(subsystem), elementType);
        return {false, ZVS_FAIL, result == ZVS_ALLOC_MEMORY_ERROR};
    }
    return {true, static_cast<int>(seq)};
}

int CGvxConnectionMgr::SendRetMsgWithJson(unsigned short msgType, const std::string& jsonMsg, int netElemType,
                                          std::string linkID, const std::string& transactionID) {
    GVX_CHECK_NULL_RETURN(m_pGvxService, ZVS_FAIL);
    const unsigned int seq = CGvxUtility::CreatSeqID();
    const std::string trans = transactionID.empty() ? BP::CMKTransID::GenerateTransID() : transactionID;
    CNssMsgBody message(msgType, seq, trans.c_str(), 0, 0, NSS_TAG_JSON_CONTENT);
    const bool copied = message.SetValue(jsonMsg.c_str(), static_cast<unsigned int>(jsonMsg.size())) == 0;
    BP::MessageBlockPtr block = BP::MakeMessageBlock(0);
    GVX_CHECK_NULL_RETURN(block, ZVS_ALLOC_MEMORY_ERROR);
    if (!copied || message.encode(block.get()) != 0) {
        GVX_LOG_ERR("Send message with json", "Encode message fail, MsgType:0x%x.", static_cast<unsigned int>(msgType));
        return ZVS_FAIL;
    }
    if (gvx::SendOwned(*this, std::move(block), static_cast<unsigned int>(netElemType), linkID, trans, msgType,
                       m_pGvxService->GetServiceID()) != 0) {
        GVX_LOG_ERR("Send message with json", "Send msg out failed, linkID is [%s], msgType is [0x%04x]",
                    linkID.c_str(), static_cast<unsigned int>(msgType));
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

BP::CCmd* CGvxConnectionMgr::SyncSendReqMsg(unsigned int uiServiceID, int iNetElemType, const char* pszNetLinkID,
                                            const std::string& transID, unsigned int msgType, const char* pMsgBody,
                                            unsigned int iMsgBodyLen, unsigned int uiTimeout) {
    if (pMsgBody == nullptr) {
        iMsgBodyLen = 0;  // a length that no bytes follow would put the link out of step
    }
    NssMsgHeader stNssMsgHeader{};
    gvx::FillRequestHead(stNssMsgHeader, msgType, CGvxUtility::CreatSeqID(), iMsgBodyLen);
    if (!gvx::PutText(stNssMsgHeader.szTransactionNo, transID)) {
        GVX_LOG_ERR("Sync send request", "strncpy_s stNssMsgHeader.szTransactionNo failed!");
        return nullptr;
    }
    BP::MessageBlockPtr block = BP::MakeMessageBlock(kNssHeaderBytes + iMsgBodyLen);
    GVX_CHECK_NULL_RETURN(block, nullptr);
    if (block->copy(reinterpret_cast<const char*>(&stNssMsgHeader), kNssHeaderBytes) != 0) {
        GVX_LOG_ERR_CODE("Sync send request", ZVS_NET_SEND_ERROR, "ace copy nss header error");
        return nullptr;
    }
    if (iMsgBodyLen != 0 && block->copy(pMsgBody, iMsgBodyLen) != 0) {
        GVX_LOG_ERR_CODE("Sync send request", ZVS_NET_SEND_ERROR, "ace copy nss body error");
        return nullptr;
    }
    return BP::CDispatcher::dispatcherSyncMsgOut(uiServiceID, iNetElemType, pszNetLinkID, transID, msgType,
                                                 block.release(), false, uiTimeout);
}

void CGvxConnectionMgr::SendRespMsgWithXml(BP::CCmd* pCmd, CBB::CXml* pXmlResp, unsigned int uiRspCode,
                                           bool bWithTransaction) {
    CNssMsgBase request;
    if (!DecodeRequest(pCmd, uiRspCode, request)) {
        return;
    }
    const NssMsgHeader& header = request.GetHeader();
    const unsigned short type = ResponseType(header.usiMsgType);
    CNssXMLMsg response(type, header.uiSeqID, gvx::TextOf(header.szTransactionNo).c_str(), uiRspCode, header.uiTraceID);
    int fault = 0;
    if (pXmlResp != nullptr) {
        unsigned int length = 0;
        const char* stream = pXmlResp->GetXMLStream(length);
        fault = response.SetXML(stream, length);
    }
    BP::MessageBlockPtr block = EncodeResponse(response, fault);
    if (block == nullptr) {
        GVX_LOG_ERR_CODE("Send response with xml", fault, "Encode message fail, MsgType:0x%x.",
                         static_cast<unsigned int>(type));
        ThrowUnsent(fault);
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
        throw std::bad_alloc();
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
    int fault = response.SetValue(text.c_str(), static_cast<unsigned int>(text.size()));
    GVX_DEBUG("Send request json: %s, length is[%u].", text.c_str(), static_cast<unsigned int>(text.size()));
    BP::MessageBlockPtr block = EncodeResponse(response, fault);
    if (block == nullptr) {
        GVX_LOG_ERR_CODE("Send response with json", fault,
                         "Encode Message Fail. Transfer Target Id[%s], MsgType[0x%4x].", pCmd->GetNetLinkID().c_str(),
                         static_cast<unsigned int>(type));
        ThrowUnsent(fault);
    }
    if (SendResponse(*this, std::move(block), *pCmd, type, pCmd->GetServiceID()) != 0) {
        GVX_LOG_ERR("Send response with json", "Seng Json Message Fail. Transfer Target Id[%s], MsgType[0x%4x].",
                    pCmd->GetNetLinkID().c_str(), static_cast<unsigned int>(type));
    }
}
