#pragma once

#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "rtsp/frame_sender.h"

#include <array>
#include <chrono>
#include <memory>
#include <string>

namespace gvxrtsp {

class Camera;
class RtspDevice;

// The lens of a camera: its main and its sub stream, and pictures of its web server. Operations run on the thread of
// the device's reactor, one at a time, but for VcuSnapShotReqInfo, which has a thread of its own; frames are sent on
// the loop's thread.
class RtspLens : public CAdapterLensDefaults {
public:
    RtspLens(const char* lensId, short channel, RtspDevice& device);
    ~RtspLens() override;

    int Uninit() override;
    int NegotiateStreamParam(CStreamParam* param) override;
    int StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) override;
    int StopStream(CStreamParam* param, bool force) override;
    int RequestKeyframe(CStreamParam* param) override;
    // AAC is left out of the description, which has no words for it; the answer names it.
    int EncodeRspSDP(const CStreamParam* param, std::string& sdp) override;
    int VcuSnapShotReqInfo(const PU_SNAP_CONF_REQ& request) override;
    int VcuUploadImgCompReq(PU_UPLOAD_IMAGE_COMP_REQ& end) override;

private:
    void PartAll();
    int TakePicture(const PU_SNAP_CONF_REQ& request, std::string& error);
    // Of the snapshot worker. False when the worker is to end.
    bool PauseBetweenPictures(std::chrono::milliseconds time) const;

    const RtspDevice& m_device;
    const std::shared_ptr<Camera> m_camera;
    std::array<std::unique_ptr<FrameSender>, kStreamKinds> m_senders;  // used on the loop's thread
};

}  // namespace gvxrtsp
