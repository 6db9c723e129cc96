#include "gvxctl/scenario.h"

#include "gvxctl/peer_commands.h"
#include "gvxctl/scenario_run.h"
#include "nss/nss_msg_type.h"

#include <gtest/gtest.h>

namespace gvxctl {
namespace {

TEST(Scenario, StepsVariablesAndRepetitionsAreRead) {
    const std::string text = R"({"name":"n","vars":{"a":"MU#001","b":"x"},"ports":{"udp":"100-200"},"steps":[
        {"open":{"link":"${a}","listen":"0"}},
        {"repeat":{"times":2,"steps":[{"say":"${b}"},{"wait_ms":0}]}},
        {"send":{"link":"GVX#000","type":"0x0BAB","plain_json":{"p":"${port:MU#001}"},"code":4294967295}}]})";
    Scenario scenario;
    std::string error;
    ASSERT_TRUE(ParseScenario(text, {{"b", "given ${a}"}}, scenario, error)) << error;
    ASSERT_EQ(scenario.steps.size(), 6u);
    EXPECT_TRUE(scenario.hasPorts);
    EXPECT_EQ(scenario.ports.udp.max, 200);
    EXPECT_EQ(std::get<OpenStep>(scenario.steps[0].action).link, "MU#001");
    EXPECT_EQ(std::get<SayStep>(scenario.steps[3].action).text, "given ${a}") << "values are not looked into";
    EXPECT_EQ(scenario.steps[4].label, "2.2");
    const SendStep& send = std::get<SendStep>(scenario.steps[5].action);
    EXPECT_EQ(send.head.type, NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ);
    EXPECT_EQ(send.head.code, 0xFFFFFFFFu);
    EXPECT_EQ(send.body.tag, NSS_TAG_INVALID);
    EXPECT_EQ(send.body.content, "{\"p\":\"${port:MU#001}\"}\n");
}

TEST(Scenario, FaultsNameTheStepAndWhatIsWrong) {
    const struct {
        const char* step;
        const char* fault;
    } rows[] = {
        {R"({"opne":{}})", "step 2 there is no such step: \"opne\""},
        {R"({"say":"a","wait_ms":1})", "step 2 is no object with the name of one step"},
        {R"({"say":"${who}"})", "step 2 there is no value for \"who\""},
        {R"({"say":"${who"})", "has no end"},
        {R"({"open":{"link":"SCU001"}})", "step 2 (open): \"link\" is no identifier"},
        {R"({"open":{"link":"MU#1","listen":"1.2.3:x"}})", "\"listen\" is neither IP:PORT nor PORT"},
        {R"({"close":{"link":"MU#1","stopp":true}})", "step 2 (close): unknown member \"stopp\""},
        {R"({"send":{"link":"MU#1"}})", "step 2 (send): \"type\" is missing"},
        {R"({"send":{"link":"MU#1","type":"NSS_NO_SUCH_REQ"}})", "\"type\" is no message type: NSS_NO_SUCH_REQ"},
        {R"({"send":{"link":"MU#1","type":1,"xml":"a","text":"b"}})", "\"text\" is a second body"},
        {R"({"send":{"link":"MU#1","type":1,"hex":"0g"}})", "\"hex\" holds something else"},
        {R"({"send":{"link":"MU#1","type":1,"seq":-1}})", "\"seq\" is no number from 0"},
        {R"({"expect":{"link":"MU#1","within_ms":3600001}})", "\"within_ms\" is no number from 0 to 3600000"},
        {R"({"expect":{"link":"MU#1","fields":[]}})", "\"fields\" is no JSON object"},
        {R"({"expect":{"link":"MU#1","none":true,"next":true}})", "exclude each other"},
        {R"({"expect_link":{"link":"MU#1","state":"up"}})", "\"state\" is neither"},
        {R"({"answer":{"type":1,"do":"forget"}})", "\"do\" is none of"},
        {R"({"answer":{"type":1,"do":"garble","garble":"tail"}})", "\"garble\" is none of"},
        {R"({"wait_ms":"1"})", "step 2 (wait_ms): is no number of milliseconds"},
        {R"({"repeat":{"times":20001,"steps":[]}})", "step 2 (repeat): \"times\" is no number"},
        {R"({"repeat":{"times":20000,"steps":[{"say":""}]}})", "more than 20000 steps"},
        {R"({"repeat":{"steps":[{"repeat":{"steps":[]}}]}})", "step 2.1 there is no such step: \"repeat\""},
    };
    for (const auto& row : rows) {
        const std::string text = std::string(R"({"steps":[{"say":""},)") + row.step + "]}";
        Scenario scenario;
        std::string error;
        EXPECT_FALSE(ParseScenario(text, {}, scenario, error)) << row.step;
        EXPECT_NE(error.find(row.fault), std::string::npos) << row.step << ": " << error;
    }
    Scenario scenario;
    std::string error;
    EXPECT_FALSE(ParseScenario(std::string(kMaxScenarioBytes + 1, ' '), {}, scenario, error));
    EXPECT_FALSE(ParseScenario(R"({"steps":{}})", {}, scenario, error));
    EXPECT_FALSE(ParseScenario(R"({"ports":{"udp":"9-8"},"steps":[]})", {}, scenario, error));
}

TEST(Scenario, StarsStandForAnyText) {
    EXPECT_TRUE(MatchesText("*a*b*", "xxaayyb"));
    EXPECT_TRUE(MatchesText("", ""));
    EXPECT_TRUE(MatchesText("[?]*", "[?]"));
    EXPECT_FALSE(MatchesText("a*c", "abcd"));
    EXPECT_FALSE(MatchesText("a", "ab"));
    EXPECT_TRUE(MatchesText("*ab", "aab"));
}

// The gateway's side: it asks for ports as often as it is told by the number of a request, and answers nothing.
class AskingGateway {
public:
    AskingGateway() : m_listener("GVX#001", [this](PeerLink& link, const Frame& frame) { OnFrame(link, frame); }) {
        std::string error;
        EXPECT_TRUE(m_listener.Start(Endpoint{}, error)) << error;
    }
    Endpoint Where() const { return Endpoint{"127.0.0.1", m_listener.Port()}; }

private:
    // Every answer is sent back as a request, so that the scenario sees what the gateway has seen.
    void OnFrame(PeerLink& link, const Frame& frame) {
        FrameSpec spec;
        spec.type = NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ;
        spec.transaction = "ask";
        spec.body = R"({"ApplyPortNumber":2,"ApplyPortType":1})";
        if (frame.IsResponse()) {
            spec.type = NSS_COMMON_INFO_REQ;
            spec.transaction = frame.Transaction();
            spec.code = frame.head.uiRspCode;
            spec.body = frame.body;
        }
        link.Send(spec);
    }
    LinkListener m_listener;
};

bool RunText(const std::string& steps, std::string& error) {
    AskingGateway gateway;
    Scenario scenario;
    if (!ParseScenario(R"({"ports":{"udp":"100-109"},"steps":[{"open":{"link":"GVX#000"}},)" + steps + "]}", {},
                       scenario, error)) {
        return false;
    }
    RunSettings settings;
    settings.gateway = gateway.Where();
    ScenarioRun run(scenario, settings);
    return run.Run(error);
}

const std::string kAskForPorts = R"({"send":{"link":"GVX#000","type":"NSS_GET_IFRAME_REQ"}})";
const std::string kRule = R"({"answer":{"type":"NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ","times":1,)";
const std::string kEcho = R"({"expect":{"link":"GVX#000","type":"NSS_COMMON_INFO_REQ",)";

TEST(Scenario, AnswersFollowTheRulesInForce) {
    std::string error;
    const std::string steps =
        kRule + R"("do":"refuse","code":7}},)" + kAskForPorts + "," + kEcho + R"("code":7,"bare":true}},)" +  //
        kRule + R"("do":"drop"}},)" + kAskForPorts + "," + kEcho + R"("none":true,"within_ms":200}},)" +      //
        kRule + R"("do":"garble","garble":"transaction"}},)" + kAskForPorts + "," + kEcho +
        R"("transaction":"nobody*"}},)" +  //
        kRule + R"("do":"garble","garble":"twice","plain_json":{"ApplyPortReturnList":[5]}}},)" + kAskForPorts + "," +
        kEcho + R"("json":{"ApplyPortReturnList":[5]}}},)" + kEcho + R"("json":{"ApplyPortReturnList":[5]}}},)" +  //
        kRule + R"("delay_ms":50}},)" + kAskForPorts + "," + kEcho + R"("transaction":"ask"}})";
    EXPECT_TRUE(RunText(steps, error)) << error;
}

TEST(Scenario, DefaultPortsGoOutOnceAndReportedOnesNotAtAll) {
    std::string error;
    const auto expect = [](const std::string& list) {
        return kAskForPorts + "," + kEcho + R"("json":{"ApplyPortReturnList":)" + list + "}}}";
    };
    EXPECT_TRUE(
        RunText(expect("[100,102]") + "," + expect("[104,106]") + "," + expect("[108]") + "," + expect("[]"), error))
        << error;
    PortRanges ranges;
    ranges.udp = PortRange{100, 109};
    PortService service(ranges);
    Frame report;
    report.head.usiMsgType = NSS_PLUGIN_SEND_PORTLIST_DATA_REQ;
    report.body = R"({"TCPUsedPortlist":[],"UDPUsedPortlist":[102,104]})";
    EXPECT_EQ(service.Answer(report).code, 0u);
    Frame request;
    request.head.usiMsgType = NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ;
    request.body = R"({"ApplyPortNumber":10,"ApplyPortType":1})";
    EXPECT_EQ(service.Answer(request).body, "{\"ApplyPortReturnList\":[100,106,108],\"ApplyPortReturnType\":1}\n");
    EXPECT_NE(service.Answer(request).code, 0u) << "nothing is left";
    request.body = R"({"ApplyPortNumber":10,"ApplyPortType":3})";
    EXPECT_NE(service.Answer(request).code, 0u);
}

TEST(Scenario, AFailedStepSaysWhatCameInstead) {
    std::string error;
    EXPECT_FALSE(
        RunText(kAskForPorts + R"(,{"expect":{"link":"GVX#000","type":"NSS_GET_IFRAME_RSP","within_ms":300}})", error));
    EXPECT_EQ(error.find("step 3 (expect): not within 300 ms, there is "), 0u) << error;
    EXPECT_NE(error.find("/NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ"), std::string::npos) << error;
    EXPECT_FALSE(RunText(R"({"close":{"link":"SCU#001"}})", error));
    EXPECT_NE(error.find("step 2 (close): SCU#001 is not open"), std::string::npos) << error;
}

TEST(PeerOptions, WordsAboutOneTypeMakeOneRule) {
    PeerOptions options;
    options.refuse = {"2987=5"};
    options.delay = {"NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ=250"};
    options.garble = {"2986=twice"};
    std::vector<AnswerRule> rules;
    std::string error;
    ASSERT_TRUE(RulesOf(options, rules, error)) << error;
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(RuleText(rules[0]), "refuse 5, delay 250 ms");
    EXPECT_EQ(RuleText(rules[1]), "garble twice");
    options.delay = {"2987"};
    EXPECT_FALSE(RulesOf(options, rules, error));
    EXPECT_NE(error.find("2987"), std::string::npos) << error;
}

}  // namespace
}  // namespace gvxctl
