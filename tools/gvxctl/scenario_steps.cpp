#include "gvxctl/scenario_steps.h"

#include "gvxctl/socket_util.h"

namespace gvxctl {
namespace {

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
    if (!step.listen.empty() && !ParseEndpoint(step.listen, local)) {
        reader.Fail("\"listen\" is neither IP:PORT nor PORT: " + step.listen);
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
    long long code = 0;
    reader.Number("seq", 0, 0xFFFFFFFF, seq);
    reader.Number("code", 0, 0xFFFFFFFF, code);
    step.head.seq = static_cast<std::uint32_t>(seq);
    step.head.code = static_cast<std::uint32_t>(code);
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
    long long code = 0;
    long long times = 0;
    reader.Number("code", 0, 0xFFFFFFFF, code);
    reader.Number("times", 0, 1000000, times);
    step.rule.code = static_cast<std::uint32_t>(code);
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

}  // namespace

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

}  // namespace gvxctl
