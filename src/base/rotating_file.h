#pragma once

#include "base/log_fault.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace gvx {

// A file of lines that becomes a backup when it would grow beyond its limit: "a.log" is renamed to "a.1.log", that to
// "a.2.log" and so on; the oldest goes. It never gives a line up while there is a place for it: a file whose name is
// gone is written on until its name can be opened again, and one that cannot become a backup grows to four times the
// limit. What is lost all the same is counted. One thread at a time.
class RotatingFile {
public:
    // Without backups a full file is emptied. Files that are no regular ones, such as pipes, have no limit.
    RotatingFile(std::string path, std::size_t maxBytes, std::size_t maxBackups);
    ~RotatingFile();
    RotatingFile(const RotatingFile&) = delete;
    RotatingFile& operator=(const RotatingFile&) = delete;

    // Opens the file, whose folder is made when it is missing. False when that fails; error then says why. Lines are
    // then lost until Check finds that the file can be opened.
    bool Open(std::string& error);

    // Takes one line with its end. It may wait in the buffer until Flush.
    void Append(const char* line, std::size_t length);
    void Flush();
    // Leaves the file that is open for the one at the name, which is made when it is missing.
    void OpenAnew();

    // Looks whether the faults in force have ended, and for those that show without a line. note makes the line that
    // tells of lost lines; it is written first when lines can be written again.
    void Check(LogFileState& state, const std::function<std::string(std::uint64_t lost)>& note);

private:
    // The file at the name, made when it is missing; the open one stays when that fails.
    bool OpenNamed();
    bool NameIsOurs() const;
    bool FolderIsWritable() const;
    void CheckName();
    void CheckSpace(const std::function<std::string(std::uint64_t)>& note);
    void CheckBackups();
    // True when less than that many bytes are left on the file system.
    bool SpaceBelow(std::uint64_t bytes) const;

    bool MakeRoom();
    bool Empty();
    void WriteBuffer();
    void DropUnwritten(std::size_t written);
    void Raise(LogFault fault);
    void End(LogFault fault) { m_open.Set(fault, false); }

    const std::string m_path;
    const std::string m_folder;
    const std::size_t m_maxBytes;
    const std::size_t m_maxBackups;
    int m_descriptor = -1;
    bool m_regular = true;
    bool m_nameIsGone = false;
    std::size_t m_size = 0;
    std::size_t m_tryAgainAt = 0;  // the size at which making room is tried again after a failure
    std::string m_buffer;
    std::uint64_t m_lost = 0;
    LogFaultSet m_open;
    LogFaultSet m_occurred;
};

}  // namespace gvx
