#pragma once

#include "gvxctl/frame_pattern.h"
#include "gvxctl/port_service.h"

#include <functional>
#include <map>
#include <string>
#include <variant>
#include <vector>

// What a scenario file says; docs/gvxctl.md describes its form. Any thread.
namespace gvxctl {

struct SayStep {
    std::string text;
};

struct OpenStep {
    std::string link;
    std::string listen;  // where the gateway is waited for; empty: this side calls the gateway
};

struct CloseStep {
    std::string link;
    bool stop = false;  // a listener ends as well
};

struct SendStep {
    std::string link;
    FrameSpec head;  // without the body
    BodySpec body;
};

struct ExpectStep {
    std::string link;
    FramePattern pattern;
    int withinMs = 20000;
    bool none = false;   // no such frame may come in that time
    bool next = false;   // nothing else may have come on the link before it
    bool reply = false;  // carries the transaction that was sent last
};

struct LinkStep {
    std::string link;
    bool open = true;
    int withinMs = 20000;
    int forMs = 0;  // stays so for that long
};

struct AnswerStep {
    AnswerRule rule;
    bool clear = false;  // the default answer again
};

struct WaitStep {
    int milliseconds = 0;
};

// A line in the gateway's log, behind the one that was found last.
struct LogStep {
    std::string text;  // a pattern that a part of the line fits
    int withinMs = 20000;
};

struct Step {
    std::string label;  // its place in the file: "7", within a repetition "7.2"
    const char* name = "";
    std::variant<SayStep, OpenStep, CloseStep, SendStep, ExpectStep, LinkStep, AnswerStep, WaitStep, LogStep> action;
};

struct Scenario {
    std::string name;
    bool hasPorts = false;  // ports stand in the file and go before those of the command line
    PortRanges ports;
    std::vector<Step> steps;
};

using ScenarioVars = std::map<std::string, std::string>;

constexpr std::size_t kMaxScenarioBytes = 1u << 20;
constexpr std::size_t kMaxScenarioSteps = 20000;  // with every repetition counted

// Reads a scenario whole before anything of it runs. `given` goes before the variables of the file. False with a
// reason that names the step.
bool ParseScenario(const std::string& text, const ScenarioVars& given, Scenario& scenario, std::string& error);
bool LoadScenario(const std::string& path, const ScenarioVars& given, Scenario& scenario, std::string& error);

// Puts values for ${name} into a text, in one pass: a value that holds such a name is not looked into. `valueOf`
// answers false for a name that has no value. That is a fault, which names it; a name that begins with `later` stays.
using VarLookup = std::function<bool(const std::string& name, std::string& value)>;
bool FillText(std::string& text, const VarLookup& valueOf, const std::string& later, std::string& error);

}  // namespace gvxctl
