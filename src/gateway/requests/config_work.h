#pragma once

#include "gateway/requests/work_parts.h"

namespace gvx {

// The work of requests about settings, on the thread of the reactor that serves the command (gateway_work.h). Values
// may be passwords: what was read of them is wiped.

// NSS_CONFIG_QUERY_REQ: answers with the unified document, whole or one section of it.
int QueryConfig(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// NSS_CONFIG_EDIT_REQ: sets one key that may be edited at run time, in the file and in force. The answer names the key,
// a refusal says why in Reason.
int EditConfig(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// NSS_SET_GVX_PLUGIN_CONFIG_REQ: the platform's message about a changed setting, taken as an edit. The answer is
// as that of an edit, in JSON.
int TakeChangedConfig(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// NSS_MODIFY_GB35114_CONF_REQ, which is answered, and NSS_GET_GB35114_CONF_RSP: the settings of secure video links, as
// the platform changes them, or as OMU gives them when it is asked.
int Take35114Config(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);

}  // namespace gvx
