#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/adapter/snapshot/snapshot_worker.h"
#include "gvx_common/records/stream_param.h"
#include "gvx_common/sdp/gvx_sip_sdp.h"

#include <new>

CAdapterLensBase::CAdapterLensBase(const char* lensId, const short& channel, CAdapterDevBase& parent)
    : m_ParentDev(parent), m_nChannelId(channel), m_strParentIP(parent.GetIP()), m_snapWorker(new gvx::SnapshotWorker) {
    memset_s(m_chSubDevID, sizeof(m_chSubDevID), 0, sizeof(m_chSubDevID));
    if (lensId != nullptr && strncpy_s(m_chSubDevID, sizeof(m_chSubDevID), lensId, std::strlen(lensId)) != 0) {
        GVX_LOG_ERR("CAdapterLensBase::CAdapterLensBase", "strncpy_s failed!");
    }
    m_pMediaChannel = new (std::nothrow) CMediaChannel[GVX_MEDIA_CHANNEL_NUM];
    if (m_pMediaChannel == nullptr) {
        GVX_LOG_ERR_CODE("CAdapterLensBase::CAdapterLensBase", ZVS_ALLOC_MEMORY_ERROR, "Lens[%s] has no channels.",
                         m_chSubDevID);
        return;
    }
    ++g_bp_memstat;
    for (int i = 0; i < GVX_MEDIA_CHANNEL_NUM; ++i) {
        m_pMediaChannel[i].init();
    }
}

CAdapterLensBase::~CAdapterLensBase() {
    StopSnapQueueThread();
    if (m_pMediaChannel == nullptr) {
        return;
    }
    for (int i = 0; i < GVX_MEDIA_CHANNEL_NUM; ++i) {
        m_pMediaChannel[i].destroy();
    }
    delete[] m_pMediaChannel;
    m_pMediaChannel = nullptr;
    --g_bp_memstat;
}

CMediaChannel* CAdapterLensBase::getMidiaChannel(int iChannelID) const {
    if (m_pMediaChannel == nullptr || iChannelID < 0 || iChannelID >= GVX_MEDIA_CHANNEL_NUM) {
        return nullptr;
    }
    return &m_pMediaChannel[iChannelID];
}

int CAdapterLensBase::EncodeRspSDP(const CStreamParam* param, std::string& sdp) {
    CServiceSDP codec;
    return codec.EncodeSDP(param == nullptr ? std::string() : param->m_strSrcCode, param, sdp, true);
}

ZVS_INT32 CAdapterLensBase::HandleSendJsonMessage(const std::string&, const std::string&, std::string& answer) {
    answer.clear();
    return ZVS_GVX_DEV_UN_SUPPORT;
}

bool CAdapterLensBase::IsConfItemValid(const CONF_ITEM_MASK_STRU* mask, _DEVICE_CONFIG_INDEX index) {
    if (mask == nullptr || index < 0 || index >= BOTTOM_INDEX) {
        return false;
    }
    return mask->Mask[index] == 1;
}

bool CAdapterLensBase::IsSerialParam(const CONF_ITEM_MASK_STRU* mask) {
    static constexpr _DEVICE_CONFIG_INDEX kSerialItems[] = {
        SERIAL_PORT_BAUT_RATE_INDEX, SERIAL_PORT_DATA_BITS_INDEX, SERIAL_PORT_STOP_BITS_INDEX,
        SERIAL_PORT_PARITY_INDEX,    PTZ_CONTROL_PROTOCOL_INDEX,  COM_ADDR_INDEX,
    };
    for (const _DEVICE_CONFIG_INDEX item : kSerialItems) {
        if (IsConfItemValid(mask, item)) {
            return true;
        }
    }
    return false;
}
