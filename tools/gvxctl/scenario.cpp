#include "gvxctl/scenario.h"

#include "base/json_io.h"
#include "base/whole_file.h"
#include "gvxctl/socket_util.h"

#include <json/value.h>

namespace gvxctl {
namespace {

// Into every text of a JSON value, save the names of members. Names that begin with "port:" stay for the run.
bool FillJson(Json::Value& value, const ScenarioVars& vars, std::string& error) {
    const auto lookup = [&vars](const std::string& name, std::string& found) {
        const auto entry = vars.find(name);
        found = entry == vars.end() ? std::string() : entry->second;
        return entry != vars.end();
    };
    if (value.isString()) {
        std::string text = value.asString();
        const bool good = FillText(text, lookup, "port:", error);
        value = text;
        return good;
    }
    if (value.isArray() || value.isObject()) {
        for (Json::Value& part : value) {
            if (!FillJson(part, vars, error)) {
                return false;
            }
        }
    }
    return true;
}

bool IsLinkId(const std::string& link) {
    const auto printable = [](char c) { return c > ' ' && c <= '~'; };
    std::size_t good = 0;
    for (const char c : link) {
        good += printable(c) ? 1u : 0u;
    }
    return !link.empty() && link.size() <= 40 && good == link.size() && link.find('#') != std::string::npos;
}

void ReadLink(MemberReader& reader, std::string& link) {
    reader.MustText("link", link);
    if (!IsLinkId(link)) {
        reader.Fail("\"link\" is no identifier of 1 to 40 printable characters with a '#': " + link);
    }
}

void Read(MemberReader& reader, OpenStep& step) {
    ReadLink(reader, step.link);
    reader.Text("listen", step.listen);
    Endpoint local;
    std::string error;
    if (!step.listen.empty() && !ParseEndpoint(step.listen, local, error)) {
        reader.Fail("\"listen\": " + error);
    }
}

void Read(MemberReader& reader, CloseStep& step) {
    ReadLink(reader, step.link);
    reader.Flag("stop", step.stop);
}

void Read(MemberReader& reader, SendStep& step) {
    ReadLink(reader, step.link);
    reader.MustType("type", step.head.type);
    reader.Text("transaction", step.head.transaction);
    long long seq = 0;
    reader.Number("seq", 0, 0xFFFFFFFF, seq);
    reader.Result("code", step.head.code);
    step.head.seq = static_cast<std::uint32_t>(seq);
    reader.Body(step.body);
    if (step.head.transaction.size() > 63) {
        reader.Fail("\"transaction\" is longer than 63 characters");
    }
}

void Read(MemberReader& reader, ExpectStep& step) {
    ReadLink(reader, step.link);
    step.pattern.Read(reader);
    reader.Milliseconds("within_ms", step.withinMs);
    reader.Flag("none", step.none);
    reader.Flag("next", step.next);
    reader.Flag("reply", step.reply);
    if (step.none && step.next) {
        reader.Fail("\"none\" and \"next\" exclude each other");
    }
}

void Read(MemberReader& reader, LinkStep& step) {
    std::string state;
    ReadLink(reader, step.link);
    reader.MustText("state", state);
    step.open = state == "open";
    if (!step.open && state != "closed") {
        reader.Fail("\"state\" is neither \"open\" nor \"closed\": " + state);
    }
    reader.Milliseconds("within_ms", step.withinMs);
    reader.Milliseconds("for_ms", step.forMs);
}

void ReadAction(MemberReader& reader, AnswerStep& step) {
    std::string action = "answer";
    std::string garble = "body";
    reader.Text("do", action);
    reader.Text("garble", garble);
    step.clear = action == "default";
    if (action == "refuse") {
        step.rule.action = AnswerRule::Action::Refuse;
    } else if (action == "drop") {
        step.rule.action = AnswerRule::Action::Drop;
    } else if (action == "garble") {
        step.rule.action = AnswerRule::Action::Garble;
    } else if (action != "answer" && !step.clear) {
        reader.Fail("\"do\" is none of answer, refuse, drop, garble, default: " + action);
    }
    if (!GarbleFromName(garble, step.rule.garble)) {
        reader.Fail("\"garble\" is none of body, head, transaction, type, twice: " + garble);
    }
}

void Read(MemberReader& reader, AnswerStep& step) {
    reader.MustType("type", step.rule.type);
    if (reader.Has("link")) {
        ReadLink(reader, step.rule.link);
    }
    ReadAction(reader, step);
    long long times = 0;
    reader.Result("code", step.rule.code);
    reader.Number("times", 0, 1000000, times);
    step.rule.times = static_cast<int>(times);
    reader.Milliseconds("delay_ms", step.rule.delayMs);
    reader.Body(step.rule.body);
}

void Read(MemberReader& reader, LogStep& step) {
    reader.MustText("text", step.text);
    reader.Milliseconds("within_ms", step.withinMs);
}

template <typename Action>
bool ReadObject(const Json::Value& members, Step& step, std::string& fault) {
    MemberReader reader(members);
    Action action;
    Read(reader, action);
    const bool good = reader.Finish();
    fault = reader.Fault();
    step.action = std::move(action);
    return good;
}

bool ReadSay(const Json::Value& value, Step& step, std::string& fault) {
    fault = value.isString() ? "" : "is no text";
    step.action = SayStep{value.isString() ? value.asString() : std::string()};
    return value.isString();
}

bool ReadWait(const Json::Value& value, Step& step, std::string& fault) {
    constexpr int kMostMs = 3600 * 1000;
    const bool good = value.isInt() && value.asInt() >= 0 && value.asInt() <= kMostMs;
    fault = good ? "" : "is no number of milliseconds from 0 to " + std::to_string(kMostMs);
    step.action = WaitStep{good ? value.asInt() : 0};
    return good;
}

struct Kind {
    const char* name;
    bool (*read)(const Json::Value& value, Step& step, std::string& fault);
};
constexpr Kind kKinds[] = {
    {"say", ReadSay},
    {"open", ReadObject<OpenStep>},
    {"close", ReadObject<CloseStep>},
    {"send", ReadObject<SendStep>},
    {"expect", ReadObject<ExpectStep>},
    {"expect_link", ReadObject<LinkStep>},
    {"expect_log", ReadObject<LogStep>},
    {"answer", ReadObject<AnswerStep>},
    {"wait_ms", ReadWait},
};

// Reads one step, an object with the step's name as its only member. False with the fault, which begins with the
// step's name where there is one. Repetitions are none of its business.
bool ReadStep(const Json::Value& object, Step& step, std::string& error) {
    if (!object.isObject() || object.size() != 1) {
        error = "is no object with the name of one step as its only member";
        return false;
    }
    const std::string name = object.getMemberNames()[0];
    for (const Kind& kind : kKinds) {
        if (name == kind.name) {
            step.name = kind.name;
            const bool good = kind.read(object[name], step, error);
            error = "(" + name + "): " + error;
            return good;
        }
    }
    error = "there is no such step: \"" + name + "\"";
    return false;
}

void ReadVars(MemberReader& reader, ScenarioVars& vars) {
    const Json::Value* object = reader.Object("vars");
    if (object == nullptr) {
        return;
    }
    for (const std::string& name : object->getMemberNames()) {
        if (!(*object)[name].isString()) {
            return reader.Fail("\"vars\": \"" + name + "\" is no text");
        }
        vars.emplace(name, (*object)[name].asString());
    }
}

void ReadPorts(MemberReader& reader, Scenario& scenario) {
    const Json::Value* object = reader.Object("ports");
    if (object == nullptr) {
        return;
    }
    MemberReader ports(*object);
    std::string udp;
    std::string tcp;
    ports.Text("udp", udp);
    ports.Text("tcp", tcp);
    scenario.hasPorts = true;
    if ((!udp.empty() && !ParsePortRange(udp, scenario.ports.udp)) ||
        (!tcp.empty() && !ParsePortRange(tcp, scenario.ports.tcp))) {
        ports.Fail("not a range such as \"40000-40100\"");
    }
    if (!ports.Finish()) {
        reader.Fail("\"ports\": " + ports.Fault());
    }
}

bool AddSteps(const Json::Value& list, const std::string& prefix, const ScenarioVars& vars, Scenario& scenario,
              std::string& error);

// {"repeat": {"times": N, "steps": [...]}}; not within another one, which keeps the labels readable.
bool AddRepetition(const Json::Value& object, const std::string& label, const ScenarioVars& vars, Scenario& scenario,
                   std::string& error) {
    MemberReader reader(object["repeat"]);
    long long times = 1;
    reader.Number("times", 1, static_cast<long long>(kMaxScenarioSteps), times);
    const Json::Value* steps = reader.MustArray("steps");
    if (!reader.Finish()) {
        error = "step " + label + " (repeat): " + reader.Fault();
        return false;
    }
    for (long long round = 0; round < times; ++round) {
        if (!AddSteps(*steps, label + ".", vars, scenario, error)) {
            return false;
        }
    }
    return true;
}

bool AddStep(Json::Value object, const std::string& label, const ScenarioVars& vars, Scenario& scenario,
             std::string& error) {
    Step step;
    step.label = label;
    std::string fault;
    if (!FillJson(object, vars, fault) || !ReadStep(object, step, fault)) {
        error = "step " + label + " " + fault;
        return false;
    }
    if (scenario.steps.size() >= kMaxScenarioSteps) {
        error = "more than " + std::to_string(kMaxScenarioSteps) + " steps, repetitions counted";
        return false;
    }
    scenario.steps.push_back(std::move(step));
    return true;
}

bool AddSteps(const Json::Value& list, const std::string& prefix, const ScenarioVars& vars, Scenario& scenario,
              std::string& error) {
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        const std::string label = prefix + std::to_string(i + 1);
        const bool repeats = prefix.empty() && list[i].isObject() && list[i].size() == 1 && list[i].isMember("repeat");
        if (!(repeats ? AddRepetition(list[i], label, vars, scenario, error)
                      : AddStep(list[i], label, vars, scenario, error))) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool FillText(std::string& text, const VarLookup& valueOf, const std::string& later, std::string& error) {
    for (std::size_t begin = text.find("${"); begin != std::string::npos; begin = text.find("${", begin)) {
        const std::size_t end = text.find('}', begin);
        if (end == std::string::npos) {
            error = "a \"${\" has no end";
            return false;
        }
        const std::string name = text.substr(begin + 2, end - begin - 2);
        std::string value;
        if (valueOf(name, value)) {
            text.replace(begin, end + 1 - begin, value);
            begin += value.size();
        } else if (!later.empty() && name.compare(0, later.size(), later) == 0) {
            begin = end;
        } else {
            error = "there is no value for \"" + name + "\"";
            return false;
        }
    }
    return true;
}

bool ParseScenario(const std::string& text, const ScenarioVars& given, Scenario& scenario, std::string& error) {
    Json::Value document;
    if (text.size() > kMaxScenarioBytes) {
        error = "longer than " + std::to_string(kMaxScenarioBytes) + " bytes";
        return false;
    }
    if (!gvx::ParseJson(text.data(), text.size(), document, &error)) {
        error = "no JSON: " + error;
        return false;
    }
    scenario = Scenario{};
    ScenarioVars vars = given;
    MemberReader reader(document);
    reader.Text("name", scenario.name);
    ReadVars(reader, vars);
    ReadPorts(reader, scenario);
    const Json::Value* steps = reader.MustArray("steps");
    if (!reader.Finish()) {
        error = reader.Fault();
        return false;
    }
    return AddSteps(*steps, std::string(), vars, scenario, error);
}

bool LoadScenario(const std::string& path, const ScenarioVars& given, Scenario& scenario, std::string& error) {
    std::string text;
    if (!gvx::ReadWholeFile(path, kMaxScenarioBytes, text)) {
        error = "cannot be read, or is longer than " + std::to_string(kMaxScenarioBytes) + " bytes";
        return false;
    }
    return ParseScenario(text, given, scenario, error);
}

}  // namespace gvxctl
