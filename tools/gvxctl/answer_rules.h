#pragma once

#include "gvxctl/frame.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace gvxctl {

// A body to send: with a tag inside one item, without one as it stands.
struct BodySpec {
    bool given = false;
    std::uint16_t tag = NSS_TAG_INVALID;
    std::string content;
};

// How an answer is spoilt.
enum class Garble {
    Body,         // every byte of the body is turned around, its length stays
    Head,         // a protocol version that does not exist, on which the gateway closes the link
    Transaction,  // the transaction of nobody
    Type,         // the type of another answer
    Twice,        // whole, but sent two times
};
bool GarbleFromName(const std::string& name, Garble& garble);

// What becomes of the answers to requests of one type.
struct AnswerRule {
    enum class Action { Answer, Refuse, Drop, Garble };

    std::uint16_t type = 0;
    std::string link;  // on that link alone; empty: on any
    Action action = Action::Answer;
    std::uint32_t code = 0;  // result of the answer; of a refusal, where 0 would be none, ZVS_FAIL instead
    Garble garble = Garble::Body;
    int delayMs = 0;  // before the answer goes out
    int times = 0;    // 0: for good, otherwise for so many requests
    BodySpec body;    // in place of the default answer's
};

// "refuse 5", "drop", "garble", "delay 200 ms"
std::string RuleText(const AnswerRule& rule);

// The rules in force. The newest that fits decides. Any thread.
class AnswerRules {
public:
    void Add(const AnswerRule& rule);
    // Forgets the rules for that type and link.
    void Clear(std::uint16_t type, const std::string& link);
    // Counts the rule's times down. False when no rule fits.
    bool Take(std::uint16_t type, const std::string& link, AnswerRule& rule);

private:
    std::mutex m_mutex;  // guards m_rules
    std::vector<AnswerRule> m_rules;
};

// The answer under the rule, from the one that would go out without it.
FrameSpec ApplyRule(const AnswerRule& rule, FrameSpec answer);
// Its bytes, spoilt where the rule says so; empty for an answer that is dropped.
std::string AnswerBytes(const AnswerRule& rule, const FrameSpec& answer);

}  // namespace gvxctl
