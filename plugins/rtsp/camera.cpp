#include "rtsp/camera.h"

#include "base/clock.h"

#include <utility>

namespace gvxrtsp {

Camera::Camera(MediaLoop& loop, CameraProfile profile, CameraProfiles& profiles, OnState onState)
    : m_loop(loop),
      m_profile(std::move(profile)),
      m_profiles(profiles),
      m_onState(std::move(onState)),
      m_policy(profiles.LoginsPerMinute()),
      m_webPolicy(profiles.LoginsPerMinute()) {}

void Camera::Open() {
    ICameraStateSink& sink = *this;
    for (const StreamKind kind : {MAIN_STREAM, SUB_STREAM}) {
        m_streams[kind] =
            std::make_unique<CameraStream>(m_loop, m_profile, m_profiles, m_policy, kind, kind == MAIN_STREAM, sink);
    }
    m_loop.AddLoad(1);
}

void Camera::Close() {
    if (m_streams[MAIN_STREAM] == nullptr) {
        return;
    }
    m_onState = {};
    for (std::unique_ptr<CameraStream>& stream : m_streams) {
        stream.reset();
    }
    m_loop.AddLoad(-1);
}

void Camera::Restart() {
    m_policy.Reset();
    m_webPolicy.Reset();
    for (const std::unique_ptr<CameraStream>& stream : m_streams) {
        if (stream != nullptr) {
            stream->Restart();
        }
    }
}

bool Camera::MayAskWebServer() const {
    return !m_webPolicy.IsLockedOut(gvx::CurrentClock().MonotonicMicroseconds());
}

void Camera::OnWebServerRefusal() {
    m_webPolicy.OnRefusal(gvx::CurrentClock().MonotonicMicroseconds());
}

void Camera::OnWebServerSuccess() {
    m_webPolicy.OnSuccess();
}

void Camera::OnCameraState(StreamKind kind, CameraState state, const std::string& reason) {
    if (kind == MAIN_STREAM && m_onState) {
        m_onState(state, reason);
    }
}

}  // namespace gvxrtsp
