#pragma once

#include <cstddef>

namespace gvx {

// Length of the start code 00 00 00 01 (ITU-T H.264, annex B). The three-byte form counts for nothing here.
constexpr std::ptrdiff_t kStartCodeLen = 4;

// Start of the next 00 00 00 01 at or behind from, or end. Reads nothing outside [from, end). Any
// thread.
const unsigned char* FindStartCode(const unsigned char* from, const unsigned char* end);

// The units of a frame, one after another: what stands between its start codes, or the whole of a frame that has none,
// such as audio. Bytes ahead of the first start code are left out. One thread.
class FrameUnits {
public:
    // The frame is only read, and must outlive this object. One without a start code that should have some is told in a
    // debug line.
    FrameUnits(const unsigned char* frame, std::size_t size, bool hasStartCodes);

    // Goes on to the next unit; false behind the last.
    bool Next();
    const unsigned char* Data() const { return m_unit; }
    std::size_t Size() const { return static_cast<std::size_t>(m_unitEnd - m_unit); }

private:
    const unsigned char* const m_end;
    const bool m_hasStartCodes;
    const unsigned char* m_next;  // the start code ahead of the next unit, else its first byte; null behind the last
    const unsigned char* m_unit = nullptr;
    const unsigned char* m_unitEnd = nullptr;
};

}  // namespace gvx
