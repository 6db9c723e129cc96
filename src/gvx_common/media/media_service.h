#pragma once

namespace gvx {

// Starts what the streams of the process share: the block pool (MEDIA_BLOCK_NUM blocks, default 8192), the socket
// records and the transmission threads. 0, or 1 with a log line; what was started then is stopped again. Once, at
// process start.
int StartMediaService();

// The reverse. All streams must be closed.
void StopMediaService();

}  // namespace gvx
