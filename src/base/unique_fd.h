#pragma once

#include <cerrno>

#include <unistd.h>

namespace gvx {

// A file descriptor with an owner, which closes it. One thread at a time.
class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : m_fd(fd) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int Get() const { return m_fd; }
    bool Valid() const { return m_fd >= 0; }
    // Gives the descriptor away; the caller closes it.
    int Release() {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }
    // Closes the descriptor and takes another one over. Keeps errno.
    void Reset(int fd = -1) {
        if (m_fd >= 0) {
            const int kept = errno;
            ::close(m_fd);
            errno = kept;
        }
        m_fd = fd;
    }

private:
    int m_fd;
};

}  // namespace gvx
