#include "gateway/requests/gateway_work.h"

#include "base/zvs_error.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/requests/gateway_context.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "nss/nss_msg_type.h"

namespace gvx {

namespace {

using Work = int (*)(GatewayContext&, BP::CGvxSessionBase&, const BP::CCmd&);

struct WorkRow {
    std::uint32_t reqID;
    Work work;
};

// What the main-service link's opening feeds in about ourselves; it has no name of its own.

constexpr WorkRow kWorkRows[] = {
    {NSS_ADD_MAIN_DEV_REQ, &AddMainDevice},
    {NSS_DEL_MAIN_DEV_REQ, &DeleteMainDevice},
    {GVX_INTERNAL_REQ_DELETE, &TearDownDevice},
    {NSS_START_STREAM_REQ, &StartStream},
    {NSS_STOP_STREAM_REQ, &StopStream},
    {NSS_GET_IFRAME_REQ, &GetKeyFrame},
    {NSS_CONFIG_QUERY_REQ, &QueryConfig},
    {NSS_CONFIG_EDIT_REQ, &EditConfig},
    {NSS_SET_GVX_PLUGIN_CONFIG_REQ, &TakeChangedConfig},
    {NSS_NOTIFY_LINK_PORT_TO_GVX_RSP, &ConnectMediaUnit},
    {GVX_INTERNAL_REQ_ALARM_CONTROL, &TellHeldAlarms},
    {NSS_ALARM_CONTRON_REQ, &TellHeldAlarms},
};

int RunWork(GatewayContext& context, Work work, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const RunningWork::Scope running(context.work, cmd.GetReqID(), session.GetRespDevID());
    if (context.stopping && cmd.GetReqID() != GVX_INTERNAL_REQ_DELETE) {
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
    for (const WorkRow& row : kWorkRows) {
        const Work work = row.work;
        BP::RegisterSessionWork(row.reqID, [context, work](BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
            return RunWork(*context, work, session, cmd);
        });
    }
    BP::SetRefusalAnswer(&RefuseUnserved);
}

void UnregisterGatewayWork() {
    BP::ClearSessionWork();
    BP::SetRefusalAnswer({});
}

}  // namespace gvx
