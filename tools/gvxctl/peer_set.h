#pragma once

#include "gvxctl/answer_rules.h"
#include "gvxctl/default_answers.h"
#include "gvxctl/later.h"
#include "gvxctl/link_listener.h"
#include "gvxctl/peer_link.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace gvxctl {

// Any number of platform peers of any kind, each under its link identifier: those that call the gateway, and those that
// it calls (the media units). Requests of the gateway are answered as DefaultAnswers and the rules say.
class PeerSet {
public:
    // One frame on one link. `note` says what was done to an answer, or why there is none; mostly empty.
    struct Traffic {
        std::string linkId;
        bool incoming = true;
        Frame frame;
        std::string note;
    };
    // Runs on the threads of the links and of whoever sends.
    using Watcher = std::function<void(const Traffic& traffic)>;

    PeerSet(Endpoint gateway, const PortRanges& ports, Watcher watcher);
    ~PeerSet();

    // Calls the gateway and registers. An identifier that is open already is refused.
    bool Open(const std::string& linkId, std::string& error);
    // Waits for the gateway's call; the port of another listener of that identifier stays what it was.
    bool Listen(const std::string& linkId, const Endpoint& local, std::string& error);
    // Ends a link. A listener goes on waiting, unless `stop` takes it away as well.
    bool Close(const std::string& linkId, bool stop, std::string& error);

    bool IsOpen(const std::string& linkId) const;
    // Where the identifier is listened for; 0 when it is not.
    std::uint16_t PortOf(const std::string& linkId) const;
    // Why the link of that identifier is not open; empty when nothing is known.
    std::string CloseReason(const std::string& linkId) const;

    bool Send(const std::string& linkId, const FrameSpec& spec, std::string& error);
    AnswerRules& Rules() { return m_rules; }

private:
    void OnFrame(PeerLink& link, const Frame& frame);
    void AnswerLater(const std::string& linkId, const AnswerRule& rule, const FrameSpec& answer);
    bool SendBytes(const std::string& linkId, const std::string& bytes);
    void Tell(const std::string& linkId, bool incoming, const Frame& frame, const std::string& note);
    void TellSent(const std::string& linkId, const FrameSpec& spec, const std::string& note);
    bool NextAskedScu(std::string& scuId, std::uint16_t& port);
    PeerLink::Handler MakeHandler();
    bool MainServiceOpenLocked() const;

    Endpoint m_gateway;
    Watcher m_watcher;
    AnswerRules m_rules;
    DefaultAnswers m_answers;
    mutable std::mutex m_mutex;          // guards the three that follow; never held while a link is made, used or ended
    std::deque<std::string> m_askedFor;  // SCUs that have opened and whose media unit the gateway will ask for
    std::map<std::string, std::shared_ptr<PeerLink>> m_links;
    std::map<std::string, std::shared_ptr<LinkListener>> m_listeners;
    Later m_later;
};

}  // namespace gvxctl
