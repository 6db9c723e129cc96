#pragma once

#include <memory>

namespace BP {
class CCmd;
class CGvxSessionBase;
}

namespace gvx {

struct GatewayContext;

// Registers the work of every request that the gateway serves, which shares the context; and the refusal of every other
// one, which leaves by the main-service link as all responses do.
void RegisterGatewayWork(const std::shared_ptr<GatewayContext>& context);
// Takes it all away again. Work that runs at this moment is finished.
void UnregisterGatewayWork();

// The work itself. Each runs on the thread of the reactor that serves the command, answers a request itself, and
// returns the code that it answered with.
int AddMainDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
int DeleteMainDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// For GVX_INTERNAL_REQ_DELETE, which goes ahead of all waiting commands of its device and purges them. It comes from
// ourselves alone, when the process stops, and is not answered.
int TearDownDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
int StartStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
int StopStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
int GetKeyFrame(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
int ConnectMediaUnit(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// Settings: the unified document, one edit, and the platform's message about a changed setting.
int QueryConfig(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
int EditConfig(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
int TakeChangedConfig(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// Says how many alarms of the gateway wait for their delivery. Fed in when the main-service link opens.
int TellHeldAlarms(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);

}  // namespace gvx
