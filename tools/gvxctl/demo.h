#pragma once

#include "gvxctl/commands.h"

#include <cstdint>
#include <string>

namespace gvxctl {

struct DemoOptions {
    Endpoint mu{"127.0.0.1", 0};  // where the media unit waits; port 0: any
    DeviceSpec device;
    std::string outDir = ".";
    std::string codec = "h264";      // ending of the recorded files' names
    std::string summary;             // JSON file; empty: none
    std::uint64_t expectFrames = 0;  // of each transport; the clip's own count
    int timeoutSeconds = 60;         // for each transport
    bool metadata = false;           // ask for it as well; pictures go to metadata_udp and metadata_tcp of outDir
    bool keep = false;               // one stream over UDP until interrupted, instead of the two that end
};
// Links as every peer, adds the device, plays its clip over UDP and over TCP, compares what came with what was sent and
// takes the device away again. The exit code as of the commands: 0 when everything that was sent has come.
int RunDemo(const CommonOptions& common, const DemoOptions& options);

}  // namespace gvxctl
