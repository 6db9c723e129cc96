#include "gateway/streams/stream_ports.h"

#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/ports/gvx_port_mgr.h"
#include "gvx_common/records/media_types.h"
#include "gvx_common/records/stream_param.h"

namespace gvx {

namespace {

bool TakeOne(unsigned int& port) {
    return CGvxPortMgr::Instance()->MakePort(GVX_MEDIA_SEND_UDP, port, UDP_PROCOTOL) == 1;
}

}  // namespace

bool StreamPorts::AreManaged() {
    return CGvxConfigMgr::Instance()->GetConfValue("GVX_MEDIA_PORT_EXCHANGE", "0") == "1";
}

bool StreamPorts::Take(bool audio, bool metadata) {
    return TakeOne(m_video) && (!audio || TakeOne(m_audio)) && (!metadata || TakeOne(m_metadata));
}

// A plug-in may have written into the parameters meanwhile.
void StreamPorts::GiveBack(CStreamParam& param) {
    if (m_video == 0) {
        return;
    }
    param.m_nSrcTransProtocol = RTP_OVER_UDP;
    param.m_nSrcRtpVideoPort = m_video;
    param.m_nSrcRtpAudioPort = m_audio;
    m_video = m_audio = 0;
    if (m_metadata != 0) {
        CGvxPortMgr::Instance()->FreePort(GVX_MEDIA_SEND_UDP, m_metadata);
    }
}

}  // namespace gvx
