#pragma once

#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "plugin_support/alarm_table.h"
#include "plugin_support/picture_desk.h"
#include "rtsp/camera.h"

#include <atomic>
#include <memory>
#include <string>

namespace gvxrtsp {

constexpr const char* kConnectionCode = "connection_lost";  // of the only alarm that cameras raise

// A network camera with one lens. It can be added while the camera is away; whether the camera can be reached, and why
// not, is known at any time. Operations run on the thread of the device's reactor, one at a time.
class RtspDevice : public CAdapterDevDefaults {
public:
    // Whom alarms are reported to; may change at any time.
    using AlarmCallback = std::atomic<ADAPTER_ALARM_CALLBACK*>;

    // All must outlive it.
    RtspDevice(MediaLoop& loop, const CameraProfile& profile, CameraProfiles& profiles,
               const gvxplugin::AlarmTable& alarms, const AlarmCallback& callback, gvxplugin::PictureDesk& desk);
    ~RtspDevice() override;

    int Init() override;
    int GetDeviceAbility(GVX_DEVICE_ABILITY_INFO& ability) override;
    int GetSubDeviceAbility(LENS_ABILITY_INFO& ability) override;
    int ResetLogin() override;
    // Ends the sessions; the camera is logged in to no more, also when the device is kept for a call that hangs.
    int ClearAdapterInfo() override;
    int SendHeartbeat() override;
    int CreateLens(const char* lensId, const short& channel, CAdapterDevBase*& parent,
                   CAdapterLensBase*& lens) override;
    const std::string GetLensIDThroughChannoId(unsigned int channel) override;
    int VcuGetUploadImgRsp(PU_UPLOAD_IMAGE_RSP& address) override;

    gvxplugin::PictureDesk& Desk() const { return m_desk; }
    // A picture of the camera's web server. 0, or an error code with one sentence in error. Any thread; blocks until
    // endMs at most, in monotonic milliseconds.
    int FetchPicture(std::int64_t endMs, std::string& bytes, std::string& error) const;

    // Shared with the lenses, and with work that is on its way to the loop.
    const std::shared_ptr<Camera>& GetCamera() const { return m_camera; }
    // What is known of a stream; of the main one, waited for until the camera was asked once or limit has passed.
    CameraStreamStatus Status(StreamKind kind) const;
    CameraStreamStatus MainStatus(std::chrono::milliseconds limit) const;

private:
    GVX_CHANNEL_ABILITY_INFO DescribeChannel() const;
    void OnState(CameraState state, const std::string& reason);
    void ReportConnection(bool lost, const std::string& reason);

    const gvxplugin::AlarmTable& m_alarms;
    const AlarmCallback& m_callback;
    const CameraProfiles& m_profiles;
    gvxplugin::PictureDesk& m_desk;
    std::shared_ptr<Camera> m_camera;
    CameraStream* m_streams[kStreamKinds] = {};  // of m_camera, for their status
    std::string m_lensId;
    // Of the loop's thread.
    std::string m_code;
    enPuDevFormType m_form = PU_IPC;
    bool m_isLost = false;  // an alarm says so
};

}  // namespace gvxrtsp
