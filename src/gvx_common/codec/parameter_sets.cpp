#include "gvx_common/codec/parameter_sets.h"

#include "gvx_common/codec/bit_reader.h"
#include "gvx_common/codec/sequence_parameter_set.h"

#include <algorithm>

namespace gvx {
namespace {

// The identifier of a set: behind the whole head for sequence parameter sets, at the start of all others.
bool ReadIdentifier(Codec codec, const NalKind& kind, const NalSpan& nal, std::uint32_t& id) {
    if (kind.sequenceSet) {
        SequenceInfo info;
        const bool read = ParseSequenceParameterSet(codec, nal.data, nal.length, info);
        id = info.id;
        return read;
    }
    constexpr std::uint8_t kH265VideoSet = 32;
    BitReader bits(nal.data, nal.length, codec == Codec::H264 ? 1 : 2);
    id = codec == Codec::H265 && kind.type == kH265VideoSet ? bits.Bits(4) : bits.Ue();
    constexpr std::uint32_t kMaxId = 255;
    return bits.Ok() && id <= kMaxId;
}

}  // namespace

void ParameterSets::Keep(const NalKind& kind, const NalSpan& nal) {
    std::uint32_t id = 0;
    if (!ReadIdentifier(m_codec, kind, nal, id)) {
        return;
    }
    std::vector<std::uint8_t>& kept = m_sets[{kind.type, id}];
    if (kept.size() != nal.length || !std::equal(kept.begin(), kept.end(), nal.data)) {
        kept.assign(nal.data, nal.data + nal.length);
    }
}

void ParameterSets::AppendTo(std::vector<std::uint8_t>& bytes) const {
    for (const auto& [key, nal] : m_sets) {
        AppendNal(nal.data(), nal.size(), bytes);
    }
}

void AppendNal(const std::uint8_t* nal, std::size_t length, std::vector<std::uint8_t>& bytes) {
    static constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};
    bytes.insert(bytes.end(), std::begin(kStartCode), std::end(kStartCode));
    bytes.insert(bytes.end(), nal, nal + length);
}

}  // namespace gvx
