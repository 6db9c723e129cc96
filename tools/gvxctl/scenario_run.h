#pragma once

#include "gvxctl/inbox.h"
#include "gvxctl/log_tail.h"
#include "gvxctl/peer_set.h"
#include "gvxctl/scenario.h"
#include "gvxctl/transcript.h"

#include <memory>
#include <string>

namespace gvxctl {

struct RunSettings {
    Endpoint gateway;
    PortRanges ports;
    std::string log;    // the gateway's log file; empty: "expect_log" is passed over
    bool full = false;  // whole frames in the transcript
};

// Carries a scenario out, step by step, and prints the transcript. One thread calls.
class ScenarioRun {
public:
    ScenarioRun(const Scenario& scenario, const RunSettings& settings);

    // False when a step fails, with the step and its fault; the steps behind it are not carried out.
    bool Run(std::string& error);

    // One step of each kind. Text about the step goes to m_told, a fault to m_fault.
    bool operator()(const SayStep& step);
    bool operator()(const OpenStep& step);
    bool operator()(const CloseStep& step);
    bool operator()(const SendStep& step);
    bool operator()(const ExpectStep& step);
    bool operator()(const LinkStep& step);
    bool operator()(const AnswerStep& step);
    bool operator()(const WaitStep& step);
    bool operator()(const LogStep& step);

private:
    bool Do(const Step& step);
    bool Fill(std::string& text);
    bool FillPattern(FramePattern& pattern);
    bool WaitForState(const LinkStep& step) const;
    bool StaysSo(const LinkStep& step) const;
    bool Judge(const ExpectStep& step, Inbox::Result result);

    const Scenario& m_scenario;
    Transcript m_transcript;
    Inbox m_inbox;
    std::unique_ptr<LogTail> m_log;
    std::string m_told;
    std::string m_fault;
    std::string m_lastTransaction;
    unsigned m_sent = 0;
    PeerSet m_peers;  // ends first: its threads use what stands above
};

}  // namespace gvxctl
