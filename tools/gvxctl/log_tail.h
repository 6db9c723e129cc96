#pragma once

#include <set>
#include <string>

namespace gvxctl {

// Lines that a log file has got since this object was made. One thread.
class LogTail {
public:
    explicit LogTail(std::string path);

    const std::string& Path() const { return m_path; }
    // Finds a line that holds the pattern ('*' for any text) and has not been found before. Looks again until the time
    // is over.
    bool Find(const std::string& pattern, int withinMs);

private:
    bool Look(const std::string& pattern);

    std::string m_path;
    long long m_begin = 0;
    std::set<long long> m_found;  // places of the lines in the file
};

}  // namespace gvxctl
