#include "gvxctl/scenario.h"

#include "base/json_io.h"
#include "base/whole_file.h"
#include "gvxctl/scenario_steps.h"
#include "gvxctl/scenario_vars.h"

namespace gvxctl {
namespace {

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
