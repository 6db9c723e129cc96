#include "gvx_common/tlv/tlv_decoder.h"

#include "gvx_common/tlv/metadata_tags.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

// Takes a message apart as a receiver of metadata does: three layers, lengths first, then values into buffers of just
// those lengths.

namespace {

constexpr int kTypes[] = {METADATA_TYPE, HEART_BEART_TYPE, COMMON, TARGET, RULE, PTS, FACE_SCORE, PLATE_PIC, 0, -1};
constexpr int kLayers = 3;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void ReadBytes(const TLV_Decoder& decoder, int type, const std::vector<unsigned int>& lengths) {
    std::vector<std::unique_ptr<unsigned char[]>> owned;
    std::vector<unsigned char*> values;
    std::vector<unsigned long> rooms;
    for (const unsigned int length : lengths) {
        owned.push_back(std::make_unique<unsigned char[]>(length));
        values.push_back(owned.back().get());
        rooms.push_back(length);
    }
    const long result = decoder.GetValue(type, values.data(), rooms.data(), values.size());
    Require((result == 0) == !values.empty());
}

void ReadFixed(const TLV_Decoder& decoder, int type, std::size_t count) {
    std::vector<unsigned long long> wide(count);
    decoder.GetValue(type, wide.data(), count);
    std::vector<short> narrow(count);
    decoder.GetValue(type, narrow.data(), count);
    const std::unique_ptr<bool[]> flags(new bool[count]);
    decoder.GetValue(type, flags.get(), count);
}

void TakeApart(const TLV_Decoder& decoder, int layer) {
    for (const int type : kTypes) {
        const std::size_t count = decoder.GetValueCount(type);
        std::vector<unsigned int> lengths(count);
        Require((decoder.GetValueLen(type, lengths.data(), count) == 0) == (count != 0));
        ReadBytes(decoder, type, lengths);
        ReadFixed(decoder, type, count);
        if (layer + 1 < kLayers && count != 0) {
            const std::unique_ptr<TLV_Decoder[]> children(new TLV_Decoder[count]);
            if (decoder.GetValue(type, children.get(), count) == 0) {
                for (std::size_t i = 0; i < count; ++i) {
                    TakeApart(children[i], layer + 1);
                }
            }
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TLV_Decoder decoder;
    Require(decoder.Decode(data, size) == (data == nullptr ? 1 : 0));
    TakeApart(decoder, 0);
    return 0;
}
