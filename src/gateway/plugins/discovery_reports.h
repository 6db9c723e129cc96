#pragma once

struct CDiscoveryDeviceInfo;

namespace gvx {

// The callback by which searches of plug-ins report: what is new goes to the platform as
// NSS_DISCOVERED_DEVICE_NOTIFY_REQ under the transaction of the search, in messages of at most 200 devices, of which
// the last one alone tells 100 percent. Any thread; waits for nobody.
void OnDiscoveryReport(CDiscoveryDeviceInfo* info);

}  // namespace gvx
