#pragma once

#include "gvx_common/tlv/tlv.h"

#include <map>
#include <memory>

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
