#pragma once

#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "rtsp/frame_sender.h"

#include <array>
#include <memory>
#include <string>

namespace gvxrtsp {

class Camera;
class RtspDevice;

// The lens of a camera: its main and its sub stream. Operations run on the thread of the device's reactor, one at a
// time; frames are sent on the loop's thread.
class RtspLens : public CAdapterLensDefaults {
public:
    RtspLens(const char* lensId, short channel, RtspDevice& device);
    ~RtspLens() override;

    int Uninit() override;
    int NegotiateStreamParam(CStreamParam* param) override;
    int StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) override;
    int StopStream(CStreamParam* param, bool force) override;
    int RequestKeyframe(CStreamParam* param) override;

private:
    void PartAll();

    const RtspDevice& m_device;
    const std::shared_ptr<Camera> m_camera;
    std::array<std::unique_ptr<FrameSender>, kStreamKinds> m_senders;  // used on the loop's thread
};

}  // namespace gvxrtsp
