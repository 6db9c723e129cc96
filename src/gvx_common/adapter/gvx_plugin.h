#pragma once

#include "gvx_common/adapter/gvx_plugin_layout.h"

#include <cstdint>

class CAdapterSdkBase;

// How a plug-in shows itself. A plug-in is a shared object that exports the functions below by their plain names; the
// gateway finds them with dlsym. The object stays loaded until the process ends. What the plug-in was built against is
// exported by this header itself, as GvxGetPluginLayout (gvx_plugin_layout.h).

// Marks an exported function of a plug-in.
#define GVX_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

struct GvxPluginDescription {
    std::uint32_t uiAbiVersion;  // GVX_PLUGIN_ABI_VERSION; any other number is refused
    const char* pName;           // what devices name the plug-in by: 1 to 32 of a-z, 0-9, '_' and '-'
    const char* pVersion;
    const char* pMaker;
};

// Bytes that a device has pushed to the gateway's intake port, as one read from its connection gave them: a message may
// be cut anywhere, and several may stand together. Valid for the call alone.
struct GvxIntakeBlock {
    const char* pPeerAddr;     // IPv4 address as text
    std::uint16_t usPeerPort;  // host order; with the address it names the connection
    const char* pRecvTime;     // UTC, "YYYYMMDDhhmmss"
    const char* pData;         // not terminated
    std::uint32_t uiLength;    // 1 to 1024
};

extern "C" {
// What the plug-in is; static, never null. Called once the layout is known to be that of the gateway.
using GvxDescribePluginFunc = const GvxPluginDescription* (*)();
// Makes the plug-in object; null when there is no memory. Called once.
using GvxCreateAdapterFunc = CAdapterSdkBase* (*)();
// Deletes it. Called once, after every device of the plug-in is deleted and on the thread that made it.
using GvxDestroyAdapterFunc = void (*)(CAdapterSdkBase*);
// Why the last CAdapterSdkBase::Init failed: one sentence that names what is at fault, such as a file. Never null;
// valid until the next call of Init. A plug-in need not export it.
using GvxPluginLastErrorFunc = const char* (*)();
// Asks for what devices push: every block is given to every plug-in that exports this, one block at a time and those of
// a connection in order, on a thread of the gateway that serves nothing else. Called between Init and the deletion of
// the plug-in object. 0; anything else counts as a failure and is logged. A plug-in need not export it.
using GvxTakeIntakeBlockFunc = int (*)(CAdapterSdkBase*, const GvxIntakeBlock*);
}

// The names under which the functions are exported.
#define GVX_PLUGIN_DESCRIBE_SYMBOL "GvxDescribePlugin"
#define GVX_PLUGIN_CREATE_SYMBOL "GvxCreateAdapter"
#define GVX_PLUGIN_DESTROY_SYMBOL "GvxDestroyAdapter"
#define GVX_PLUGIN_LAST_ERROR_SYMBOL "GvxPluginLastError"
#define GVX_PLUGIN_TAKE_INTAKE_BLOCK_SYMBOL "GvxTakeIntakeBlock"

// A plug-in that includes this header is held to these signatures by the compiler.
GVX_PLUGIN_EXPORT const GvxPluginDescription* GvxDescribePlugin();
GVX_PLUGIN_EXPORT CAdapterSdkBase* GvxCreateAdapter();
GVX_PLUGIN_EXPORT void GvxDestroyAdapter(CAdapterSdkBase* adapter);
GVX_PLUGIN_EXPORT const char* GvxPluginLastError();
GVX_PLUGIN_EXPORT int GvxTakeIntakeBlock(CAdapterSdkBase* adapter, const GvxIntakeBlock* block);
