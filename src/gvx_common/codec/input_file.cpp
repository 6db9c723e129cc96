#include "gvx_common/codec/input_file.h"

#include "base/shortage.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace gvx {
namespace {

std::string ErrnoText(int number) {
    return std::generic_category().message(number);
}

}  // namespace

bool InputFile::Open(const std::string& path, std::string& error) {
    // Without O_NONBLOCK a named pipe would hold the caller until somebody writes.
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!fd.Valid() || fstat(fd.Get(), &status) != 0) {
        const int fault = errno;
        NoteShortage(fault);
        error = ErrnoText(fault);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        error = S_ISDIR(status.st_mode) ? ErrnoText(EISDIR) : "Not a regular file";
        return false;
    }
    m_fd = std::move(fd);
    m_offset = 0;
    return true;
}

ssize_t InputFile::Read(std::uint8_t* buffer, std::size_t length) {
    ssize_t count = 0;
    do {
        count = pread(m_fd.Get(), buffer, length, m_offset);
    } while (count < 0 && errno == EINTR);
    if (count > 0) {
        m_offset += count;
    }
    return count;
}

bool ReadWholeFile(const std::string& path, std::size_t most, std::string& bytes, std::string& error) {
    InputFile file;
    std::string reason;
    bytes.clear();
    if (!file.Open(path, reason)) {
        error = path + " cannot be opened: " + reason + ".";
        return false;
    }
    std::uint8_t piece[16384];
    ssize_t count = 0;
    while (bytes.size() <= most && (count = file.Read(piece, sizeof(piece))) > 0) {
        bytes.append(reinterpret_cast<const char*>(piece), static_cast<std::size_t>(count));
    }
    if (count < 0) {
        error = path + " cannot be read: " + ErrnoText(errno) + ".";
    } else if (bytes.size() > most) {
        error = path + " has more than " + std::to_string(most) + " bytes.";
    }
    return count >= 0 && bytes.size() <= most;
}

}  // namespace gvx
