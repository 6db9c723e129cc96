#pragma once

#include "base/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/types.h>

namespace gvx {

// A regular file that is read from front to back. It is never mapped: a file that is cut short while it plays ends
// early, and does no other harm. One thread.
class InputFile {
public:
    // False with the system's reason in error, when the file is missing, unreadable or not a regular one.
    bool Open(const std::string& path, std::string& error);
    void Rewind() { m_offset = 0; }
    // Reading goes on there; behind the end there is nothing.
    void MoveTo(std::uint64_t offset) { m_offset = static_cast<off_t>(offset); }
    std::uint64_t Offset() const { return static_cast<std::uint64_t>(m_offset); }

    // Reads up to `length` bytes at the position and moves it on: the count, 0 at the end, -1 with errno set.
    ssize_t Read(std::uint8_t* buffer, std::size_t length);

private:
    UniqueFd m_fd;
    off_t m_offset = 0;
};

// Reads a file of at most `most` bytes. False with one sentence in error, which names it.
bool ReadWholeFile(const std::string& path, std::size_t most, std::string& bytes, std::string& error);

}  // namespace gvx
