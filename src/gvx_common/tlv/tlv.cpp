#include "gvx_common/tlv/tlv.h"

#include "base/bounded_string.h"
#include "base/log.h"

#include <cstring>
#include <exception>
#include <new>
#include <utility>

TLV::TLV(int type, const char* value) : m_nType(type) {
    Init(reinterpret_cast<const unsigned char*>(value), std::strlen(value) + 1);
}

TLV::TLV(int type, const unsigned char* data, unsigned long len) : m_nType(type) {
    Init(data, len);
}

void TLV::Init(const unsigned char* data, unsigned long len) {
    m_uLength = static_cast<unsigned int>(len);
    m_pucValue.reset(new (std::nothrow) unsigned char[m_uLength]);
    GVX_CHECK_NULL_RETURN_VOID(m_pucValue);
    if (m_uLength != 0 && memcpy_s(m_pucValue.get(), m_uLength, data, m_uLength) != 0) {
        GVX_LOG_ERR("TLV::Init", "memcpy_s failed!");
    }
}

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
