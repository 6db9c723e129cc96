#include "gvx_common/event/gvx_reactor.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "bp/service.h"
#include "bp/session.h"
#include "gvx_common/event/gvx_internal_request.h"
#include "gvx_common/event/gvx_reactor_session_table.h"
#include "gvx_common/utility/gvx_utility.h"
#include "nss/nss_msg_header.h"

#include <ace/Message_Block.h>

#include <exception>
#include <new>
#include <utility>

#include <arpa/inet.h>

namespace {

template <typename Session>
std::unique_ptr<BP::CGvxSessionBase> NewSession() {
    return std::unique_ptr<BP::CGvxSessionBase>(new (std::nothrow) Session());
}

std::unique_ptr<BP::CGvxSessionBase> NewManageSession(CGvxReactor* reactor) {
    std::unique_ptr<BP::CDeviceManageSession> session(new (std::nothrow) BP::CDeviceManageSession());
    if (session != nullptr) {
        session->SetReactor(reactor);
    }
    return session;
}

std::unique_ptr<BP::CGvxSessionBase> NewSessionOfKind(BP::SessionKind kind, CGvxReactor* reactor) {
    switch (kind) {
        case BP::SessionKind::DeviceManage:
            return NewManageSession(reactor);
        case BP::SessionKind::DeviceConfig:
            return NewSession<BP::CDeviceConfigSession>();
        case BP::SessionKind::DeviceStream:
            return NewSession<BP::CDeviceStreamSession>();
        case BP::SessionKind::DeviceAlarm:
            return NewSession<BP::CDeviceAlarmSession>();
        case BP::SessionKind::GvxOmu:
            return NewSession<BP::CGvxOmuSession>();
        case BP::SessionKind::DevicePtz:
            return NewSession<BP::CDevicePtzSession>();
        case BP::SessionKind::DeviceRecord:
            return NewSession<BP::CDeviceRecordSession>();
    }
    return nullptr;
}

// The sequence number of a response, which names the request that it answers; 0 for a frame without a whole head.
unsigned int SequenceOf(const ACE_Message_Block& frame) {
    NssMsgHeader header{};
    const char* const head = frame.length() >= sizeof(header) ? frame.rd_ptr() : nullptr;
    if (memcpy_s(&header, sizeof(header), head, sizeof(header)) != 0) {
        GVX_LOG_ERR("handle cmd", "memcpy_s failed!");
    }
    return ntohl(header.uiSeqID);
}

}  // namespace

// Nothing that serving lets out may end the process: it costs the one command.
int CGvxReactor::handle_exception(ACE_HANDLE) {
    BP::CGvxNssCmd_ entry;
    std::unique_ptr<BP::CCmd> cmd;
    try {
        return ServeNextCmd(entry, cmd);
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("handle cmd", "Serving reqID[0x%04x] threw: %s devID[%s]", cmd != nullptr ? cmd->GetReqID() : 0,
                    fault.what(), entry.m_devID.c_str());
    } catch (...) {
        GVX_LOG_ERR("handle cmd", "Serving reqID[0x%04x] threw something unknown. devID[%s]",
                    cmd != nullptr ? cmd->GetReqID() : 0, entry.m_devID.c_str());
    }
    return 1;
}

int CGvxReactor::ServeNextCmd(BP::CGvxNssCmd_& entry, std::unique_ptr<BP::CCmd>& cmd) {
    if (const int nothing = PopMessage(entry); nothing != 0) {
        return nothing;
    }
    cmd.reset(entry.m_pCmd);
    GVX_DEBUG("DeviceReactor handle cmd, reqID[0x%04x] devID[%s]", cmd->GetReqID(), entry.m_devID.c_str());
    if (cmd->GetReqID() == GVX_INTERNAL_REQ_SDK_EXCEPTION) {
        BP::CDeviceMgr::ProcessSdkException(cmd->GetMsgBlock());
        return 0;
    }
    return ServeCmd(*cmd, entry.m_devID);
}

int CGvxReactor::ServeCmd(const BP::CCmd& cmd, const std::string& devID) {
    const std::unique_ptr<BP::CGvxSessionBase> session = CreatSession(&cmd, devID);
    if (session == nullptr) {
        GVX_LOG_ERR("handle cmd", "not create session by reqID[0x%04x]", cmd.GetReqID());
        return 1;
    }
    session->SetCmd(&cmd);
    if (cmd.GetReqID() >= kNssResponseOffset && cmd.GetMsgBlock() != nullptr) {
        session->SetRespDevID(BP::CDeviceMgr::GetReqDevID(SequenceOf(*cmd.GetMsgBlock())));
    }
    return session->HandleCmd(&cmd);
}

std::unique_ptr<BP::CGvxSessionBase> CGvxReactor::CreatSession(const BP::CCmd* pCmd, const std::string& devID) {
    GVX_CHECK_NULL_RETURN(pCmd, nullptr);
    const unsigned int seq = CGvxUtility::CreatSeqID();
    std::string sessionID = BP::CMKTransID::GenerateTransID();
    GVX_DEBUG("Create session as req id[0x%04x], dev id[%s]", pCmd->GetReqID(), devID.c_str());
    const std::optional<BP::SessionKind> kind = FindSessionKind(pCmd->GetReqID());
    if (!kind) {
        GVX_LOG_ERR("create session", "Not support this message type with seq id[0x%04x]", seq);
        return nullptr;
    }
    std::unique_ptr<BP::CGvxSessionBase> pSession = NewSessionOfKind(*kind, this);
    GVX_CHECK_NULL_RETURN(pSession, nullptr);
    pSession->SetCmd(pCmd);
    pSession->SetSessionID(std::move(sessionID));
    pSession->SetRespDevID(devID);
    return pSession;
}
