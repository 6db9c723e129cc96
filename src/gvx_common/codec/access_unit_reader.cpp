#include "gvx_common/codec/access_unit_reader.h"

namespace gvx {

void AccessUnitReader::Rewind() {
    m_reader.Rewind();
    m_atEnd = false;
    m_error.clear();
}

void AccessUnitReader::Append(const NalSpan& nal, const NalKind& kind, AccessUnit& unit) {
    if (kind.parameterSet) {
        m_sets.Keep(kind, nal);
        unit.hasParameterSets = true;
    }
    if (kind.sequenceSet) {
        SequenceInfo info;
        if (ParseSequenceParameterSet(m_codec, nal.data, nal.length, info)) {
            m_sequence = info;
        }
    }
    AppendNal(nal.data, nal.length, unit.bytes);
    if (kind.delimiter) {
        unit.bodyOffset = unit.bytes.size();
    }
    unit.key = unit.key || kind.key;
}

ReadResult AccessUnitReader::ReadOn(ReadResult result) {
    m_atEnd = result == ReadResult::End;
    if (result == ReadResult::Failed) {
        m_error = m_reader.Error();
    }
    return result;
}

ReadResult AccessUnitReader::Next(AccessUnit& unit) {
    unit.bytes.clear();
    unit.bodyOffset = 0;
    unit.key = false;
    unit.hasParameterSets = false;
    for (bool hasSlice = false;;) {
        NalSpan nal;
        ReadResult result = ReadOn(hasSlice ? m_reader.Peek(nal) : m_reader.Next(nal));
        if (hasSlice && (result == ReadResult::End || ClassifyNal(m_codec, nal.data, nal.length).opensUnit)) {
            return ReadResult::Ok;
        }
        if (hasSlice && result == ReadResult::Ok) {
            result = ReadOn(m_reader.Next(nal));
        }
        if (result != ReadResult::Ok) {
            return result;
        }
        if (unit.bytes.size() + nal.length > m_maxUnitBytes) {
            m_error = "a picture is longer than " + std::to_string(m_maxUnitBytes) + " bytes";
            return ReadResult::Failed;
        }
        const NalKind kind = ClassifyNal(m_codec, nal.data, nal.length);
        Append(nal, kind, unit);
        hasSlice = hasSlice || kind.slice;
    }
}

void AccessUnitReader::InsertParameterSets(AccessUnit& unit) const {
    std::vector<std::uint8_t> sets;
    m_sets.AppendTo(sets);
    unit.bytes.insert(unit.bytes.begin() + static_cast<std::ptrdiff_t>(unit.bodyOffset), sets.begin(), sets.end());
    unit.hasParameterSets = unit.hasParameterSets || !sets.empty();
}

}  // namespace gvx
