#include "base/whole_file.h"

#include "base/shortage.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace gvx {
namespace {

class File {
public:
    File(const char* path, int flags, mode_t mode = 0) : m_descriptor(open(path, flags | O_CLOEXEC, mode)) {
        if (m_descriptor < 0) {
            const int error = errno;
            NoteShortage(error);
            errno = error;
        }
    }
    ~File() { Close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return m_descriptor >= 0; }
    int Descriptor() const { return m_descriptor; }

    bool Write(const std::string& content) {
        for (std::size_t done = 0; done < content.size();) {
            const ssize_t written = write(m_descriptor, content.data() + done, content.size() - done);
            if (written < 0 && errno == EINTR) {
                continue;
            }
            if (written <= 0) {
                return false;
            }
            done += static_cast<std::size_t>(written);
        }
        return true;
    }

    bool Close() {
        const int descriptor = m_descriptor;
        m_descriptor = -1;
        return descriptor < 0 || close(descriptor) == 0;
    }

private:
    int m_descriptor;
};

constexpr mode_t kPrivate = 0600;

// Made with the mode `made`; set to `forced` where that is not 0.
bool WriteNew(const std::string& path, const std::string& content, mode_t made, mode_t forced) {
    File file(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, made);
    if (!file.IsOpen()) {
        return false;
    }
    if (forced != 0 && fchmod(file.Descriptor(), forced) != 0) {
        return false;
    }
    return file.Write(content) && fsync(file.Descriptor()) == 0 && file.Close();
}

bool Replace(const std::string& path, const std::string& content, mode_t made, mode_t forced) {
    const std::string fresh = path + ".bak";
    if (WriteNew(fresh, content, made, forced) && std::rename(fresh.c_str(), path.c_str()) == 0) {
        const std::size_t slash = path.rfind('/');
        return SyncFolder(slash == std::string::npos ? "." : path.substr(0, slash + 1));
    }
    unlink(fresh.c_str());
    return false;
}

}  // namespace

bool SyncFolder(const std::string& folder) {
    const File opened(folder.c_str(), O_RDONLY | O_DIRECTORY);
    return opened.IsOpen() && fsync(opened.Descriptor()) == 0;
}

bool ReadWholeFile(const std::string& path, std::size_t maxBytes, std::string& content) {
    content.clear();
    const File file(path.c_str(), O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Descriptor(), &status) != 0 || !S_ISREG(status.st_mode) ||
        static_cast<std::size_t>(status.st_size) > maxBytes) {
        return false;
    }
    char piece[16384];
    for (;;) {
        const ssize_t count = read(file.Descriptor(), piece, sizeof(piece));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count == 0;
        }
        if (content.size() + static_cast<std::size_t>(count) > maxBytes) {
            content.clear();
            return false;
        }
        content.append(piece, static_cast<std::size_t>(count));
    }
}

bool ReplaceWholeFile(const std::string& path, const std::string& content) {
    struct stat status {};
    const bool exists = stat(path.c_str(), &status) == 0;
    return Replace(path, content, 0644, exists ? status.st_mode & 07777 : 0);
}

bool ReplacePrivateFile(const std::string& path, const std::string& content) {
    return Replace(path, content, kPrivate, kPrivate);
}

}  // namespace gvx
