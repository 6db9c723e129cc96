#include "base/rotating_file.h"

#include "base/shortage.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace gvx {

namespace {

// The name of a backup: "a.log" gives "a.3.log".
std::string BackupName(const std::string& path, std::size_t number) {
    const std::filesystem::path whole(path);
    const std::string name = whole.stem().string() + "." + std::to_string(number) + whole.extension().string();
    return (whole.parent_path() / name).string();
}

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

constexpr std::size_t kBufferBytes = 16u * 1024u;
constexpr std::size_t kMostTimesLimit = 4;
// A file system counts as full below the first and as usable again from the second on: a short line may still find a
// place where a longer one does not.
constexpr std::uint64_t kFullBelowBytes = 16u * 1024u;
constexpr std::uint64_t kUsableFromBytes = 64u * 1024u;

std::string FolderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

// Makes the file its first backup and moves the older ones on, up to the first free name; the one that would be beyond
// count is removed. Nothing is moved when a name is taken by what is no file. No value for success.
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

}  // namespace

RotatingFile::RotatingFile(std::string path, std::size_t maxBytes, std::size_t maxBackups)
    : m_path(std::move(path)), m_folder(FolderOf(m_path)), m_maxBytes(maxBytes), m_maxBackups(maxBackups) {
    m_buffer.reserve(kBufferBytes);
}

RotatingFile::~RotatingFile() {
    if (m_descriptor >= 0) {
        WriteBuffer();
        close(m_descriptor);
    }
}

bool RotatingFile::Open(std::string& error) {
    std::error_code ignored;  // opening says what is wrong
    std::filesystem::create_directories(m_folder, ignored);
    errno = 0;
    if (OpenNamed()) {
        return true;
    }
    NoteShortage(errno);
    error = m_path + ": " + std::strerror(errno);
    return false;
}

bool RotatingFile::OpenNamed() {
    // A pipe must not hold the process up.
    const int fresh = open(m_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0644);
    struct stat status {};
    if (fresh < 0 || fstat(fresh, &status) != 0) {
        if (fresh >= 0) {
            close(fresh);
        }
        return false;
    }
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
    m_descriptor = fresh;
    m_regular = S_ISREG(status.st_mode);
    m_size = m_regular ? static_cast<std::size_t>(status.st_size) : 0;
    m_tryAgainAt = 0;
    m_nameIsGone = false;
    return true;
}

void RotatingFile::Append(const char* line, std::size_t length) {
    const std::size_t have = m_size + m_buffer.size();
    if (m_regular && have > 0 && have + length > m_maxBytes) {
        const std::size_t most = m_maxBytes * kMostTimesLimit;
        const bool beyond = have + length > most;
        if ((beyond || have >= m_tryAgainAt) && !MakeRoom() && beyond) {
            Raise(LOG_FAULT_BOUND);
            ++m_lost;
            return;
        }
    }
    m_buffer.append(line, length);
    if (m_buffer.size() >= kBufferBytes) {
        WriteBuffer();
    }
}

void RotatingFile::Flush() {
    WriteBuffer();
}

void RotatingFile::OpenAnew() {
    WriteBuffer();
    m_nameIsGone = !OpenNamed();
    if (m_nameIsGone) {
        Raise(LOG_FAULT_OPEN);
    }
}

// True when the file has been made a backup and a fresh one begun.
bool RotatingFile::MakeRoom() {
    WriteBuffer();
    m_tryAgainAt = m_size + std::max<std::size_t>(m_maxBytes / 4, 1);
    if (!m_nameIsGone) {
        if (m_maxBackups == 0) {
            return Empty();
        }
        if (const auto fault = ShiftBackups(m_path, m_maxBackups)) {
            Raise(*fault);
            return false;
        }
        m_nameIsGone = true;
    }
    if (!OpenNamed()) {
        Raise(LOG_FAULT_OPEN);
        return false;
    }
    return true;
}

bool RotatingFile::Empty() {
    if (ftruncate(m_descriptor, 0) != 0) {
        Raise(LOG_FAULT_BACKUP);
        return false;
    }
    m_size = 0;
    return true;
}

void RotatingFile::WriteBuffer() {
    std::size_t written = 0;
    while (written < m_buffer.size()) {
        const ssize_t count = write(m_descriptor, m_buffer.data() + written, m_buffer.size() - written);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            DropUnwritten(written);
            break;
        }
        written += static_cast<std::size_t>(count);
    }
    m_size += m_regular ? std::min(written, m_buffer.size()) : 0;
    m_buffer.clear();
}

// Half a line would run into the next one, so it is taken back.
void RotatingFile::DropUnwritten(std::size_t written) {
    const std::size_t lastEnd = written == 0 ? std::string::npos : m_buffer.rfind('\n', written - 1);
    const std::size_t whole = lastEnd == std::string::npos ? 0 : lastEnd + 1;
    struct stat status {};
    if (m_regular && whole < written && fstat(m_descriptor, &status) == 0) {
        const off_t rest = static_cast<off_t>(written - whole);
        [[maybe_unused]] const int ignored = ftruncate(m_descriptor, std::max<off_t>(status.st_size - rest, 0));
    }
    m_lost += static_cast<std::uint64_t>(
        std::count(m_buffer.begin() + static_cast<std::ptrdiff_t>(whole), m_buffer.end(), '\n'));
    m_buffer.resize(whole);
    Raise(m_descriptor < 0 ? LOG_FAULT_OPEN : LOG_FAULT_WRITE);
}

void RotatingFile::Raise(LogFault fault) {
    m_open.Set(fault, true);
    m_occurred.Set(fault, true);
}

void RotatingFile::Check(LogFileState& state, const std::function<std::string(std::uint64_t lost)>& note) {
    state.folder = m_folder;
    state.name = std::filesystem::path(m_path).filename().string();
    WriteBuffer();
    CheckName();
    CheckBackups();
    CheckSpace(note);
    state.occurred = m_occurred;
    state.open = m_open;
    m_occurred = LogFaultSet();
}

bool RotatingFile::NameIsOurs() const {
    struct stat named {};
    struct stat held {};
    return stat(m_path.c_str(), &named) == 0 && fstat(m_descriptor, &held) == 0 && named.st_dev == held.st_dev &&
           named.st_ino == held.st_ino;
}

bool RotatingFile::FolderIsWritable() const {
    return faccessat(AT_FDCWD, m_folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

void RotatingFile::CheckName() {
    m_nameIsGone = !NameIsOurs() && !OpenNamed();
    if (m_nameIsGone || (m_regular && !FolderIsWritable())) {
        Raise(LOG_FAULT_OPEN);
    } else {
        End(LOG_FAULT_OPEN);
    }
    struct stat held {};
    if (m_regular && fstat(m_descriptor, &held) == 0) {
        m_size = static_cast<std::size_t>(held.st_size);  // somebody else may have emptied it
    }
}

void RotatingFile::CheckBackups() {
    if ((m_open.HasBackupFault() || m_open.Has(LOG_FAULT_BOUND)) && (m_size <= m_maxBytes || MakeRoom())) {
        for (const LogFault fault : {LOG_FAULT_BACKUP, LOG_FAULT_SHIFT, LOG_FAULT_REMOVE, LOG_FAULT_BOUND}) {
            End(fault);
        }
    }
}

bool RotatingFile::SpaceBelow(std::uint64_t bytes) const {
    struct statvfs status {};
    if (!m_regular || fstatvfs(m_descriptor, &status) != 0 || status.f_blocks == 0) {
        return false;  // a file system without a size of its own
    }
    const std::uint64_t blocks = geteuid() == 0 ? status.f_bfree : status.f_bavail;
    return blocks * status.f_frsize < bytes;
}

void RotatingFile::CheckSpace(const std::function<std::string(std::uint64_t)>& note) {
    if (SpaceBelow(m_open.Has(LOG_FAULT_WRITE) ? kUsableFromBytes : kFullBelowBytes)) {
        Raise(LOG_FAULT_WRITE);
        return;
    }
    End(LOG_FAULT_WRITE);
    if (m_lost == 0 || m_descriptor < 0 || m_open.Has(LOG_FAULT_BOUND)) {
        return;
    }
    const std::uint64_t lost = std::exchange(m_lost, 0);
    m_buffer.append(note(lost));
    WriteBuffer();
    if (m_open.Has(LOG_FAULT_WRITE)) {
        m_lost = lost;  // the note was lost itself
    }
}

}  // namespace gvx
