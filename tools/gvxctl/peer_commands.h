#pragma once

#include "gvxctl/answer_rules.h"
#include "gvxctl/commands.h"

#include <string>
#include <vector>

namespace gvxctl {

struct PeerOptions {
    std::vector<std::string> links;    // identifiers, called in that order
    std::vector<std::string> listens;  // IDENTIFIER=[IP:]PORT
    std::vector<std::string> refuse;   // TYPE or TYPE=CODE
    std::vector<std::string> delay;    // TYPE=MILLISECONDS
    std::vector<std::string> drop;     // TYPE
    std::vector<std::string> garble;   // TYPE or TYPE=HOW
    int flaps = 0;                     // close and open every link that often
    int seconds = 0;                   // end after that time; 0: when interrupted, or behind the flaps
    bool full = false;                 // whole frames
};
// Plays any peers and prints the traffic. Exit code 1 when a link that was open has been closed by the gateway.
int RunPeer(const CommonOptions& common, const PeerOptions& options);

struct ScenarioOptions {
    std::string file;
    std::vector<std::string> vars;  // NAME=VALUE
    std::string log;                // the gateway's log file
    bool full = false;
};
// Exit code 0 when every step went as the file says, otherwise 1.
int RunScenario(const CommonOptions& common, const ScenarioOptions& options);

// The rules that the options ask for. False with the text that cannot be read.
bool RulesOf(const PeerOptions& options, std::vector<AnswerRule>& rules, std::string& error);

}  // namespace gvxctl
