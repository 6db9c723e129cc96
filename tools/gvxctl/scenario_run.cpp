#include "gvxctl/scenario_run.h"

#include "base/clock.h"
#include "gvxctl/frame_text.h"
#include "gvxctl/terminal.h"

#include <cstring>

#include <unistd.h>

namespace gvxctl {
namespace {

constexpr const char* kPortOf = "port:";

}  // namespace

ScenarioRun::ScenarioRun(const Scenario& scenario, const RunSettings& settings)
    : m_scenario(scenario),
      m_transcript(settings.full),
      m_log(settings.log.empty() ? nullptr : std::make_unique<LogTail>(settings.log)),
      m_peers(settings.gateway, scenario.hasPorts ? scenario.ports : settings.ports,
              [this](const PeerSet::Traffic& traffic) {
                  m_transcript.Frame(traffic);
                  if (traffic.incoming) {
                      m_inbox.Add(traffic.linkId, traffic.frame);
                  }
              }) {}

bool ScenarioRun::Run(std::string& error) {
    m_transcript.Line("scenario " + m_scenario.name + ", " + std::to_string(m_scenario.steps.size()) + " steps");
    for (const Step& step : m_scenario.steps) {
        if (!Do(step)) {
            error = "step " + step.label + " (" + step.name + "): " + m_fault;
            return false;
        }
    }
    m_transcript.Line("passed");
    return true;
}

bool ScenarioRun::Do(const Step& step) {
    m_told.clear();
    m_fault.clear();
    const bool good = std::visit(*this, step.action) && !Interrupted();
    if (!good && m_fault.empty()) {
        m_fault = "interrupted";
    }
    const bool says = std::holds_alternative<SayStep>(step.action);
    m_transcript.Line("step " + step.label + " " + step.name + " " + m_told +
                      (good ? (says ? "" : "; ok") : "; FAILED: " + m_fault));
    return good;
}

// Ports of listeners are known only now.
bool ScenarioRun::Fill(std::string& text) {
    const auto lookup = [this](const std::string& name, std::string& value) {
        const bool isPort = name.compare(0, std::strlen(kPortOf), kPortOf) == 0;
        const std::uint16_t port = isPort ? m_peers.PortOf(name.substr(std::strlen(kPortOf))) : std::uint16_t{0};
        value = std::to_string(port);
        return port != 0;
    };
    return FillText(text, lookup, std::string(), m_fault);
}

bool ScenarioRun::FillPattern(FramePattern& pattern) {
    bool good = Fill(pattern.body);
    for (auto* rows : {&pattern.fields, &pattern.xml}) {
        for (auto& row : *rows) {
            good = good && Fill(row.second);
        }
    }
    return good;
}

bool ScenarioRun::operator()(const SayStep& step) {
    m_told = step.text;
    return true;
}

bool ScenarioRun::operator()(const OpenStep& step) {
    m_told = step.link;
    if (step.listen.empty()) {
        m_inbox.Forget(step.link);  // what an earlier link of that identifier has left
        return m_peers.Open(step.link, m_fault);
    }
    Endpoint local;
    const bool good = ParseEndpoint(step.listen, local, m_fault) && m_peers.Listen(step.link, local, m_fault);
    m_told += " listens on port " + std::to_string(m_peers.PortOf(step.link));
    return good;
}

bool ScenarioRun::operator()(const CloseStep& step) {
    m_told = step.link + (step.stop ? " and stop listening" : "");
    return m_peers.Close(step.link, step.stop, m_fault);
}

bool ScenarioRun::operator()(const SendStep& step) {
    FrameSpec frame = step.head;
    ++m_sent;
    frame.seq = frame.seq != 0 ? frame.seq : m_sent;
    if (frame.transaction.empty()) {
        frame.transaction = "gvxctl-" + std::to_string(::getpid()) + "-" + std::to_string(m_sent);
    }
    frame.tag = step.body.tag;
    frame.body = step.body.content;
    m_told = step.link + " " + TypeText(frame.type);
    m_lastTransaction = frame.transaction;
    return Fill(frame.body) && m_peers.Send(step.link, frame, m_fault);
}

bool ScenarioRun::operator()(const ExpectStep& step) {
    FramePattern pattern = step.pattern;
    if (!FillPattern(pattern)) {
        return false;
    }
    m_told = step.link + (step.none ? " no " : " ") + pattern.Describe() + (step.next ? ", next" : "") +
             (step.reply ? ", reply" : "");
    const auto test = [&](const Frame& frame) {
        return pattern.Matches(frame) && (!step.reply || frame.Transaction() == m_lastTransaction);
    };
    return Judge(step, m_inbox.Take(step.link, test, step.next, step.withinMs));
}

bool ScenarioRun::Judge(const ExpectStep& step, Inbox::Result result) {
    const bool good = step.none ? result == Inbox::Result::Nothing : result == Inbox::Result::Taken;
    if (good) {
        return true;
    }
    const std::string waiting = m_inbox.Waiting(step.link);
    const std::string came = waiting.empty() ? "nothing else came" : "there is " + waiting;
    m_fault = step.none                        ? "it came"
              : result == Inbox::Result::Other ? "something else came first: " + came
                                               : "not within " + std::to_string(step.withinMs) + " ms, " + came;
    if (!step.none && !m_peers.IsOpen(step.link)) {
        m_fault += ", the link is not open " + m_peers.CloseReason(step.link);
    }
    return false;
}

bool ScenarioRun::WaitForState(const LinkStep& step) const {
    constexpr int kStepMs = 20;
    const std::int64_t end = gvx::MonotonicMilliseconds() + step.withinMs;
    while (m_peers.IsOpen(step.link) != step.open) {
        if (gvx::MonotonicMilliseconds() >= end || !SleepUnlessInterrupted(kStepMs)) {
            return false;
        }
    }
    return true;
}

bool ScenarioRun::StaysSo(const LinkStep& step) const {
    constexpr int kStepMs = 20;
    const std::int64_t end = gvx::MonotonicMilliseconds() + step.forMs;
    while (gvx::MonotonicMilliseconds() < end && SleepUnlessInterrupted(kStepMs)) {
        if (m_peers.IsOpen(step.link) != step.open) {
            return false;
        }
    }
    return true;
}

bool ScenarioRun::operator()(const LinkStep& step) {
    const std::string state = step.open ? "open" : "closed";
    m_told = step.link + " " + state + (step.forMs == 0 ? "" : " for " + std::to_string(step.forMs) + " ms");
    if (!WaitForState(step)) {
        m_fault = "not " + state + " within " + std::to_string(step.withinMs) + " ms " + m_peers.CloseReason(step.link);
        return false;
    }
    if (!StaysSo(step)) {
        m_fault = "it did not stay " + state;
        return false;
    }
    return true;
}

bool ScenarioRun::operator()(const AnswerStep& step) {
    m_told = TypeText(step.rule.type) + " " + (step.clear ? "by default" : RuleText(step.rule)) +
             (step.rule.link.empty() ? "" : " on " + step.rule.link) +
             (step.rule.times == 0 ? "" : ", " + std::to_string(step.rule.times) + " times");
    if (step.clear) {
        m_peers.Rules().Clear(step.rule.type, step.rule.link);
        return true;
    }
    AnswerRule rule = step.rule;
    const bool good = Fill(rule.body.content);
    m_peers.Rules().Add(rule);
    return good;
}

bool ScenarioRun::operator()(const WaitStep& step) {
    m_told = std::to_string(step.milliseconds);
    return SleepUnlessInterrupted(step.milliseconds);
}

bool ScenarioRun::operator()(const LogStep& step) {
    std::string text = step.text;
    const bool filled = Fill(text);
    m_told = text;
    if (!filled) {
        return false;
    }
    if (m_log == nullptr) {
        m_told += "  (not looked at: no log file is given)";
        return true;
    }
    if (m_log->Find(text, step.withinMs)) {
        return true;
    }
    m_fault = "no such line in " + m_log->Path() + " within " + std::to_string(step.withinMs) + " ms";
    return false;
}

}  // namespace gvxctl
