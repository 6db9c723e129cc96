#pragma once

#include "gvx_common/codec/annexb_reader.h"
#include "gvx_common/codec/codec.h"
#include "gvx_common/codec/nal_unit.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace gvx {

// The parameter sets that a stream has shown so far, the latest of each identifier. One thread.
class ParameterSets {
public:
    explicit ParameterSets(Codec codec) : m_codec(codec) {}

    // Keeps a copy; a set that cannot be read is left out. Does nothing when the same set is known already.
    void Keep(const NalKind& kind, const NalSpan& nal);
    // Appends all sets in the order in which a decoder needs them, each behind a four-byte start code.
    void AppendTo(std::vector<std::uint8_t>& bytes) const;

private:
    Codec m_codec;
    std::map<std::pair<std::uint8_t, std::uint32_t>, std::vector<std::uint8_t>> m_sets;  // by type and identifier
};

// Appends a NAL unit behind a four-byte start code.
void AppendNal(const std::uint8_t* nal, std::size_t length, std::vector<std::uint8_t>& bytes);

}  // namespace gvx
