#pragma once

#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/tlv/tlv.h"

// Builds a message in one of two forms. The map form collects items and flattens them, sorted by ascending type, on
// Encode; each value is copied twice. The memory form appends each item to pages of the media pool in the order of the
// calls, so that a large picture is never laid out in one piece. The two do not mix in one object.
//
// A nested message is an encoder whose bytes become the value of an item of its parent. All operations give 0, or 1
// with an error line. One thread.
class TLV_Encoder : public TLV_Codec {
public:
    TLV_Encoder() = default;
    ~TLV_Encoder() override;

    // Map form. A text includes its terminator; data may be null only for a length of 0; a child must have been
    // encoded, and is copied.
    long PutValue(int type, bool value);
    long PutValue(int type, char value);
    long PutValue(int type, short value);
    long PutValue(int type, int value);
    long PutValue(int type, long value);
    long PutValue(int type, long long value);
    long PutValue(int type, unsigned char value);
    long PutValue(int type, unsigned short value);
    long PutValue(int type, unsigned int value);
    long PutValue(int type, unsigned long value);
    long PutValue(int type, unsigned long long value);
    long PutValue(int type, const char* value);
    long PutValue(int type, const unsigned char* data, unsigned long len);
    long PutValue(int type, const TLV_Encoder& child);

    // Flattens the map. Called once.
    long Encode();
    // The flat image, owned here until Clear; null before Encode.
    const unsigned char* GetTlvBuf() const { return m_pucTlvBuf.get(); }
    unsigned long GetTlvDataLen() const { return m_ulDataLen; }

    // Memory form: type, length and len bytes of the value. A failure leaves what has been appended. len is 1 at least,
    // and at most sizeof value. T is char, short, int, unsigned long, unsigned long long or LAYER_ONE_TYPE.
    template <typename T>
    long EncodeValue(int type, T value, unsigned int len);
    // The value from memory. T is char* or const unsigned char*.
    template <typename T>
    long EncodePtrValue(int type, T ptr, unsigned int len);
    // The value from the position of another buffer, page by page.
    long EncodeMemBuf(int type, unsigned int pos, unsigned int len, const MemHandler& src);

    MemHandler* GetMemHandler() { return &m_memHandler; }
    unsigned int GetMemBufLength() const { return m_memHandler.GetLength(); }

    // Gives the pages back, then as the base.
    void Clear() override;

private:
    template <typename V>
    long Put(int type, V value);
    long AppendHeadMem(const char* title, int type, unsigned int len);

    MemHandler m_memHandler;
};
