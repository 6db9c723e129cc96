#pragma once

#include "gateway/requests/work_parts.h"

namespace gvx {

// The work about snapshots, on the thread of the device's reactor (gateway_work.h). The way of a picture: the request
// is queued at the lens; the plug-in takes the picture and reports it, and the gateway asks the platform for an
// address; the plug-in sends it there and reports that, and the gateway tells the platform.

// NSS_SNAPSHOT_REQ. ZVS_GVX_GET_SNAP_SHOT_ERROR when five requests of the lens wait.
int TakeSnapshot(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// NSS_GET_UPLOAD_IMAGE_URL_RSP and NSS_IMAGE_UPLOAD_COMPLETE_RSP: the platform's answers, which go to the plug-in.
int TakeUploadAddress(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
int TakeUploadEnd(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);

}  // namespace gvx
