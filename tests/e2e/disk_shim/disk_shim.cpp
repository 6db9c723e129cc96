// Preloaded into a program that saves files in the folder DISK_SHIM_DIR. Writes to the file DISK_SHIM_LOG what a power
// loss may leave of them, a line an event; <copy> is a file beside the log with the bytes at that moment.
//   truncate <inode>          fsync <inode> <copy>          folder          rename <inode> <name> <copy>
// With DISK_SHIM_FAIL_READ=N the Nth read of a file there fails, once, with EIO, and the event is "failed". With
// DISK_SHIM_FAIL_FOLDER each fsync of a folder fails.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

template <typename Function>
Function* Real(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The file of that descriptor when it stands in the folder, or is the folder; empty otherwise.
std::string Watched(int fd) {
    const char* const folder = std::getenv("DISK_SHIM_DIR");
    std::error_code none;
    const std::string path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), none).string();
    return folder != nullptr && path.compare(0, std::string(folder).size(), folder) == 0 ? path : std::string();
}

void Tell(const std::string& event) {
    if (const char* const log = std::getenv("DISK_SHIM_LOG")) {
        std::ofstream(log, std::ios::app) << event << "\n";
    }
}

std::string Copy(const std::string& path) {
    static int count = 0;
    const char* const log = std::getenv("DISK_SHIM_LOG");
    if (log == nullptr) {
        return std::string();
    }
    const std::string copy = std::string(log) + "." + std::to_string(++count);
    std::error_code none;
    std::filesystem::copy_file(path, copy, none);
    return copy;
}

std::string Inode(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? std::to_string(status.st_ino) : "none";
}

}  // namespace

extern "C" ssize_t read(int fd, void* buffer, size_t count) {
    static const auto real = Real(&read, "read");
    static long left =
        std::getenv("DISK_SHIM_FAIL_READ") != nullptr ? std::atol(std::getenv("DISK_SHIM_FAIL_READ")) : 0;
    if (left > 0 && !Watched(fd).empty() && --left == 0) {
        Tell("failed");
        errno = EIO;
        return -1;
    }
    return real(fd, buffer, count);
}

extern "C" int fsync(int fd) {
    static const auto real = Real(&fsync, "fsync");
    const std::string path = Watched(fd);
    if (std::getenv("DISK_SHIM_FAIL_FOLDER") != nullptr && std::filesystem::is_directory(path)) {
        errno = EIO;
        return -1;
    }
    const int result = real(fd);
    if (result == 0 && !path.empty()) {
        Tell(std::filesystem::is_directory(path) ? "folder" : "fsync " + Inode(path) + " " + Copy(path));
    }
    return result;
}

extern "C" int ftruncate(int fd, off_t length) noexcept {
    static const auto real = Real(&ftruncate, "ftruncate");
    const std::string path = Watched(fd);
    if (!path.empty()) {
        Tell("truncate " + Inode(path));
    }
    return real(fd, length);
}

extern "C" int rename(const char* from, const char* to) noexcept {
    static const auto real = Real(&rename, "rename");
    const char* const folder = std::getenv("DISK_SHIM_DIR");
    if (folder != nullptr && std::string(to).compare(0, std::string(folder).size(), folder) == 0) {
        Tell("rename " + Inode(from) + " " + std::filesystem::path(to).filename().string() + " " + Copy(from));
    }
    return real(from, to);
}
