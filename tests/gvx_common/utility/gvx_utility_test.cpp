#include "gvx_common/utility/gvx_utility.h"

#include "support/run_threads.h"
#include "support/temp_folder.h"
#include "support/test_clock.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <thread>
#include <tuple>

#include <pthread.h>

namespace {

TEST(UtilityTexts, TrimSplitCaseSearchAndReplace) {
    EXPECT_EQ("a b", CGvxUtility::trim(" \t a b\r\n"));
    EXPECT_EQ("", CGvxUtility::trim(" \r\n"));
    EXPECT_EQ((std::vector<std::string>{"a", "", "b", ""}), CGvxUtility::split("a,,b,", ","));
    EXPECT_EQ((std::vector<std::string>{"a;b"}), CGvxUtility::split("a;b", ""));
    EXPECT_TRUE(CGvxUtility::split("", ",").empty());
    EXPECT_EQ("0XAB-Z\xe4", CGvxUtility::toUpper("0xAb-z\xe4"));
    EXPECT_EQ("0xab-z\xc4", GvxUtility()->toLower("0xAb-Z\xc4"));
    const char* text = "Content-LENGTH: 5";
    EXPECT_EQ(text + 8, CGvxUtility::strcasestr(text, "length"));
    EXPECT_EQ(text, CGvxUtility::strcasestr(text, ""));
    EXPECT_EQ(nullptr, CGvxUtility::strcasestr(text, "lengths"));
    EXPECT_EQ("ba", CGvxUtility::replaceAll("aaa", "aa", "b"));
    EXPECT_EQ("1--2--3", CGvxUtility::replaceAll("1-2-3", "-", "--"));
    EXPECT_EQ("abc", CGvxUtility::replaceAll("abc", "", "x"));
}

TEST(UtilityTexts, NumbersAddressesAndChecksums) {
    for (const auto& [text, number] : {std::pair<const char*, int>{" 12abc", 12},
                                       {"-3", -3},
                                       {"abc", 0},
                                       {"99999999999999999999", INT_MAX},
                                       {"-3000000000", INT_MIN}}) {
        EXPECT_EQ(number, CGvxUtility::toInt(text));
    }
    EXPECT_EQ("4294967295", CGvxUtility::toStr(4294967295u));
    EXPECT_EQ("109", CGvxUtility::hexToStr(0x0109));
    unsigned int value = 7;
    EXPECT_EQ(0, CGvxUtility::GetIntergerByHexString("0x0a14", value));
    EXPECT_EQ(0x0a14u, value);
    EXPECT_EQ(0, CGvxUtility::GetIntergerByHexString("00FFFFFFFF", value));
    for (const char* bad : {"", "0x", "x1", "1g", "-1", " 1", "1FFFFFFFF"}) {
        EXPECT_EQ(1, CGvxUtility::GetIntergerByHexString(bad, value)) << bad;
    }
    EXPECT_EQ(0xFFFFFFFFu, value);
    EXPECT_TRUE(CGvxUtility::IsPort(1) && CGvxUtility::IsPort(65535));
    EXPECT_FALSE(CGvxUtility::IsPort(0) || CGvxUtility::IsPort(65536));
    EXPECT_EQ("10.200.0.1", CGvxUtility::convertNum2Ipv4(0x0AC80001u));
    EXPECT_EQ(0, CGvxUtility::convertIpv4ToNum("255.1.0.2", value));
    EXPECT_EQ(0xFF010002u, value);
    EXPECT_EQ(1, CGvxUtility::convertIpv4ToNum("1.2.3", value));
    EXPECT_EQ(0x31C3, CGvxUtility::CalcCRCXModem("123456789", 9));
    EXPECT_EQ(0u, CGvxUtility::RotatingHash("a", 0));
    // Twelve characters push bits beyond 32: they count in both the shift back and the remainder.
    EXPECT_EQ(61400u, CGvxUtility::RotatingHash(std::string(12, '\xff'), 1000003));
}

TEST(UtilitySystem, FilesAreReplacedWholeAndFoldersMade) {
    const TempFolder folder;
    const std::string path = folder.Path("a/b/c/f");
    std::string content;
    EXPECT_EQ(0, CGvxUtility::dirCreate(folder.Path("a/b/c")));
    EXPECT_EQ(0, CGvxUtility::dirCreate(folder.Path("a/b/c")));
    EXPECT_EQ(0, CGvxUtility::fileWrite(path, "long content"));
    EXPECT_EQ(0, CGvxUtility::fileWrite(path, std::string("a\0b", 3)));
    EXPECT_EQ(1, CGvxUtility::dirCreate(path));
    EXPECT_EQ(0, CGvxUtility::fileRead(path, content, 3));
    EXPECT_EQ(std::string("a\0b", 3), content);
    EXPECT_EQ(1, CGvxUtility::fileRead(path, content, 2));
    EXPECT_EQ(0, CGvxUtility::fileRemove(path));
    EXPECT_EQ(1, CGvxUtility::fileRemove(path));
    EXPECT_FALSE(CGvxUtility::fileExist(path));
    EXPECT_EQ(1, CGvxUtility::fileWrite(path + "/none", "x"));
    EXPECT_EQ(1, CGvxUtility::fileWrite("/dev/full", "x"));
    std::thread([] {
        char name[16] = {};
        EXPECT_EQ(0, CGvxUtility::pthreadSetThreadname(pthread_self(), "AdapterSnapShotThread"));
        pthread_getname_np(pthread_self(), name, sizeof(name));
        EXPECT_STREQ("AdapterSnapShot", name);
    }).join();
}

TEST(UtilityChecks, TextsPassOrNot) {
    using Text = const std::string&;
    const std::string label63(63, 'a');
    const std::string name253 = label63 + "." + label63 + "." + label63 + "." + std::string(57, 'b') + ".com";
    using Texts = std::vector<std::string>;
    // Checks of one text, each with what passes and what does not.
    const std::vector<std::tuple<const char*, bool (*)(Text), Texts, Texts>> checks = {
        {"IPv4",
         [](Text text) { return CGvxUtility::IsIPv4(text.c_str()); },
         {"0.0.0.0", "1.2.3.4", "255.255.255.255", "10.0.20.100"},
         {"", ".1.2.3", "1.2.3", "1.2.3.", "1.2.3.4.5", "1..2.3", "01.2.3.4", "1.2.3.256", "1.2.3.4 ", "a.b.c.d",
          "1.2.3.-4", "1.2.3.99999999999999999999", "1.2.3.4.", "1,2.3.4"}},
        {"net mask",
         [](Text text) { return CGvxUtility::IsNetMask(text.c_str()); },
         {"0.0.0.0", "128.0.0.0", "255.255.255.0", "255.255.255.254", "255.255.255.255"},
         {"", "255.0.255.0", "0.0.0.255", "255.255.255", "24"}},
        {"domain name",
         [](Text text) { return CGvxUtility::IsValidDomainName(text); },
         {"a-b.example.com", "x.CN.cn", "com", "1.edu", name253},
         {"", ".a.com", "a.com.", "a..com", "-a.com", "a-.com", "a.-b.com", "a.com-", "a_b.com", "a.COM", "a.io",
          "a.co", "a.com|net", "a" + label63 + ".com", "b" + name253}},
        {"number", [](Text text) { return CGvxUtility::isNum(text); }, {"", "12"}, {"1.0", "-1"}},
        {"password",
         [](Text text) { return CGvxUtility::checkPassword(text, 8); },
         {"abcdefg1", "ABCDefgh", "1234567!", "a\xc3\xa4zzzzz"},
         {"abcdefgh", "!!!!!!!!", "abcdef1", "abcdefgh1"}},
        {"bare path",
         [](Text text) { return !CGvxUtility::FilePathJuge(text.c_str()); },
         {"/a/b&c$(d)"},
         {"a b", "a|b", "a;b", "a?b", "a`b"}},
        {"command",
         [](Text text) { return CGvxUtility::checkCmdPath(text.c_str()) == 0; },
         {"/opt/a_b-1.sh c:d"},
         {"a;b", "a|b", "$(x)", "a\nb", "a&b", "a`b", "a\\b", "a'b", "a\xc3\xa4"}},
    };
    for (const auto& [name, passes, good, bad] : checks) {
        for (Text text : good) {
            EXPECT_TRUE(passes(text)) << name << ": " << text;
        }
        for (Text text : bad) {
            EXPECT_FALSE(passes(text)) << name << ": " << text;
        }
    }
    EXPECT_FALSE(CGvxUtility::IsIPv4(nullptr) || CGvxUtility::IsNetMask(nullptr));
    EXPECT_EQ(2, CGvxUtility::checkCmdPath(nullptr));
}

TEST(UtilityNumbers, SequenceIsUniqueAcrossThreadsAndGoesFromSixtyThousandToThree) {
    unsigned int last = CGvxUtility::CreatSeqID();
    for (int i = 0; i < 60001 && last != 60000; ++i) {
        const unsigned int next = CGvxUtility::CreatSeqID();
        ASSERT_EQ(last + 1, next);
        last = next;
    }
    EXPECT_EQ(3u, CGvxUtility::CreatSeqID());
    RunThreads(8, [](int /*thread*/) {
        for (int count = 0; count < 1000; ++count) {
            CGvxUtility::CreatSeqID();
        }
    });
    EXPECT_EQ(8004u, CGvxUtility::CreatSeqID()) << "none given twice";
}

TEST(UtilityAddresses, RtspUrl) {
    std::string host;
    std::string authUrl;
    unsigned short port = 0;
    for (const auto& [url, parts] : {std::pair("rtsp://user:pw@host:8554/path", "host 8554 rtsp://host:8554/path"),
                                     {"rtsp://user@pw@host/", "host 554 rtsp://host/"},
                                     {"RTSP://host", "host 554 rtsp://host"},
                                     {"rtsp://10.0.0.1:65535", "10.0.0.1 65535 rtsp://10.0.0.1:65535"},
                                     {"rtsp://h/a:1?x=2", "h 554 rtsp://h/a:1?x=2"}}) {
        EXPECT_EQ(0, CGvxUtility::ParseRtspUrl(url, host, port, authUrl)) << url;
        EXPECT_EQ(parts, host + " " + std::to_string(port) + " " + authUrl);
    }
    for (const std::string& bad : std::vector<std::string>{
             "http://host/", "rtsp:/", "rtsp://" + std::string(128, 'h') + "/", "rtsp://host:/", "rtsp://host:x",
             "rtsp://host:0/", "rtsp://host:65536/", "rtsp://host:99999999999999999999"}) {
        EXPECT_EQ(1, CGvxUtility::ParseRtspUrl(bad, host, port, authUrl)) << bad;
    }
}

TEST(UtilityAddresses, Whitelist) {
    using Ranges = std::list<std::pair<unsigned int, unsigned int>>;
    const std::vector<std::pair<const char*, Ranges>> rows = {
        {"", {}},
        {"10.0.0.0", {{0x0A000000u, 0x0AFFFFFFu}}},
        {"10.1.2.0", {{0x0A010200u, 0x0A0102FFu}}},
        {"10.0.2.3", {{0x0A000203u, 0x0A000203u}}},
        {"0.0.0.0;*.*.*.*", {{0u, 0u}, {0u, 0xFFFFFFFFu}}},
        {"1.1.1.1,1.1.1.9;9.9.9.9,2.2.2.2;", {{0x01010101u, 0x01010109u}, {0x09090909u, 0x02020202u}}},
    };
    for (const auto& [text, expected] : rows) {
        Ranges ranges;
        EXPECT_EQ(0, CGvxUtility::AnalysisWhitelist(text, ranges)) << text;
        EXPECT_EQ(expected, ranges) << text;
    }
    Ranges before;
    EXPECT_EQ(2, CGvxUtility::AnalysisWhitelist("1.1.1.1,2.2.2.2;3.3.3.3", before));
    EXPECT_EQ((Ranges{{0x01010101u, 0x02020202u}}), before) << "what stands before the fault counts";
    for (const char* bad : {"1.2.3.4;5.6.7.8", "1.2.3.4;", "1.1.1.1,2.2.2", "1.1.1.1,2.2.2.2,3.3.3.3", ";"}) {
        Ranges ranges;
        EXPECT_EQ(2, CGvxUtility::AnalysisWhitelist(bad, ranges)) << bad;
        EXPECT_TRUE(ranges.empty()) << bad;
    }
}

// Times in a zone that is ahead of UTC and has daylight saving.
class UtilityTimes : public testing::Test {
protected:
    UtilityTimes() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
    ~UtilityTimes() override {
        unsetenv("TZ");
        tzset();
    }
    // What a conversion has made, when it succeeded.
    std::string Made(int result) const { return result == 0 ? m_text : "refused"; }

    ScopedTestClock m_clock;  // 2026-01-02 03:04:05 UTC
    std::string m_text;
};

TEST_F(UtilityTimes, CurrentTimeInEachForm) {
    EXPECT_EQ("2026-01-02 04:04:05", CGvxUtility::GetCurTime());
    EXPECT_EQ("20260102040405", CGvxUtility::GetCurTimeNoSeperate());
    EXPECT_EQ("20260102030405", Made(CGvxUtility::GetCurrentUtcTime(m_text, "YYYYMMDDhhmmss")));
    EXPECT_EQ("20260102T030405Z", Made(CGvxUtility::GetCurrentUtcTime(m_text, "YYYYMMDDThhmmssZ")));
    EXPECT_EQ("2026-01-02 03:04:05", Made(CGvxUtility::GetCurrentUtcTime(m_text, nullptr)));
    EXPECT_EQ("GVX2026010204040500042", CGvxUtility::GenerateTransactionNo("GVX", 42));
    EXPECT_EQ(63u, CGvxUtility::GenerateTransactionNo(std::string(44, 'p'), 1).size());
    EXPECT_EQ("", CGvxUtility::GenerateTransactionNo(std::string(45, 'p'), 1));
}

TEST_F(UtilityTimes, ConversionsFollowTheZone) {
    using U = CGvxUtility;
    const char* plain = "YYYYMMDDhhmmss";
    EXPECT_EQ("20260701013000", Made(U::TransUTCFormatToLocal("20260630233000", m_text, plain)));
    EXPECT_EQ("20260630233000", Made(U::TransLocalFormatToUTC("20260701013000", m_text, plain)));
    EXPECT_EQ("2025-12-31 23:30:00", Made(U::TransLocalFormatToUTC("2026-01-01 00:30:00", m_text, "other")));
    EXPECT_EQ("2026-01-01 00:30:00",
              Made(U::TransUTCFormatToLocalEx("20251231T233000Z", m_text, "YYYYMMDDThhmmssZ", "")));
    EXPECT_EQ("20260101003000", Made(U::ParseGLUTCTimeToLocalTime("20251231T233000Z", m_text, plain)));
    EXPECT_EQ("20251231233000", Made(U::TransISOUTCFormatToString("2025-12-31T23:30:00.123Z", m_text, plain)));
    long seconds = 0;
    EXPECT_EQ(0, U::TransLocalFormatToGMTUTC("20260102040405", seconds, plain));
    EXPECT_EQ(TestClock::kStartWallMicroseconds / 1000000, seconds);
    for (const char* bad : {"2026063023", "", "2026-06-30 23:30:00", "20261330000000", "20260630240000"}) {
        m_text = "unchanged";
        EXPECT_EQ(1, U::TransLocalFormatToUTC(bad, m_text, plain)) << bad;
        EXPECT_EQ(1, U::TransUTCFormatToLocal(bad, m_text, plain)) << bad;
        EXPECT_EQ("unchanged", m_text);
    }
    for (const char* before : {"20260701120000", "20260101120000"}) {
        ASSERT_EQ(0, U::TransLocalFormatToUTC(before, m_text, plain));
        EXPECT_EQ("20261025003000", Made(U::TransLocalFormatToUTC("20261025023000", m_text, plain)))
            << "the first of two hours, whatever was asked before";
        EXPECT_EQ("20260329013000", Made(U::TransLocalFormatToUTC("20260329023000", m_text, plain))) << "left out";
    }
    long last = 0;
    EXPECT_TRUE(U::CheckTimingStatus(last, 10));
    m_clock->AdvanceSeconds(9);
    m_clock->StepWall(std::chrono::hours(5));
    EXPECT_FALSE(U::CheckTimingStatus(last, 10)) << "it follows the monotonic clock";
    m_clock->AdvanceSeconds(1);
    EXPECT_TRUE(U::CheckTimingStatus(last, 10));
    EXPECT_FALSE(U::CheckTimingStatus(last, 10));
}

TEST(UtilityTexts, CharacterSets) {
    const std::string utf8 = "\xE6\x91\x84\xE5\x83\x8F 1";  // "camera" in Chinese
    std::string gbk;
    std::string back;
    ASSERT_EQ(0, CGvxUtility::Utf8ToGbk(utf8, gbk));
    EXPECT_EQ("\xC9\xE3\xCF\xF1 1", gbk);
    ASSERT_EQ(0, CGvxUtility::GbkToUtf8(gbk, back));
    EXPECT_EQ(utf8, back);
    std::string large = utf8;
    for (int i = 0; i < 12; ++i) {
        large += large;
    }
    ASSERT_EQ(0, CGvxUtility::Utf8ToGbk(large, gbk));
    EXPECT_EQ(4096u * 6, gbk.size());
    back = "unchanged";
    EXPECT_EQ(1, CGvxUtility::GbkToUtf8("\xC9", back)) << "half a character";
    EXPECT_EQ(1, CGvxUtility::ConvertCharset("no such set", "UTF-8", "x", back));
    EXPECT_EQ(2, CGvxUtility::ConvertCharset(nullptr, "UTF-8", "x", back));
    EXPECT_EQ("unchanged", back);
    EXPECT_TRUE(CGvxUtility::IsUtf8(utf8) && CGvxUtility::IsUtf8(""));
    EXPECT_FALSE(CGvxUtility::IsUtf8(gbk));
}

}  // namespace
