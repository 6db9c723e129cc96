#pragma once

#include "gateway/requests/work_parts.h"

namespace gvx {

// The work of requests about streams, on the thread of the device's reactor (gateway_work.h). Refusals carry DevCode,
// ServiceID and Reason: ZVS_PARA_INVALID for a body that is not allowed, ZVS_GVX_DEV_NOT_EXIST,
// ZVS_GVX_STREAM_NOT_EXIST, else the code of the step that failed.

// NSS_START_STREAM_REQ: starts a stream of a lens. The answer tells what was negotiated, and media follows it.
// ZVS_GVX_STREAM_EXIST where the identifier is taken, or by the plug-in where the lens sends that type by that transport to one alone.
int StartStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// NSS_STOP_STREAM_REQ: stops it; the answer tells what was sent, also where the plug-in did not stop cleanly.
int StopStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// NSS_STREAM_CTRL_REQ: what a stream that plays a recording is to do. ZVS_GVX_DEV_UN_SUPPORT for any other stream.
int ControlStream(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// NSS_GET_IFRAME_REQ: asks the plug-in for a key frame.
int GetKeyFrame(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);

}  // namespace gvx
