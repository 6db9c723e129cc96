#include "gvx_common/tlv/tlv_encoder.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "gvx_common/tlv/metadata_tags.h"

#include <new>
#include <utility>

namespace {

template <typename T>
long Append(MemHandler& handler, const T& value, unsigned int len) {
    unsigned int pos = 0;
    return handler.AddCharBuf(reinterpret_cast<const char*>(&value), len, pos);
}

// Writes bytes into the image and moves on, taking no more than is left. What fails leaves its place cleared.
void Write(unsigned char*& to, unsigned long& left, const void* from, unsigned long len) {
    if (len == 0) {
        return;
    }
    if (memcpy_s(to, left, from, len) != 0) {
        GVX_LOG_ERR("TLV_Encoder::Encode", "memcpy_s failed!");
    }
    const unsigned long step = len < left ? len : left;
    to += step;
    left -= step;
}

}  // namespace

TLV_Encoder::~TLV_Encoder() {
    if (m_memHandler.GetHead() != nullptr) {
        m_memHandler.FreeMem();
    }
}

template <typename V>
long TLV_Encoder::Put(int type, V value) {
    std::unique_ptr<TLV> pTlvObj(new (std::nothrow) TLV(type, value));
    GVX_CHECK_NULL_RETURN(pTlvObj, 1);
    return InsertValueToMap(std::move(pTlvObj));
}

long TLV_Encoder::PutValue(int type, bool value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, char value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, short value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, int value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, long value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, long long value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, unsigned char value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, unsigned short value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, unsigned int value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, unsigned long value) {
    return Put(type, value);
}
long TLV_Encoder::PutValue(int type, unsigned long long value) {
    return Put(type, value);
}

long TLV_Encoder::PutValue(int type, const char* value) {
    GVX_CHECK_NULL_RETURN(value, 1);
    return Put(type, value);
}

long TLV_Encoder::PutValue(int type, const unsigned char* data, unsigned long len) {
    if (len != 0) {
        GVX_CHECK_NULL_RETURN(data, 1);
    }
    std::unique_ptr<TLV> pTlvObj(new (std::nothrow) TLV(type, data, len));
    GVX_CHECK_NULL_RETURN(pTlvObj, 1);
    return InsertValueToMap(std::move(pTlvObj));
}

long TLV_Encoder::PutValue(int type, const TLV_Encoder& child) {
    return PutValue(type, child.GetTlvBuf(), child.GetTlvDataLen());
}

long TLV_Encoder::Encode() {
    m_pucTlvBuf.reset(new (std::nothrow) unsigned char[m_ulDataLen]);
    GVX_CHECK_NULL_RETURN(m_pucTlvBuf, 1);
    unsigned char* to = m_pucTlvBuf.get();
    unsigned long left = m_ulDataLen;
    for (const auto& [type, item] : m_TLVMap) {
        Write(to, left, &type, sizeof(type));
        Write(to, left, &item->m_uLength, sizeof(item->m_uLength));
        Write(to, left, item->m_pucValue.get(), item->m_uLength);
    }
    return 0;
}

template <typename T>
long TLV_Encoder::EncodeValue(int type, T value, unsigned int len) {
    if (Append(m_memHandler, type, sizeof(type)) != 0) {
        GVX_LOG_ERR("TLV_Encoder::EncodeValue", "AddCharBuf failed.type:%x,val:%d,currentLen:%u",
                    static_cast<unsigned int>(type), static_cast<int>(value), GetMemBufLength());
        return 1;
    }
    // The value is no longer than its type, whatever len says.
    if (Append(m_memHandler, len, sizeof(len)) != 0 || len > sizeof(value) || Append(m_memHandler, value, len) != 0) {
        GVX_LOG_ERR("TLV_Encoder::EncodeValue", "AddCharBuf failed.type:%x,val:%d,len:%u,currentLen:%u",
                    static_cast<unsigned int>(type), static_cast<int>(value), len, GetMemBufLength());
        return 1;
    }
    return 0;
}

template long TLV_Encoder::EncodeValue<char>(int, char, unsigned int);
template long TLV_Encoder::EncodeValue<short>(int, short, unsigned int);
template long TLV_Encoder::EncodeValue<int>(int, int, unsigned int);
template long TLV_Encoder::EncodeValue<unsigned long>(int, unsigned long, unsigned int);
template long TLV_Encoder::EncodeValue<unsigned long long>(int, unsigned long long, unsigned int);
template long TLV_Encoder::EncodeValue<LAYER_ONE_TYPE>(int, LAYER_ONE_TYPE, unsigned int);

long TLV_Encoder::AppendHeadMem(const char* title, int type, unsigned int len) {
    if (Append(m_memHandler, type, sizeof(type)) != 0) {
        GVX_LOG_ERR(title, "AddCharBuf failed.type:%x,val Mem,currentLen:%u", static_cast<unsigned int>(type),
                    GetMemBufLength());
        return 1;
    }
    if (Append(m_memHandler, len, sizeof(len)) != 0) {
        GVX_LOG_ERR(title, "AddCharBuf failed.type:%x,val Mem,len:%u,currentLen:%u", static_cast<unsigned int>(type),
                    len, GetMemBufLength());
        return 1;
    }
    return 0;
}

template <typename T>
long TLV_Encoder::EncodePtrValue(int type, T ptr, unsigned int len) {
    if (AppendHeadMem("TLV_Encoder::EncodePtrValue", type, len) != 0) {
        return 1;
    }
    unsigned int pos = 0;
    if (m_memHandler.AddCharBuf(reinterpret_cast<const char*>(ptr), len, pos) != 0) {
        GVX_LOG_ERR("TLV_Encoder::EncodePtrValue", "AddPtrBuf failed.type:%x,val Mem,len:%u,currentLen:%u",
                    static_cast<unsigned int>(type), len, GetMemBufLength());
        return 1;
    }
    return 0;
}

template long TLV_Encoder::EncodePtrValue<char*>(int, char*, unsigned int);
template long TLV_Encoder::EncodePtrValue<const unsigned char*>(int, const unsigned char*, unsigned int);

long TLV_Encoder::EncodeMemBuf(int type, unsigned int pos, unsigned int len, const MemHandler& src) {
    if (AppendHeadMem("TLV_Encoder::EncodeMemBuf", type, len) != 0) {
        return 1;
    }
    unsigned int start = 0;
    if (m_memHandler.AddPtrBuf(src, pos, len, start) != 0) {
        GVX_LOG_ERR("TLV_Encoder::EncodeMemBuf", "AddPtrBuf failed.type:%x,val Mem,len:%u,currentLen:%u",
                    static_cast<unsigned int>(type), len, GetMemBufLength());
        return 1;
    }
    return 0;
}

void TLV_Encoder::Clear() {
    m_memHandler.FreeMem();
    TLV_Codec::Clear();
}
