#include "gvx_common/codec/access_unit_reader.h"

namespace gvx {

void AccessUnitReader::Rewind() {
    m_reader.Rewind();
    m_hasPending = false;
    m_error.clear();
}

void AccessUnitReader::Append(AccessUnit& unit, bool& hasSlice) {
    const NalKind& kind = m_pendingKind;
    if (kind.parameterSet) {
        m_sets.Keep(kind, m_pending);
        unit.hasParameterSets = true;
    }
    if (kind.sequenceSet) {
        SequenceInfo info;
        if (ParseSequenceParameterSet(m_codec, m_pending.data, m_pending.length, info)) {
            m_sequence = info;
        }
    }
    AppendNal(m_pending.data, m_pending.length, unit.bytes);
    if (kind.delimiter) {
        unit.bodyOffset = unit.bytes.size();
    }
    unit.key = unit.key || kind.key;
    hasSlice = hasSlice || kind.slice;
    m_hasPending = false;
}

ReadResult AccessUnitReader::Next(AccessUnit& unit) {
    m_usualSize.Note(unit.bytes.size());
    if (unit.bytes.capacity() > m_usualSize.MostKept()) {
        std::vector<std::uint8_t>().swap(unit.bytes);
    }
    unit.bytes.clear();
    unit.bodyOffset = 0;
    unit.key = false;
    unit.hasParameterSets = false;
    bool hasSlice = false;
    for (;;) {
        if (!m_hasPending) {
            const ReadResult result = m_reader.Next(m_pending);
            if (result == ReadResult::Failed) {
                m_error = m_reader.Error();
                return result;
            }
            if (result == ReadResult::End) {
                return hasSlice ? ReadResult::Ok : ReadResult::End;
            }
            m_pendingKind = ClassifyNal(m_codec, m_pending.data, m_pending.length);
            m_hasPending = true;
        }
        if (hasSlice && m_pendingKind.opensUnit) {
            return ReadResult::Ok;
        }
        if (unit.bytes.size() + m_pending.length > m_maxUnitBytes) {
            m_error = "a picture is longer than " + std::to_string(m_maxUnitBytes) + " bytes";
            return ReadResult::Failed;
        }
        Append(unit, hasSlice);
    }
}

void AccessUnitReader::InsertParameterSets(AccessUnit& unit) const {
    std::vector<std::uint8_t> sets;
    m_sets.AppendTo(sets);
    unit.bytes.insert(unit.bytes.begin() + static_cast<std::ptrdiff_t>(unit.bodyOffset), sets.begin(), sets.end());
    unit.hasParameterSets = unit.hasParameterSets || !sets.empty();
}

}  // namespace gvx
