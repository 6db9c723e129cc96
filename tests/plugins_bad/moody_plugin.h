#pragma once

// What tests may ask of the loaded plug-in "moody", found by dlsym.
extern "C" {
// Lets every operation that hangs return, now and from now on; false brings the hanging back.
using MoodyReleaseFunc = void (*)(bool release);
// Objects of the plug-in that are alive: devices, lenses and stream threads.
using MoodyAliveFunc = int (*)();
// Packets so far that were answered with ZVS_GVX_OPEN_SOCKET_ERROR.
using MoodyRefusedFunc = int (*)();
// Reports an exception of that type for the device, as a device SDK would.
using MoodyReportFunc = void (*)(const char* device, unsigned short type);
}
#define MOODY_RELEASE_SYMBOL "MoodyRelease"
#define MOODY_ALIVE_SYMBOL "MoodyAlive"
#define MOODY_REFUSED_SYMBOL "MoodyRefused"
#define MOODY_REPORT_SYMBOL "MoodyReport"
