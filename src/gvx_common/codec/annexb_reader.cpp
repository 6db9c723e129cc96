#include "gvx_common/codec/annexb_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace gvx {
namespace {

// About a picture of 4 Mbit/s: what a piece holds behind the picture is read twice when the memory is given back.
constexpr std::size_t kReadBytes = 16u * 1024;
constexpr std::size_t kCodeBytes = 3;

}  // namespace

void AnnexBReader::UseMemory(std::vector<std::uint8_t>& memory) {
    if (m_window.empty()) {
        m_window.swap(memory);
    }
}

void AnnexBReader::GiveBackMemory(std::vector<std::uint8_t>& memory) {
    m_file.MoveTo(m_file.Offset() - (m_end - m_begin));
    m_begin = 0;
    m_end = 0;
    m_fileEnd = false;
    if (memory.size() < m_window.size()) {
        memory.swap(m_window);
    }
    m_window = std::vector<std::uint8_t>();
}

void AnnexBReader::Rewind() {
    m_file.Rewind();
    m_begin = 0;
    m_end = 0;
    m_inside = false;
    m_fileEnd = false;
    m_skipped = 0;
    m_error.clear();
}

std::size_t AnnexBReader::FindCode(std::size_t from) const {
    const std::uint8_t* bytes = m_window.data();
    std::size_t at = from;
    while (at + kCodeBytes <= m_end) {
        const std::uint8_t third = bytes[at + 2];
        if (third > 1) {
            at += 3;  // no code can hold this byte
        } else if (third == 1) {
            if (bytes[at] == 0 && bytes[at + 1] == 0) {
                return at;
            }
            at += 3;
        } else {
            ++at;
        }
    }
    return m_end;
}

bool AnnexBReader::Fill() {
    if (m_fileEnd) {
        return true;
    }
    if (m_begin > 0) {
        std::memmove(m_window.data(), m_window.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_end > m_maxNalBytes) {
        m_error = "a NAL unit is longer than " + std::to_string(m_maxNalBytes) + " bytes";
        return false;
    }
    if (m_window.size() < m_end + kReadBytes) {
        m_window.resize(std::max(m_end + kReadBytes, m_window.size() + m_window.size() / 4));
    }
    // No further ahead, though there may be room.
    const ssize_t count = m_file.Read(m_window.data() + m_end, std::min(m_window.size() - m_end, kReadBytes));
    if (count < 0) {
        m_error = std::generic_category().message(errno);
        return false;
    }
    m_fileEnd = count == 0;
    m_end += static_cast<std::size_t>(count);
    return true;
}

bool AnnexBReader::SkipToStart() {
    while (!m_inside) {
        const std::size_t code = FindCode(m_begin);
        if (code != m_end) {
            m_begin = code + kCodeBytes;
            m_inside = true;
            break;
        }
        // The last two bytes may begin a code that goes on in the next piece.
        const std::size_t keep = std::min<std::size_t>(kCodeBytes - 1, m_end - m_begin);
        m_skipped += m_end - m_begin - keep;
        m_begin = m_end - keep;
        if (m_skipped > m_maxNalBytes) {
            m_error = "there is no start code in the first " + std::to_string(m_maxNalBytes) + " bytes";
            return false;
        }
        if (m_fileEnd) {
            break;
        }
        if (!Fill()) {
            return false;
        }
    }
    return true;
}

ReadResult AnnexBReader::NextRaw(NalSpan& nal) {
    if (!SkipToStart()) {
        return ReadResult::Failed;
    }
    if (!m_inside) {
        return ReadResult::End;
    }
    std::size_t searched = 0;  // bytes of the unit that hold no code
    std::size_t code = 0;
    while ((code = FindCode(m_begin + searched)) == m_end && !m_fileEnd) {
        const std::size_t length = m_end - m_begin;
        searched = length > kCodeBytes - 1 ? length - (kCodeBytes - 1) : 0;
        if (!Fill()) {
            return ReadResult::Failed;
        }
    }
    nal.data = m_window.data() + m_begin;
    nal.length = code - m_begin;
    m_inside = code != m_end;
    m_begin = m_inside ? code + kCodeBytes : m_end;
    return ReadResult::Ok;
}

ReadResult AnnexBReader::Next(NalSpan& nal) {
    for (;;) {
        const ReadResult result = NextRaw(nal);
        if (result != ReadResult::Ok) {
            return result;
        }
        // A NAL unit never ends in a zero byte: those belong to the next start code or are padding.
        while (nal.length > 0 && nal.data[nal.length - 1] == 0) {
            --nal.length;
        }
        if (nal.length > 0) {
            return ReadResult::Ok;
        }
    }
}

ReadResult AnnexBReader::Peek(NalSpan& head) {
    if (!SkipToStart()) {
        return ReadResult::Failed;
    }
    for (std::size_t zeroes = 0; m_inside;) {
        while (m_begin + zeroes < m_end && m_window[m_begin + zeroes] == 0) {
            ++zeroes;
        }
        const bool onlyZeroes = m_begin + zeroes == m_end;
        if ((onlyZeroes || m_end - m_begin < kHeadBytes) && !m_fileEnd) {
            if (!Fill()) {
                return ReadResult::Failed;
            }
        } else if (onlyZeroes) {
            m_begin = m_end;
            m_inside = false;
        } else if (zeroes >= kCodeBytes - 1 && m_window[m_begin + zeroes] == 1) {
            m_begin += zeroes + 1;  // an empty unit
            zeroes = 0;
        } else {
            head = {m_window.data() + m_begin, std::min(m_end - m_begin, kHeadBytes)};
            return ReadResult::Ok;
        }
    }
    return ReadResult::End;
}

}  // namespace gvx
