#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

namespace plugin_check {

// What the process that drives the plug-in tells the one that judges it, line by line through a pipe: the latter keeps
// what was told when the former hangs or dies.
//
// A line holds fields parted by tabs: what it is (see below), the lane, the operation and the rest.
constexpr char kBegun = 'B';    // a call begins
constexpr char kEnded = 'E';    // it has returned: code, milliseconds
constexpr char kBroken = 'X';   // a broken promise: one sentence
constexpr char kPlugin = 'P';   // who the plug-in is, instead of an operation
constexpr char kFigure = 'F';   // what is worth knowing beside: one sentence
constexpr char kAllDone = 'D';  // the drive has come to its end

constexpr const char* kSdk = "plug-in";  // the lane of calls that concern no device

// Calls of one lane come one after the other; a lane is a device's thread, or that of the plug-in object.
class Journal {
public:
    // Writes to the descriptor, which stays the caller's.
    explicit Journal(int descriptor) : m_descriptor(descriptor) {}

    // Carries out a call into the plug-in and gives its code; an exception is a broken promise and ZVS_FAIL.
    int Call(const std::string& lane, const std::string& operation, const std::function<int()>& call);
    // The same for a call that has to be refused.
    void MustRefuse(const std::string& lane, const std::string& operation, const std::function<int()>& call);

    void Broken(const std::string& lane, const std::string& operation, const std::string& text);
    void Figure(const std::string& lane, const std::string& operation, const std::string& text);
    void Write(char kind, const std::string& lane, const std::string& operation, std::string rest);

private:
    const int m_descriptor;
    std::mutex m_mutex;  // One line at a time.
};

}  // namespace plugin_check
