#include "base/log_backups.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace gvx {

namespace {

enum class Kind { Free, File, Other };

Kind KindOf(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT ? Kind::Free : Kind::Other;
    }
    return S_ISDIR(status.st_mode) ? Kind::Other : Kind::File;
}

// What fails when the name of that backup is not to be had.
LogFault FaultAt(std::size_t number, std::size_t count) {
    return number == 1 ? LOG_FAULT_BACKUP : number == count ? LOG_FAULT_REMOVE : LOG_FAULT_SHIFT;
}

// The number whose name ends up taken by a move: a free one, or the last. Or the fault that stands before it.
std::optional<LogFault> FindLast(const std::string& path, std::size_t count, std::size_t& last) {
    for (last = 1; last <= count; ++last) {
        const Kind kind = KindOf(BackupName(path, last));
        if (kind == Kind::Other) {
            return FaultAt(last, count);
        }
        if (kind == Kind::Free) {
            return std::nullopt;
        }
    }
    last = count;
    return std::nullopt;
}

}  // namespace

std::string BackupName(const std::string& path, std::size_t number) {
    const std::filesystem::path whole(path);
    const std::string name = whole.stem().string() + "." + std::to_string(number) + whole.extension().string();
    return (whole.parent_path() / name).string();
}

std::optional<LogFault> ShiftBackups(const std::string& path, std::size_t count) {
    std::size_t last = 0;
    if (const auto fault = FindLast(path, count, last)) {
        return fault;
    }
    if (count > 1 && unlink(BackupName(path, last).c_str()) != 0 && errno != ENOENT) {
        return FaultAt(last, count);
    }
    for (std::size_t number = last; number > 1; --number) {
        if (std::rename(BackupName(path, number - 1).c_str(), BackupName(path, number).c_str()) != 0) {
            return LOG_FAULT_SHIFT;
        }
    }
    if (std::rename(path.c_str(), BackupName(path, 1).c_str()) != 0) {
        return LOG_FAULT_BACKUP;
    }
    return std::nullopt;
}

}  // namespace gvx
