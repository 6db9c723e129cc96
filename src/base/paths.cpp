#include "base/paths.h"

#include "base/unique_fd.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr const char* kDefaultConfigFolder = "/etc/gvx";

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

void DropTrailingSlashes(std::string& path, std::size_t keep) {
    while (path.size() > keep && path.back() == '/') {
        path.pop_back();
    }
}

// A descriptor that names what stands there and opens nothing. Follows no link, and no "..", out of the folder.
gvx::UniqueFd FindBelow(int folder, const std::string& name, int flags) {
    constexpr int kMostTries = 8;
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_PATH | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    long fd = -1;
    int tries = 0;
    do {  // EAGAIN: something was renamed meanwhile, so that the kernel could not be sure of a ".."
        fd = syscall(SYS_openat2, folder, name.c_str(), &how, sizeof how);
    } while (fd == -1 && errno == EAGAIN && ++tries < kMostTries);
    return gvx::UniqueFd(static_cast<int>(fd));
}

bool PathOf(int fd, std::string& path) {
    char text[PATH_MAX];
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), text, sizeof text);
    path.assign(text, static_cast<std::size_t>(length < 0 ? 0 : length));
    return length > 0;
}

// The place of a file that is yet to be made. False with errno.
bool PlaceBelow(int root, const std::string& name, std::string& path) {
    const std::size_t slash = name.rfind('/');
    const std::string last = name.substr(slash == std::string::npos ? 0 : slash + 1);
    const gvx::UniqueFd folder = FindBelow(root, slash == std::string::npos ? "." : name.substr(0, slash), O_DIRECTORY);
    struct stat status {};
    if (!folder.Valid() || !PathOf(folder.Get(), path)) {
        return false;
    }
    path += "/" + last;
    if (fstatat(folder.Get(), last.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EXDEV;  // a link to nowhere, or a folder
        return false;
    }
    return errno == ENOENT && !last.empty();
}

}  // namespace

int get_config_directory(std::string& directory) {
    directory = Environment("GVX_CONFIG_DIR");
    if (directory.empty()) {
        directory = gvx::RootedPath(kDefaultConfigFolder);
    }
    DropTrailingSlashes(directory, 1);
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        return 1;
    }
    return access(directory.c_str(), R_OK | X_OK) == 0 ? 0 : 1;
}

namespace gvx {

std::string RootedPath(const std::string& absolutePath) {
    std::string root = Environment("GVX_ROOT");
    DropTrailingSlashes(root, 0);
    return root + absolutePath;
}

bool ResolveBelow(const std::string& root, const std::string& name, bool mayBeMissing, std::string& path,
                  std::string& error) {
    std::string folder = root;
    DropTrailingSlashes(folder, 1);
    const bool isAbsolute = name.compare(0, folder.size() + 1, folder + "/") == 0;
    const std::string below = isAbsolute ? name.substr(folder.size() + 1) : name;
    const UniqueFd start(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const UniqueFd found = start.Valid() ? FindBelow(start.Get(), below, 0) : UniqueFd();
    struct stat status {};
    bool resolved = false;
    if (found.Valid() && fstat(found.Get(), &status) == 0) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        resolved = S_ISREG(status.st_mode) && PathOf(found.Get(), path);
    } else if (start.Valid() && errno == ENOENT && mayBeMissing) {
        resolved = PlaceBelow(start.Get(), below, path);
    }
    if (!resolved) {
        error = errno == EXDEV    ? "It is not below " + folder
                : errno == EINVAL ? "Not a regular file"
                                  : std::generic_category().message(errno);
    }
    return resolved;
}

std::string DefaultControlSocket() {
    const std::string path = Environment("GVX_CONTROL_SOCKET");
    return path.empty() ? RootedPath("/run/gvx/control.sock") : path;
}

}  // namespace gvx
