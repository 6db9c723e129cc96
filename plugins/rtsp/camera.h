#pragma once

#include "rtsp/camera_stream.h"

#include <functional>
#include <memory>
#include <string>

namespace gvxrtsp {

// One camera on its loop: its streams, and the policy that they share for logging in. Open, Close and Stream belong to
// the loop's thread.
class Camera : private ICameraStateSink {
public:
    // Told on the loop's thread when the camera's state changes; it is that of its main stream.
    using OnState = std::function<void(CameraState, const std::string& reason)>;

    // loop and profiles must outlive it.
    Camera(MediaLoop& loop, CameraProfile profile, CameraProfiles& profiles, OnState onState);
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    void Open();
    // Ends the sessions; nothing is told any more.
    void Close();
    // Logs in anew, as after a change of the camera.
    void Restart();
    // The password for the camera's web server goes by rules of its own, since its users may be others: three refusals
    // without a picture between them, then ten minutes of rest.
    bool MayAskWebServer() const;
    void OnWebServerRefusal();
    void OnWebServerSuccess();
    // Null before Open and behind Close.
    CameraStream* Stream(StreamKind kind) { return m_streams[kind].get(); }

    MediaLoop& Loop() { return m_loop; }
    const CameraProfile& Profile() const { return m_profile; }

private:
    void OnCameraState(StreamKind kind, CameraState state, const std::string& reason) override;

    MediaLoop& m_loop;
    const CameraProfile m_profile;
    CameraProfiles& m_profiles;
    OnState m_onState;
    LoginPolicy m_policy;
    LoginPolicy m_webPolicy;
    std::unique_ptr<CameraStream> m_streams[kStreamKinds];
};

}  // namespace gvxrtsp
