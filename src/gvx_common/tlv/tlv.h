#pragma once

#include <map>
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

// Items by type, and their flat image. A message is items one after another, without a head or an end. One
// thread.
class TLV_Codec {
public:
    TLV_Codec() = default;
    virtual ~TLV_Codec();
    TLV_Codec(const TLV_Codec&) = delete;
    TLV_Codec& operator=(const TLV_Codec&) = delete;

    // Frees the image and all items.
    virtual void Clear();

protected:
    // Takes an item in. 0; 1 with a log line when there is no memory, the item then being freed.
    long InsertValueToMap(std::unique_ptr<TLV> item);

    std::multimap<int, std::unique_ptr<TLV>> m_TLVMap;  // items of one type keep their order of insertion
    std::unique_ptr<unsigned char[]> m_pucTlvBuf;       // the flat image, null until there is one
    unsigned long m_ulDataLen = 0;                      // bytes of all items with their heads
};
