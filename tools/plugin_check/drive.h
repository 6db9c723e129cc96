#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace plugin_check {

class Journal;

// How long the plug-in has to show that it keeps silent.
constexpr std::chrono::milliseconds kSilence(300);
// A number that is no stream type and no channel.
constexpr std::uint32_t kUnknownType = 9999;

struct DriveOptions {
    std::string file;    // the shared object
    std::string config;  // what Init is given
    std::string extend;  // text for the plug-in's devices
    std::string ip = "127.0.0.1";
    std::uint16_t port = 0;
    std::string user;
    std::string password;
    bool changes = false;                           // operations that change a device are called as well
    bool search = true;                             // devices are searched for; a search takes some 15 s
    bool verbose = false;                           // the log goes to standard error
    std::chrono::milliseconds pictureLimit{20000};  // for the first pictures of a stream
};

// Loads the plug-in and drives every operation in the order of a gateway: one device from its making to its deletion,
// then two at a time. What happens is written into the journal as it happens. Once in a process, on its first thread.
void Drive(const DriveOptions& options, Journal& journal);

}  // namespace plugin_check
