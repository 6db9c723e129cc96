#pragma once

class CAdapterSdkBase;

namespace plugin_check {

class Journal;
struct DriveOptions;

// A search of the device's address, which goes on beside the devices as in a gateway. False when none began.
bool StartSearch(CAdapterSdkBase& sdk, const DriveOptions& options, Journal& journal);
// Waits for its end, which must come by itself.
void EndSearch(CAdapterSdkBase& sdk, Journal& journal);

}  // namespace plugin_check
