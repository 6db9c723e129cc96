#include "gateway/streams/stream_ports.h"

#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/ports/gvx_port_mgr.h"
#include "gvx_common/records/stream_param.h"

namespace gvx {

namespace {

bool TakeOne(CStreamParam& keeper, std::uint16_t& number) {
    PoolPort port = CGvxPortMgr::Instance()->TakePort(GVX_MEDIA_SEND_UDP, UDP_PROCOTOL);
    number = static_cast<std::uint16_t>(port.Number());
    keeper.KeepPort(std::move(port));
    return number != 0;
}

}  // namespace

bool StreamPorts::AreManaged() {
    return CGvxConfigMgr::Instance()->GetConfValue("GVX_MEDIA_PORT_EXCHANGE", "0") == "1";
}

bool StreamPorts::Take(bool audio, bool metadata, CStreamParam& keeper) {
    return TakeOne(keeper, m_video) && (!audio || TakeOne(keeper, m_audio)) &&
           (!metadata || TakeOne(keeper, m_metadata));
}

}  // namespace gvx
