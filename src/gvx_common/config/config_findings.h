#pragma once

#include <string>
#include <vector>

namespace gvx {

// Something wrong in a file of the configuration.
struct ConfigFinding {
    enum class Weight { Warning, Error, StopsStart };

    Weight weight;
    std::string file;  // its path; empty where the text names it
    int line;          // 0 where the fault belongs to none
    std::string text;  // what is wrong, and what holds instead

    // "<file>:<line>: <text>".
    std::string Line() const;
};

// Writes the finding to the log, as a warning or an error, and gives it to the keeper. Any thread.
void TellFinding(ConfigFinding finding);

// Keeps what is told while it lives; one at a time. Any thread may tell; the owner's thread alone reads.
class FindingsKeeper {
public:
    FindingsKeeper();
    ~FindingsKeeper();
    FindingsKeeper(const FindingsKeeper&) = delete;
    FindingsKeeper& operator=(const FindingsKeeper&) = delete;

    std::vector<ConfigFinding> All() const;
    // The first finding that stops a start, as a line; empty when there is none.
    std::string WhyNoStart() const;
};

}  // namespace gvx
