#include "gateway/requests/gateway_work.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/messages/request_body.h"
#include "gateway/requests/gateway_context.h"
#include "gateway/settings/number_setting.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "nss/nss_msg.h"

namespace gvx {

int ConnectMediaUnit(GatewayContext& /*context*/, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    CNssMsgBase head;
    if (cmd.GetMsgBlock() == nullptr || head.decode(cmd.GetMsgBlock()) != 0) {
        return ZVS_PARA_INVALID;
    }
    if (head.GetHeader().uiRspCode != ZVS_SUCCEED) {
        GVX_LOG_WARN_CODE("Media unit's port", head.GetHeader().uiRspCode, "The SCU does not tell it.");
        return ZVS_FAIL;
    }
    CBB::CXml xml;
    long long port = 0;
    const bool hasBody = ReadXmlContent(cmd, xml);
    const std::string linkID = hasBody ? XmlText(xml, "LinkID") : std::string();
    if (linkID.empty() || !ReadNumber(XmlText(xml, "MUPort"), 1, 65535, port)) {
        GVX_LOG_ERR_CODE("Media unit's port", ZVS_PARA_INVALID, "The answer names no LinkID or no MUPort.");
        return ZVS_PARA_INVALID;
    }
    CGvxConnectionMgr::Instance()->NotifyConnectMU(linkID, static_cast<unsigned int>(port));
    return ZVS_SUCCEED;
}

int TellHeldAlarms(GatewayContext& /*context*/, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    GVX_LOG_INFO("Alarm control", "cmd[0x%04x], %zu alarms wait for their delivery.", cmd.GetReqID(),
                 CEmergencyProtection::Instance()->GetHeldAlarms().size());
    if (cmd.GetMsgBlock() != nullptr) {
        AnswerBare(cmd, ZVS_SUCCEED);
    }
    return ZVS_SUCCEED;
}

}  // namespace gvx
