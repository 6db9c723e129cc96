#pragma once

#include "base/periodic_thread.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "plugin_support/alarm_table.h"
#include "rtsp/camera_probe.h"
#include "rtsp/camera_profile.h"
#include "rtsp/media_loop.h"
#include "rtsp/rtsp_device.h"

#include <list>
#include <memory>
#include <string>
#include <vector>

namespace gvxrtsp {

// The plug-in as a whole: its settings, and the loops on which its cameras are served. Init comes first; then any
// thread may make devices.
class RtspSdk : public CAdapterSdkBase {
public:
    // Searches tell how far they are.
    RtspSdk() { m_enUpdatePrecentMode = Update_Precent_Mode_Passive; }
    ~RtspSdk() override;

    bool Init(const char* configFile) override;
    int CreateDevice(const MainDeviceInfo& info, CAdapterDevBase*& device) override;
    void SetAlarmMessageCallback(ADAPTER_ALARM_CALLBACK* callback) override { m_callback = callback; }
    void SetCommonMessageCallback(ADAPTER_COMMON_MESSAGE_CALLBACK* callback) override { m_desk.SetCallback(callback); }

    // Cameras of the named ranges answer OPTIONS on the ranges' ports; those of the local segment a multicast probe
    // too.
    void SendLocalProbeMessage(std::list<std::string>& addresses) override;
    void SendRemoteProbeMessage(std::list<std::string>& addresses) override;

    // Why the last Init of the process failed.
    static const char* LastError();

private:
    bool Load(const std::string& configFile, std::string& error);
    MediaLoop& LoopForOneMore();
    void Report(const ProbedCamera& camera);
    void Probe(const std::list<std::string>& addresses);
    void SaveFoundPaths();

    CameraProfiles m_profiles;
    gvxplugin::AlarmTable m_alarms;
    RtspDevice::AlarmCallback m_callback{nullptr};
    gvxplugin::PictureDesk m_desk{"rtsp plug-in", "GvxRtspUpload"};
    std::vector<std::unique_ptr<MediaLoop>> m_loops;
    gvx::PeriodicThread m_saver;  // of found paths
};

}  // namespace gvxrtsp
