#pragma once

#include "gvx_common/codec/annexb_reader.h"
#include "gvx_common/codec/codec.h"
#include "gvx_common/codec/nal_unit.h"
#include "gvx_common/codec/parameter_sets.h"
#include "gvx_common/codec/sequence_parameter_set.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace gvx {

// One coded picture with all that belongs to it, every NAL unit behind a four-byte start code.
struct AccessUnit {
    std::vector<std::uint8_t> bytes;
    std::size_t bodyOffset = 0;  // behind the access unit delimiter, when there is one
    bool key = false;            // decoding can begin here
    bool hasParameterSets = false;
};

// Reads a byte stream picture by picture. One thread.
class AccessUnitReader {
public:
    explicit AccessUnitReader(Codec codec, std::size_t maxUnitBytes = kMaxUnitBytes)
        : m_codec(codec), m_maxUnitBytes(maxUnitBytes), m_sets(codec) {}

    bool Open(const std::string& path, std::string& error) { return m_reader.Open(path, error); }
    void Rewind();

    // The next picture; the unit's memory is used again. What stands behind the last picture of the file without being
    // part of one is dropped. Failed: the file could not be read on, and Error() tells why.
    ReadResult Next(AccessUnit& unit);
    const std::string& Error() const { return m_error; }
    // Nothing stands behind the picture that was read last.
    bool IsAtEnd() const { return m_atEnd; }

    // See AnnexBReader.
    void UseMemory(std::vector<std::uint8_t>& memory) { m_reader.UseMemory(memory); }
    void GiveBackMemory(std::vector<std::uint8_t>& memory) { m_reader.GiveBackMemory(memory); }

    // Puts the parameter sets that were seen so far into a unit, in front of its picture.
    void InsertParameterSets(AccessUnit& unit) const;

    // Size of the pictures as the latest sequence parameter set tells; 0 before the first.
    const SequenceInfo& Sequence() const { return m_sequence; }

    static constexpr std::size_t kMaxUnitBytes = 32u * 1024 * 1024;

private:
    void Append(const NalSpan& nal, const NalKind& kind, AccessUnit& unit);
    ReadResult ReadOn(ReadResult result);

    Codec m_codec;
    std::size_t m_maxUnitBytes;
    AnnexBReader m_reader;
    ParameterSets m_sets;
    SequenceInfo m_sequence;
    bool m_atEnd = false;
    std::string m_error;
};

}  // namespace gvx
