#include "gvx_common/tlv/tlv_codec.h"

#include "base/log.h"

#include <exception>
#include <utility>

TLV_Codec::~TLV_Codec() = default;

void TLV_Codec::Clear() {
    m_pucTlvBuf.reset();
    m_ulDataLen = 0;
    m_TLVMap.clear();
}

long TLV_Codec::InsertValueToMap(std::unique_ptr<TLV> item) {
    const unsigned long length = item->m_uLength;
    const int type = item->m_nType;
    try {
        m_TLVMap.emplace(type, std::move(item));
    } catch (const std::exception&) {
        GVX_LOG_ERR("TLV_Codec::InsertValueToMap", "Make sure there is something wrong");
        return 1;
    }
    m_ulDataLen += length + GVX_TLV_HEAD_LEN;
    return 0;
}
