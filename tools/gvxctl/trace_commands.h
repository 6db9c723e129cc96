#pragma once

#include "gvxctl/status_commands.h"

#include <json/value.h>

#include <string>

// Traces of devices, and what is kept of their dialogues, by the gateway's control socket. docs/operation.md tells of
// them.
namespace gvxctl {

struct TraceOptions {
    StatusOptions gateway;
    std::string device;
    int seconds = 60;
    std::string file;  // a trace by its name
    std::string out;   // where a copy of it goes; empty: there is none
};

// Exit codes as of RunStatus; an interrupt while a trace is waited for stops it, and what was traced is taken.
int RunTraceStart(const TraceOptions& options);
int RunTraceStop(const TraceOptions& options);
int RunTraceFetch(const TraceOptions& options);
int RunTraceDialogue(const TraceOptions& options);

// What is kept of a dialogue as text: a line for each message with its time and its way, its own lines below it.
// Characters that a terminal would obey show as question marks. Any thread.
std::string DialogueText(const Json::Value& answer);

}  // namespace gvxctl
