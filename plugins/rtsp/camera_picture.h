#pragma once

#include "rtsp/camera_profile.h"

#include <cstdint>
#include <string>

namespace gvxrtsp {

// Fetches a JPEG from a camera's web server with the camera's user and password (Digest or Basic, as the camera asks).
// Redirections are not followed. Blocks until endMs at most, in monotonic milliseconds. 0; ZVS_GVX_UNAUTHORIZED when
// the credentials are refused; ZVS_GVX_OPEN_SOCKET_ERROR without a connection; ZVS_GVX_GET_SNAP_SHOT_ERROR for an
// answer that is no whole JPEG; each with one sentence in error. Any thread, also one with a small stack.
int FetchCameraPicture(const CameraProfile& profile, const std::string& path, std::int64_t endMs, std::string& bytes,
                       std::string& error);

}  // namespace gvxrtsp
