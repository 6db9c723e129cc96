#include "gvxctl/peer_commands.h"

#include "base/zvs_error.h"
#include "gvxctl/member_reader.h"
#include "gvxctl/peer_set.h"
#include "gvxctl/scenario_run.h"
#include "gvxctl/terminal.h"
#include "gvxctl/transcript.h"

#include <algorithm>

namespace gvxctl {
namespace {

constexpr const char* kDefaultLink = "GVX#000";

// Text around the first '='; false without one.
bool Split(const std::string& text, std::string& name, std::string& value) {
    const std::size_t equals = text.find('=');
    name = text.substr(0, equals);
    value = equals == std::string::npos ? std::string() : text.substr(equals + 1);
    return equals != std::string::npos;
}

bool ReadNumber(const std::string& text, unsigned long most, unsigned long& number) {
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    number = std::stoul(text);
    return number <= most;
}

// Reads "TYPE[=VALUE]" for one kind of rule.
using ReadValue = bool (*)(const std::string& value, AnswerRule& rule);

bool ReadRefusal(const std::string& value, AnswerRule& rule) {
    rule.code = ZVS_FAIL;
    rule.action = AnswerRule::Action::Refuse;
    return value.empty() || ParseResult(value, rule.code);
}

bool ReadDelay(const std::string& value, AnswerRule& rule) {
    unsigned long delay = 0;
    const bool good = ReadNumber(value, 3600000, delay);
    rule.delayMs = static_cast<int>(delay);
    return good;
}

bool ReadDrop(const std::string& value, AnswerRule& rule) {
    rule.action = AnswerRule::Action::Drop;
    return value.empty();
}

bool ReadGarble(const std::string& value, AnswerRule& rule) {
    rule.action = AnswerRule::Action::Garble;
    return value.empty() || GarbleFromName(value, rule.garble);
}

bool AddRules(const std::vector<std::string>& texts, ReadValue read, std::vector<AnswerRule>& rules,
              std::string& error) {
    for (const std::string& text : texts) {
        std::string type;
        std::string value;
        AnswerRule rule;
        Split(text, type, value);
        if (!ParseMsgType(type, rule.type) || !read(value, rule)) {
            error = "no message type, or nothing that fits behind it: " + text;
            return false;
        }
        // Two words about one type make one rule, such as a refusal that comes late.
        const auto same =
            std::find_if(rules.begin(), rules.end(), [&](const AnswerRule& other) { return other.type == rule.type; });
        if (same == rules.end()) {
            rules.push_back(rule);
        } else {
            read(value, *same);
        }
    }
    return true;
}

bool OpenAll(PeerSet& peers, const std::vector<std::string>& links, std::string& error) {
    return std::all_of(links.begin(), links.end(), [&](const std::string& link) { return peers.Open(link, error); });
}

bool ListenAll(PeerSet& peers, const std::vector<std::string>& listens, Transcript& transcript, std::string& error) {
    for (const std::string& text : listens) {
        std::string link;
        std::string where;
        Endpoint local;
        if (!Split(text, link, where)) {
            error = text + " is not IDENTIFIER=[HOST:]PORT";
            return false;
        }
        if (!ParseEndpoint(where, local, error)) {
            return false;
        }
        if (!peers.Listen(link, local, error)) {
            return false;
        }
        transcript.Line(link + " listens on port " + std::to_string(peers.PortOf(link)));
    }
    return true;
}

bool Flap(PeerSet& peers, const std::vector<std::string>& links, int flaps, std::string& error) {
    for (int round = 0; round < flaps && !Interrupted(); ++round) {
        for (const std::string& link : links) {
            if (!peers.IsOpen(link)) {
                error = link + ": " + peers.CloseReason(link);
                return false;
            }
            if (!peers.Close(link, false, error) || !peers.Open(link, error)) {
                error = "round " + std::to_string(round + 1) + ": " + error;
                return false;
            }
        }
    }
    return true;
}

bool StayOpen(const PeerSet& peers, const std::vector<std::string>& links, const PeerOptions& options,
              std::string& error) {
    const bool endless = options.seconds == 0 && options.flaps == 0;
    for (int waited = 0; endless || waited < options.seconds * 10; ++waited) {
        for (const std::string& link : links) {
            if (!peers.IsOpen(link)) {
                error = link + ": " + peers.CloseReason(link);
                return false;
            }
        }
        if (!SleepUnlessInterrupted(100)) {
            return true;
        }
    }
    return true;
}

bool VarsOf(const std::vector<std::string>& texts, ScenarioVars& vars, std::string& error) {
    for (const std::string& text : texts) {
        std::string name;
        std::string value;
        if (!Split(text, name, value) || name.empty()) {
            error = text + " is not NAME=VALUE";
            return false;
        }
        vars[name] = value;
    }
    return true;
}

}  // namespace

bool RulesOf(const PeerOptions& options, std::vector<AnswerRule>& rules, std::string& error) {
    return AddRules(options.refuse, ReadRefusal, rules, error) && AddRules(options.drop, ReadDrop, rules, error) &&
           AddRules(options.garble, ReadGarble, rules, error) && AddRules(options.delay, ReadDelay, rules, error);
}

int RunPeer(const CommonOptions& common, const PeerOptions& options) {
    std::vector<AnswerRule> rules;
    std::string error;
    if (!RulesOf(options, rules, error)) {
        return Fail(kExitWrongUse, error);
    }
    std::vector<std::string> links = options.links;
    if (links.empty() && options.listens.empty()) {
        links.emplace_back(kDefaultLink);
    }
    Transcript transcript(options.full);
    PeerSet peers(common.gateway, common.ports,
                  [&transcript](const PeerSet::Traffic& traffic) { transcript.Frame(traffic); });
    for (const AnswerRule& rule : rules) {
        peers.Rules().Add(rule);
    }
    if (!ListenAll(peers, options.listens, transcript, error)) {
        return Fail(kExitWrongUse, error);
    }
    if (!OpenAll(peers, links, error)) {
        return Fail(kExitNoLink, error);
    }
    transcript.Line("linked: " + std::to_string(links.size()));
    if (!Flap(peers, links, options.flaps, error) || !StayOpen(peers, links, options, error)) {
        return Fail(kExitRefused, error);
    }
    return kExitOk;
}

int RunScenario(const CommonOptions& common, const ScenarioOptions& options) {
    ScenarioVars vars;
    Scenario scenario;
    std::string error;
    if (!VarsOf(options.vars, vars, error) || !LoadScenario(options.file, vars, scenario, error)) {
        return Fail(kExitWrongUse, "scenario " + options.file + ": " + error);
    }
    RunSettings settings{common.gateway, common.ports, options.log, options.full};
    ScenarioRun run(scenario, settings);
    return run.Run(error) ? kExitOk : Fail(kExitRefused, "scenario " + options.file + ": " + error);
}

}  // namespace gvxctl
