#pragma once

#include "gvx_common/tlv/tlv.h"

// Reads a message into items. Used once: a second Decode adds to the items of the first. Nothing outside the buffer is
// ever read: an item whose length leads beyond the end holds what is there.
//
// All operations give 0, or 1 with an error line. One thread.
class TLV_Decoder : public TLV_Codec {
public:
    // Copies buf and takes it apart. Every item whose length fits writes an error line under "Invalid Tlv Obj", which
    // is kept, while one whose length is wrong writes none. An item without value bytes at the very end is dropped.
    long Decode(const unsigned char* buf, unsigned long len);

    // How many items of the type there are.
    unsigned long GetValueCount(int type) const;
    // The lengths of the items of the type, in order. count is the room in lengths, at least the number of items; there
    // must be one item at least. So for all of the following.
    long GetValueLen(int type, unsigned int* lengths, unsigned long count) const;

    // The values of the items of the type, in order. An item shorter than V fills the low bytes, one longer fails.
    long GetValue(int type, bool* values, unsigned long count) const;
    long GetValue(int type, char* values, unsigned long count) const;
    long GetValue(int type, short* values, unsigned long count) const;
    long GetValue(int type, int* values, unsigned long count) const;
    long GetValue(int type, long* values, unsigned long count) const;
    long GetValue(int type, long long* values, unsigned long count) const;
    long GetValue(int type, unsigned char* values, unsigned long count) const;
    long GetValue(int type, unsigned short* values, unsigned long count) const;
    long GetValue(int type, unsigned int* values, unsigned long count) const;
    long GetValue(int type, unsigned long* values, unsigned long count) const;
    long GetValue(int type, unsigned long long* values, unsigned long count) const;

    // The bytes of the items, into buffers of the caller; lengths[i] is the room in values[i], GetValueLen tells what
    // is needed.
    long GetValue(int type, char* const* values, unsigned long* lengths, unsigned long count) const;
    long GetValue(int type, unsigned char* const* values, unsigned long* lengths, unsigned long count) const;

    // Each item of the type taken apart by a decoder of its own.
    long GetValue(int type, TLV_Decoder* children, unsigned long count) const;

private:
    bool CheckCount(int type, unsigned long count) const;
    template <typename V>
    long GetFixed(int type, V* values, unsigned long count) const;
    template <typename C>
    long GetBytes(int type, C* const* values, const unsigned long* lengths, unsigned long count) const;
};
