#pragma once

#include <json/value.h>

#include <string>

// What the gateway's control socket tells; none of these is a link. docs/status.md names the members.
namespace gvxctl {

struct StatusOptions {
    std::string socket;  // its path; empty: where the gateway has it by default
    bool json = false;
    std::string level;  // the new log level; empty: it is only shown
    int count = 0;      // top: end after so many pictures; 0: until interrupted
    int periodMs = 1000;
};

// Sends one request and takes its answer. False with the reason, also the gateway's own.
bool AskGateway(const StatusOptions& options, const std::string& request, Json::Value& answer, std::string& error);

// Sends one request, such as "devices", and prints the answer as a table, or as it came. Exit code 0; 1 when the socket
// cannot be reached or the gateway refuses.
int RunStatus(const StatusOptions& options, const std::string& request);
int RunLogLevel(const StatusOptions& options);
// Shows the status again and again, in place where standard output is a terminal.
int RunTop(const StatusOptions& options);

// The answer to that request as a table, with line feeds. Any thread.
std::string StatusTable(const std::string& request, const Json::Value& answer);

}  // namespace gvxctl
