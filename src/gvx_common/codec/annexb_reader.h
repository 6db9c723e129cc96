#pragma once

#include "gvx_common/codec/input_file.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace gvx {

// A NAL unit in the reader's memory, without start code; valid until the reader's next call.
struct NalSpan {
    const std::uint8_t* data = nullptr;
    std::size_t length = 0;
};

enum class ReadResult { Ok, End, Failed };

// Cuts a byte stream into NAL units at start codes of three or four bytes (ITU-T H.264 annex B, H.265 annex B). Bytes
// in front of the first start code and zeroes between NAL units are dropped, and so are empty NAL units. One thread.
class AnnexBReader {
public:
    // maxNalBytes: a NAL unit beyond this is an error, and so are as many bytes without a start code: a file that is no
    // byte stream takes neither all memory nor all time.
    explicit AnnexBReader(std::size_t maxNalBytes = kMaxNalBytes) : m_maxNalBytes(maxNalBytes) {}

    bool Open(const std::string& path, std::string& error) { return m_file.Open(path, error); }
    void Rewind();

    // The next NAL unit. Failed: the file could not be read on, and Error() tells why.
    ReadResult Next(NalSpan& nal);
    // The first bytes of what Next will give, kHeadBytes at most, without reading the rest of it.
    ReadResult Peek(NalSpan& head);
    const std::string& Error() const { return m_error; }

    // Readers that take turns need memory for one: a reader is given what another has given back, and keeps none while
    // it waits. What it has read ahead it reads again later.
    void UseMemory(std::vector<std::uint8_t>& memory);
    void GiveBackMemory(std::vector<std::uint8_t>& memory);

    static constexpr std::size_t kMaxNalBytes = 16u * 1024 * 1024;
    static constexpr std::size_t kHeadBytes = 3;  // enough to classify a NAL unit

private:
    ReadResult NextRaw(NalSpan& nal);
    bool SkipToStart();
    bool Fill();
    // Finds 00 00 01 from `from` on: its offset, or m_end when there is none in the window.
    std::size_t FindCode(std::size_t from) const;

    InputFile m_file;
    std::size_t m_maxNalBytes;
    // The bytes m_begin to m_end of the window are read and not yet used up.
    std::vector<std::uint8_t> m_window;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_inside = false;  // m_begin stands behind a start code
    bool m_fileEnd = false;
    std::size_t m_skipped = 0;  // bytes in front of the first start code
    std::string m_error;
};

}  // namespace gvx
