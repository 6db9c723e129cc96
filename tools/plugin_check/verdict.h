#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace plugin_check {

// Reads the journal of a drive and judges it.
class Verdict {
public:
    explicit Verdict(std::chrono::milliseconds limit) : m_limit(limit) {}

    // Reads until the drive has closed its end. False when a call has not returned for many times its limit: the drive
    // is then to be ended.
    bool Read(int descriptor);
    // The drive's process has ended by that signal, or with that code; to be told when it had not come to its end.
    void Ended(int signal, int code);

    // The table on standard output; true when every promise was kept.
    bool Print() const;

private:
    struct Operation {
        std::string name;
        std::map<int, int> answers;  // how often each code came
        long longestMs = 0;
    };
    struct OpenCall {
        std::string operation;
        std::chrono::steady_clock::time_point since;
    };

    void Take(const std::string& line);
    Operation& Find(const std::string& name);
    void Break(const std::string& lane, const std::string& operation, const std::string& text);
    // The time that is left for the call that has least of it, and its lane. Without an open call it is that for the
    // next line.
    std::chrono::milliseconds TimeLeft(std::string& lane) const;

    const std::chrono::milliseconds m_limit;
    std::string m_rest;                      // of the last read, without its end of line
    std::string m_plugin;                    // who it is
    std::vector<Operation> m_operations;     // in the order of their first call
    std::map<std::string, OpenCall> m_open;  // by lane
    std::vector<std::string> m_broken;       // each sentence once
    std::vector<std::string> m_figures;
    std::chrono::steady_clock::time_point m_lastLine = std::chrono::steady_clock::now();
    bool m_done = false;
};

}  // namespace plugin_check
