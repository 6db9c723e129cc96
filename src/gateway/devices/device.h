#pragma once

#include "gateway/devices/device_request.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/streams/live_stream.h"
#include "gvx_common/adapter/gvx_device_state.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/recording_records.h"
#include "gvx_common/utility/gvx_device_trace.h"

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

class CAdapterDevBase;
class CAdapterLensBase;
class CGvxReactor;

namespace gvx {

class LoadedPlugin;

// One device of a plug-in with its lenses and streams. Every operation but Code, Address, Reactor and IsHere runs on
// the thread of the device's reactor, which is the one that makes it.
class Device {
public:
    struct Lens {
        std::string code;
        short channel = 0;
        CAdapterLensBase* adapter = nullptr;  // made by the plug-in, owned by the device
        GVX_CHANNEL_ABILITY_INFO ability;
        bool initialised = false;
        LeaveRoom room{};  // for the adapter
    };
    // Where the device hangs in the gateway.
    struct Place {
        std::string scuLinkID;
        CGvxReactor* reactor = nullptr;  // not owned
    };

    // Makes the device and its lenses; a failed step undoes those before it, and device stays null.
    static Result Create(const DeviceRequest& request, const Place& place, std::unique_ptr<Device>& device);
    // Stops what runs, in reverse order of its making: streams, lenses, the device itself. A plug-in's errors are
    // logged and end nothing.
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    const std::string& Code() const { return m_code; }
    const std::string& Address() const { return m_address; }  // as the addition gave it; may be empty
    const std::string& PluginName() const;
    const std::string& ScuLinkID() const { return m_scuLinkID; }  // of the addition; may be empty
    std::int64_t AddedMs() const { return m_addedMs; }            // monotonic
    // The reactor that serves the device; not owned. Any thread.
    CGvxReactor* Reactor() const { return m_reactor; }
    // True on the thread that made the device.
    bool IsHere() const { return m_thread == std::this_thread::get_id(); }

    // What the plug-in has made; the device's.
    CAdapterDevBase& Adapter() const { return *m_adapter; }
    const std::vector<Lens>& Lenses() const { return m_lenses; }
    // The lens of that code, the first one for an empty code; null when there is none.
    const Lens* FindLens(const std::string& code) const;

    // Queues a request for a snapshot at a lens, the first one for an empty code.
    Result RequestSnapshot(const std::string& lensCode, PU_SNAP_CONF_REQ request);
    // The platform's answers about a picture of a lens: where to send it, and whether it has arrived.
    void TakeUploadAddress(PU_UPLOAD_IMAGE_RSP address);
    void TakeUploadEnd(const std::string& lensCode, PU_UPLOAD_IMAGE_COMP_REQ end);
    // Passes on what the plug-in has reported (ADAPTER_REPORT_TYPE); false for a report that is none of these.
    bool TakeReport(const ADAPTER_COMMON_MESSAGE& report);

    // Sends an alarm that the plug-in has reported for the device (device_alarm.h).
    int SendAlarm(const std::string& report);

    // Starts a stream of a lens; the stream stays the device's.
    Result StartStream(const StreamRequest& request, LiveStream*& stream);
    // Null when the device has no such stream.
    LiveStream* FindStream(const std::string& serviceID) const;
    // Stops a stream: the plug-in's answer, and what was sent. Not for a stream that does not exist.
    int StopStream(const std::string& serviceID, StreamStatistics& statistics);
    std::vector<std::string> StreamIDs() const;

private:
    Device(LoadedPlugin& plugin, const MainDeviceInfo& info, CGvxReactor* reactor);

    Result CreateAdapter(const DeviceRequest& request, const Place& place);
    Result ReadAbility(std::vector<LensRequest>& lenses);
    Result CreateLens(const LensRequest& request);
    void DeleteLens(Lens& lens);
    void DeleteAdapter();

    LoadedPlugin& m_plugin;
    const std::string m_code;
    const DeviceStatusKeeper m_status{m_code};  // what is known of the device, for FindDeviceStatus
    DeviceTraceKeeper m_trace{m_code};          // what was said with it, for FindDialogue
    const std::string m_address;
    std::string m_scuLinkID;
    CGvxReactor* const m_reactor;
    const std::int64_t m_addedMs;
    const std::thread::id m_thread = std::this_thread::get_id();
    CAdapterDevBase* m_adapter = nullptr;  // made by the plug-in, owned
    LeaveRoom m_room;                      // for it
    GVX_DEVICE_ABILITY_INFO m_ability;
    std::vector<Lens> m_lenses;
    std::vector<std::unique_ptr<LiveStream>> m_streams;
    bool m_leftBehind = false;  // the plug-in may still use its objects
};

}  // namespace gvx
