#include "gvx_common/adapter/gvx_adapter_defaults.h"

#include "base/log.h"
#include "gvx_common/records/stream_param.h"

#include <ace/Message_Block.h>

#include <new>

CStreamParam* CAdapterLensDefaults::CreateStreamParam(const std::string& serviceID) {
    auto* param = new (std::nothrow) CStreamParam(serviceID);
    if (param == nullptr) {
        GVX_LOG_ERR_CODE("CreateStreamParam", ZVS_ALLOC_MEMORY_ERROR, "[stream:%s]", serviceID.c_str());
    }
    return param;
}

void CAdapterLensDefaults::EnqueueAudioData(ACE_Message_Block* block) {
    if (block != nullptr) {
        block->release();
    }
}
