#pragma once

#include "gvx_common/event/gvx_reactor.h"
#include "plugin_check/operations.h"
#include "plugin_check/stream_drive.h"

#include <string>
#include <vector>

class CAdapterDevBase;
class CAdapterLensBase;
class CAdapterSdkBase;

namespace plugin_check {

class Journal;
struct DriveOptions;

// A device with its lenses, on a thread of its own as in a gateway.
class DeviceDrive {
public:
    // All must outlive it. number tells devices of one drive apart.
    DeviceDrive(const DriveOptions& options, Journal& journal, CAdapterSdkBase& sdk, int number)
        : m_options(options),
          m_journal(journal),
          m_sdk(sdk),
          m_code("CHECK00" + std::to_string(number)),
          m_lane("device " + std::to_string(number)) {}

    // From its making to its deletion: with every operation, or with one stream alone.
    void RunWhole();
    void RunStreams();

private:
    bool Make();
    void MakeLens(short channel);
    void MakeOddLenses();
    void Snapshot(CAdapterLensBase& lens);
    template <typename Object>
    void CallPlain(const std::vector<PlainOperation<Object>>& operations, Object& object);
    void Delete();
    bool Cannot(const char* operation, const char* what);

    const DriveOptions& m_options;
    Journal& m_journal;
    CAdapterSdkBase& m_sdk;
    const std::string m_code;
    const std::string m_lane;
    StreamDrive m_streams{m_options, m_journal, m_lane};
    CGvxReactor m_reactor;                    // for timers and handlers of the plug-in
    CAdapterDevBase* m_device = nullptr;      // owned from CreateDevice to Delete
    std::vector<CAdapterLensBase*> m_lenses;  // owned likewise
};

}  // namespace plugin_check
