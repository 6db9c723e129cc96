#pragma once

#include <memory>
#include <type_traits>

// Bytes of an item ahead of its value: type (signed) and length of the value, 4 bytes each, in host byte order, which
// is little-endian here.
constexpr unsigned int GVX_TLV_HEAD_LEN = 8;

// One item with its own copy of the value. The value is raw bytes in host byte order. One thread.
class TLV {
public:
    // An item of a bool or an integer: sizeof value bytes.
    template <typename V, typename = std::enable_if_t<std::is_integral_v<V>>>
    TLV(int type, V value) : m_nType(type) {
        Init(reinterpret_cast<const unsigned char*>(&value), sizeof(value));
    }
    // A text with its terminator; it must not be null.
    TLV(int type, const char* value);
    TLV(int type, const unsigned char* data, unsigned long len);
    TLV(const TLV&) = delete;
    TLV& operator=(const TLV&) = delete;

    int m_nType;
    unsigned int m_uLength = 0;                   // bytes of the value
    std::unique_ptr<unsigned char[]> m_pucValue;  // null when there was no memory for the value

private:
    void Init(const unsigned char* data, unsigned long len);
};
