#include "gvxctl/scenario.h"

#include "gvxctl/peer_commands.h"
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
        {R"({"say":"${who}"})", "step 2 there is no value for \"who\""},
        {R"({"open":{"link":"SCU001"}})", "step 2 (open): \"link\" is no identifier"},
        {R"({"close":{"link":"MU#1","stopp":true}})", "step 2 (close): unknown member \"stopp\""},
        {R"({"send":{"link":"MU#1"}})", "step 2 (send): \"type\" is missing"},
        {R"({"send":{"link":"MU#1","type":1,"xml":"a","text":"b"}})", "\"text\" is a second body"},
        {R"({"expect":{"link":"MU#1","within_ms":3600001}})", "\"within_ms\" is no number from 0 to 3600000"},
        {R"({"expect":{"link":"MU#1","none":true,"next":true}})", "exclude each other"},
        {R"({"answer":{"type":1,"do":"forget"}})", "\"do\" is none of"},
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
