#include "gvxctl/answer_rules.h"

#include "base/zvs_error.h"

#include <algorithm>

namespace gvxctl {
namespace {

struct GarbleName {
    const char* name;
    Garble garble;
};
constexpr GarbleName kGarbleNames[] = {
    {"body", Garble::Body}, {"head", Garble::Head},   {"transaction", Garble::Transaction},
    {"type", Garble::Type}, {"twice", Garble::Twice},
};

bool Fits(const AnswerRule& rule, std::uint16_t type, const std::string& link) {
    return rule.type == type && (rule.link.empty() || rule.link == link);
}

std::string Spoil(Garble garble, std::string bytes) {
    if (garble == Garble::Body) {
        std::transform(bytes.begin() + kNssHeaderBytes, bytes.end(), bytes.begin() + kNssHeaderBytes,
                       [](char c) { return static_cast<char>(~c); });
    } else if (garble == Garble::Head) {
        bytes[0] = static_cast<char>(0xFF);
    } else if (garble == Garble::Twice) {
        bytes += bytes;
    }
    return bytes;
}

}  // namespace

bool GarbleFromName(const std::string& name, Garble& garble) {
    for (const GarbleName& row : kGarbleNames) {
        if (name == row.name) {
            garble = row.garble;
            return true;
        }
    }
    return false;
}

std::string RuleText(const AnswerRule& rule) {
    std::string text;
    switch (rule.action) {
        case AnswerRule::Action::Drop:
            return "drop";
        case AnswerRule::Action::Refuse:
            text = "refuse " + std::to_string(rule.code);
            break;
        case AnswerRule::Action::Garble:
            for (const GarbleName& row : kGarbleNames) {
                text = row.garble == rule.garble ? std::string("garble ") + row.name : text;
            }
            break;
        case AnswerRule::Action::Answer:
            text = rule.body.given ? "answer with a body of its own" : "answer";
            break;
    }
    return rule.delayMs == 0 ? text : text + ", delay " + std::to_string(rule.delayMs) + " ms";
}

void AnswerRules::Add(const AnswerRule& rule) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_rules.push_back(rule);
}

void AnswerRules::Clear(std::uint16_t type, const std::string& link) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto gone = [&](const AnswerRule& rule) { return rule.type == type && rule.link == link; };
    m_rules.erase(std::remove_if(m_rules.begin(), m_rules.end(), gone), m_rules.end());
}

bool AnswerRules::Take(std::uint16_t type, const std::string& link, AnswerRule& rule) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto newest = std::find_if(m_rules.rbegin(), m_rules.rend(),
                                     [&](const AnswerRule& candidate) { return Fits(candidate, type, link); });
    if (newest == m_rules.rend()) {
        return false;
    }
    rule = *newest;
    if (newest->times > 0 && --newest->times == 0) {
        m_rules.erase(std::next(newest).base());
    }
    return true;
}

FrameSpec ApplyRule(const AnswerRule& rule, FrameSpec answer) {
    if (rule.action == AnswerRule::Action::Refuse) {
        answer.code = rule.code != 0 ? rule.code : static_cast<std::uint32_t>(ZVS_FAIL);
        answer.tag = NSS_TAG_INVALID;
        answer.body.clear();
    } else if (rule.code != 0) {
        answer.code = rule.code;
    }
    if (rule.body.given) {
        answer.tag = rule.body.tag;
        answer.body = rule.body.content;
    }
    if (rule.action == AnswerRule::Action::Garble && rule.garble == Garble::Transaction) {
        answer.transaction = "nobody-waits-for-this";
    }
    if (rule.action == AnswerRule::Action::Garble && rule.garble == Garble::Type) {
        ++answer.type;
    }
    return answer;
}

std::string AnswerBytes(const AnswerRule& rule, const FrameSpec& answer) {
    if (rule.action == AnswerRule::Action::Drop) {
        return std::string();
    }
    const std::string bytes = EncodeFrame(answer);
    return bytes.empty() || rule.action != AnswerRule::Action::Garble ? bytes : Spoil(rule.garble, bytes);
}

}  // namespace gvxctl
