#pragma once

#include "gateway/requests/work_parts.h"

namespace gvx {

// The work about searches for devices, on the reactor of the plug-in (gateway_work.h).

// NSS_START_SEARCH_DEVICE_REQ: a plug-in begins to search; what it finds goes to the platform under the request's
// transaction (gateway/plugins/discovery_reports.h). ZVS_GVX_DEV_DISCOVERY_RUNNING while it searches already.
int StartSearch(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// NSS_STOP_SEARCH_DEVICE_REQ: ends it, with a last report.
int StopSearch(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);

}  // namespace gvx
