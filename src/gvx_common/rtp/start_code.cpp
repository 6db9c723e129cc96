#include "gvx_common/rtp/start_code.h"

#include "base/log.h"

#include <cstdint>
#include <cstring>

// Wider vectors where the processor has them. The choice is made before a sanitizer has started, so not with one.
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define GVX_WIDE_VECTORS __attribute__((target_clones("avx2", "default")))
#else
#define GVX_WIDE_VECTORS
#endif

namespace gvx {

namespace {

constexpr std::ptrdiff_t kBlock = 128;

// Start of the first 00 00 00 01 that begins in [first, last) and ends by end; null when there is none.
const unsigned char* ScanStartCode(const unsigned char* first, const unsigned char* last, const unsigned char* end) {
    for (const unsigned char* at = first; at < last && end - at >= kStartCodeLen; ++at) {
        if ((at[0] | at[1] | at[2]) == 0 && at[3] == 1) {
            return at;
        }
    }
    return nullptr;
}

// The scan is the first to touch a frame, and a processor's own look ahead ends with each page. Past the end of the
// frame this fetches what nobody needs, and faults never.
inline __attribute__((always_inline)) void FetchAhead(const unsigned char* block) {
    constexpr std::uintptr_t kAhead = 2048;
    constexpr std::uintptr_t kCacheLine = 64;
    const std::uintptr_t ahead = reinterpret_cast<std::uintptr_t>(block) + kAhead;
    __builtin_prefetch(reinterpret_cast<const void*>(ahead));
    __builtin_prefetch(reinterpret_cast<const void*>(ahead + kCacheLine));
}

using Words = std::uint16_t __attribute__((vector_size(32)));

// Whether one of the 16-bit words of a block is zero.
inline __attribute__((always_inline)) bool HasZeroWord(const unsigned char* block) {
    Words zeros{};
    for (std::ptrdiff_t at = 0; at < kBlock; at += static_cast<std::ptrdiff_t>(sizeof(Words))) {
        Words words;
        std::memcpy(&words, block + at, sizeof(words));
        zeros |= words == 0;
    }
    std::uint64_t parts[sizeof(Words) / sizeof(std::uint64_t)];
    std::memcpy(parts, &zeros, sizeof(parts));
    return (parts[0] | parts[1] | parts[2] | parts[3]) != 0;
}

}  // namespace

// Three zeros always fill one 16-bit word of those that follow each other from `from` on, and such words are rare in
// coded video: whole blocks without one are passed over. The last block overlaps the one before.
GVX_WIDE_VECTORS const unsigned char* FindStartCode(const unsigned char* from, const unsigned char* end) {
    const unsigned char* block = from;
    for (; end - block >= kBlock; block += kBlock) {
        FetchAhead(block);
        if (HasZeroWord(block)) {
            const unsigned char* found = ScanStartCode(block == from ? from : block - 1, block + kBlock, end);
            if (found != nullptr) {
                return found;
            }
        }
    }
    if (block != from && !HasZeroWord(end - kBlock)) {
        return end;
    }
    const unsigned char* found = ScanStartCode(block == from ? from : block - 1, end, end);
    return found != nullptr ? found : end;
}

FrameUnits::FrameUnits(const unsigned char* frame, std::size_t size, bool hasStartCodes)
    : m_end(frame + size), m_hasStartCodes(hasStartCodes), m_next(frame) {
    if (!hasStartCodes) {
        return;
    }
    m_next = FindStartCode(frame, m_end);
    if (m_next == m_end) {
        GVX_DEBUG("Lens Base SplitFrame2Nalu, NaluBegin Is NULL Can not found Nalu Head 00 00 00 01");
        m_next = nullptr;
    }
}

bool FrameUnits::Next() {
    if (m_next == nullptr) {
        return false;
    }
    m_unit = m_next;
    m_unitEnd = m_end;
    if (m_hasStartCodes) {
        m_unit += kStartCodeLen;
        m_unitEnd = FindStartCode(m_unit, m_end);
    }
    m_next = m_unitEnd == m_end ? nullptr : m_unitEnd;
    return true;
}

}  // namespace gvx
