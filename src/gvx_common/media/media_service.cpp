#include "gvx_common/media/media_service.h"

#include "base/log.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/media/gvx_stream_transmission.h"
#include "gvx_common/media_memory/media_block_buffer.h"

namespace gvx {

int StartMediaService() {
    const auto blocks = static_cast<unsigned int>(SettingNumber(Setting::MEDIA_BLOCK_NUM));
    if (CMediaBlockBuffer::instance()->init(GVX_MEDIA_BLOCK_SIZE, blocks, sizeof(SOCKET_INFO*)) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    if (CSocketInfoMgr::Instance()->Init() != ZVS_SUCCEED || CStreamTransMgr::Instance()->Init() != ZVS_SUCCEED) {
        StopMediaService();
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

void StopMediaService() {
    CStreamTransMgr::Instance()->UnInit();
    CSocketInfoMgr::Instance()->UnInit();
    CMediaBlockBuffer::instance()->close();
}

}  // namespace gvx
