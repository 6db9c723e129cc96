#include "gateway/requests/gateway_work.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "base/zvs_error.h"
#include "bp/cmd.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/messages/request_body.h"
#include "gateway/requests/config_work.h"
#include "gateway/requests/device_work.h"
#include "gateway/requests/gateway_context.h"
#include "gateway/requests/operation_work.h"
#include "gateway/requests/plugin_reactors.h"
#include "gateway/requests/search_work.h"
#include "gateway/requests/snapshot_work.h"
#include "gateway/requests/stream_work.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/alarm/gvx_error_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "nss/nss_msg_type.h"

namespace gvx {

namespace {

// A request whose work is more than one operation of a plug-in; the others stand in request_table.inc.
struct WorkRow {
    std::uint32_t reqID;
    int (*work)(GatewayContext&, BP::CGvxSessionBase&, const BP::CCmd&);
};

// The SCU answers with the port of its media unit, and the unit's link is opened.
int ConnectMediaUnit(GatewayContext& /*context*/, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    const std::optional<std::uint32_t> code = ResponseCode(cmd);
    if (!code) {
        return ZVS_PARA_INVALID;
    }
    if (*code != ZVS_SUCCEED) {
        GVX_LOG_WARN_CODE("Media unit's port", *code, "The SCU does not tell it.");
        return ZVS_FAIL;
    }
    long long port = 0;
    const std::unique_ptr<CBB::CXml> xml = ReadXmlContent(cmd);
    const std::string linkID = xml != nullptr ? XmlText(*xml, "LinkID") : std::string();
    if (linkID.empty() || !ReadNumber(XmlText(*xml, "MUPort"), 1, 65535, port)) {
        GVX_LOG_ERR_CODE("Media unit's port", ZVS_PARA_INVALID, "The answer names no LinkID or no MUPort.");
        return ZVS_PARA_INVALID;
    }
    if (!CGvxConnectionMgr::Instance()->TakeLinkPortAnswer(cmd.GetNetLinkID(), linkID)) {
        GVX_LOG_WARN_CODE("Media unit's port", ZVS_PARA_INVALID, "Link[%s] was not asked about [%s], or has answered.",
                          cmd.GetNetLinkID().c_str(), linkID.c_str());
        return ZVS_PARA_INVALID;
    }
    CGvxConnectionMgr::Instance()->NotifyConnectMU(linkID, static_cast<unsigned int>(port));
    return ZVS_SUCCEED;
}

// Says how many alarms of the gateway wait for their delivery. Fed in when the main-service link opens.
int TellHeldAlarms(GatewayContext& /*context*/, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    GVX_LOG(OM_LOG_DEBUG, "Alarm control", "cmd[0x%04x], %zu alarms wait for their delivery.", cmd.GetReqID(),
            CEmergencyProtection::Instance()->CountHeldAlarms());
    if (cmd.GetMsgBlock() != nullptr) {
        AnswerBare(cmd, ZVS_SUCCEED);
    }
    return ZVS_SUCCEED;
}

constexpr WorkRow kWorkRows[] = {
    {NSS_ADD_MAIN_DEV_REQ, &AddMainDevice},
    {NSS_DEL_MAIN_DEV_REQ, &DeleteMainDevice},
    {GVX_INTERNAL_REQ_DELETE, &TearDownDevice},
    {GVX_INTERNAL_REQ_PLUGIN_CALL, &MakePluginCall},
    {NSS_START_STREAM_REQ, &StartStream},
    {NSS_STOP_STREAM_REQ, &StopStream},
    {NSS_GET_IFRAME_REQ, &GetKeyFrame},
    {NSS_STREAM_CTRL_REQ, &ControlStream},
    {NSS_SNAPSHOT_REQ, &TakeSnapshot},
    {NSS_GET_UPLOAD_IMAGE_URL_RSP, &TakeUploadAddress},
    {NSS_IMAGE_UPLOAD_COMPLETE_RSP, &TakeUploadEnd},
    {NSS_START_SEARCH_DEVICE_REQ, &StartSearch},
    {NSS_STOP_SEARCH_DEVICE_REQ, &StopSearch},
    {NSS_CONFIG_QUERY_REQ, &QueryConfig},
    {NSS_CONFIG_EDIT_REQ, &EditConfig},
    {NSS_SET_GVX_PLUGIN_CONFIG_REQ, &TakeChangedConfig},
    {NSS_MODIFY_GB35114_CONF_REQ, &Take35114Config},
    {NSS_GET_GB35114_CONF_RSP, &Take35114Config},
    {NSS_NOTIFY_LINK_PORT_TO_GVX_RSP, &ConnectMediaUnit},
    {GVX_INTERNAL_REQ_ALARM_CONTROL, &TellHeldAlarms},
    {NSS_ALARM_CONTRON_REQ, &TellHeldAlarms},
};

int RunWork(GatewayContext& context, const OperationWork& work, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const RunningWork::Scope running(context.work, cmd.GetReqID(), session.GetRespDevID());
    if (GVXErrorMgr* const reports = GVXErrorMgr::getInstance()) {
        reports->forgetErrRsp();  // of a request before
    }
    if (context.stopping && cmd.GetReqID() != GVX_INTERNAL_REQ_DELETE &&
        cmd.GetReqID() != GVX_INTERNAL_REQ_PLUGIN_CALL) {
        AnswerBare(cmd, ZVS_FAIL);
        return ZVS_FAIL;
    }
    return work(context, session, cmd);
}

void RefuseUnserved(const BP::CCmd& cmd, int code) {
    CGvxConnectionMgr::Instance()->SendRespMsgWithStruct(const_cast<BP::CCmd*>(&cmd), nullptr, 0,  // only read
                                                         static_cast<unsigned int>(code));
}

}  // namespace

void RegisterGatewayWork(const std::shared_ptr<GatewayContext>& context) {
    const auto add = [&context](std::uint32_t reqID, OperationWork work) {
        BP::RegisterSessionWork(reqID,
                                [context, work = std::move(work)](BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
                                    return RunWork(*context, work, session, cmd);
                                });
    };
    ForEachOperation(add);
    for (const WorkRow& row : kWorkRows) {
        add(row.reqID, row.work);
    }
    BP::SetRefusalAnswer(&RefuseUnserved);
}

void UnregisterGatewayWork() {
    BP::ClearSessionWork();
    BP::SetRefusalAnswer({});
}

}  // namespace gvx
