#include "gvx_common/utility/gvx_utility.h"

#include "base/zvs_error.h"
#include "support/recording_logger.h"
#include "support/temp_folder.h"
#include "support/test_clock.h"

#include <tinyxml2.h>

#include <climits>
#include <cstdlib>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <thread>

#include <pthread.h>

#include <gtest/gtest.h>

namespace {

TEST(UtilityTexts, TrimSplitAndCase) {
    EXPECT_EQ("a b", CGvxUtility::trim(" \t a b\r\n"));
    EXPECT_EQ("", CGvxUtility::trim(" \r\n"));
    EXPECT_EQ((std::vector<std::string>{"a", "", "b", ""}), CGvxUtility::split("a,,b,", ","));
    EXPECT_EQ((std::vector<std::string>{"a;b"}), CGvxUtility::split("a;b", ""));
    EXPECT_TRUE(CGvxUtility::split("", ",").empty());
    EXPECT_EQ("0XAB-Z\xe4", CGvxUtility::toUpper("0xAb-z\xe4"));
    EXPECT_EQ("0xab-z\xc4", GvxUtility()->toLower("0xAb-Z\xc4"));
}

TEST(UtilityTexts, Numbers) {
    EXPECT_EQ(12, CGvxUtility::toInt(" 12abc"));
    EXPECT_EQ(-3, CGvxUtility::toInt("-3"));
    EXPECT_EQ(0, CGvxUtility::toInt("abc"));
    EXPECT_EQ(INT_MAX, CGvxUtility::toInt("99999999999999999999"));
    EXPECT_EQ(INT_MIN, CGvxUtility::toInt("-3000000000"));
    EXPECT_EQ("4294967295", CGvxUtility::toStr(4294967295u));
    EXPECT_EQ("0", CGvxUtility::hexToStr(0));
    EXPECT_EQ("109", CGvxUtility::hexToStr(0x0109));
    EXPECT_EQ("ffffffff", CGvxUtility::hexToStr(0xFFFFFFFFu));
}

TEST(UtilitySystem, FileIsReplacedWhole) {
    const std::string path = testing::TempDir() + "/gvx_utility_test.txt";
    EXPECT_EQ(0, CGvxUtility::fileWrite(path, "long content"));
    EXPECT_EQ(0, CGvxUtility::fileWrite(path, std::string("a\0b", 3)));
    EXPECT_TRUE(CGvxUtility::fileExist(path));
    std::ifstream file(path);
    EXPECT_EQ(std::string("a\0b", 3), std::string(std::istreambuf_iterator<char>(file), {}));
    std::remove(path.c_str());
    EXPECT_FALSE(CGvxUtility::fileExist(path));

    ScopedRecordingLogger log;
    EXPECT_EQ(1, CGvxUtility::fileWrite(path + "/none", "x"));
    EXPECT_EQ(1, CGvxUtility::fileWrite("/dev/full", "x"));
    EXPECT_EQ(2u, log->CountLevel(OM_LOG_ERR));
}

TEST(UtilitySystem, ThreadNameIsCutAtFifteenCharacters) {
    std::thread([] {
        EXPECT_EQ(0, CGvxUtility::pthreadSetThreadname(pthread_self(), "AdapterSnapShotThread"));
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        EXPECT_STREQ("AdapterSnapShot", name);
        EXPECT_NE(0, CGvxUtility::pthreadSetThreadname(pthread_self(), nullptr));
    }).join();
}

TEST(UtilityChecks, IPv4) {
    for (const char* good : {"0.0.0.0", "1.2.3.4", "255.255.255.255", "10.0.20.100"}) {
        EXPECT_TRUE(CGvxUtility::IsIPv4(good)) << good;
    }
    for (const char* bad : {"", ".1.2.3", "1.2.3", "1.2.3.", "1.2.3.4.5", "1..2.3", "01.2.3.4", "1.2.3.256", "1.2.3.4 ",
                            "a.b.c.d", "1.2.3.-4", "1.2.3.99999999999999999999", "1.2.3.4.", "1,2.3.4"}) {
        EXPECT_FALSE(CGvxUtility::IsIPv4(bad)) << bad;
    }
    EXPECT_FALSE(CGvxUtility::IsIPv4(nullptr));
}

TEST(UtilityChecks, DomainName) {
    const std::string label63(63, 'a');
    const std::string name253 = label63 + "." + label63 + "." + label63 + "." + std::string(57, 'b') + ".com";
    ASSERT_EQ(253u, name253.size());
    for (const std::string& good : {std::string("a-b.example.com"), std::string("x.CN.cn"), std::string("com"),
                                    std::string("1.edu"), label63 + ".gov", name253}) {
        EXPECT_TRUE(CGvxUtility::IsValidDomainName(good)) << good;
    }
    for (const std::string& bad :
         {std::string(""), std::string(".a.com"), std::string("a.com."), std::string("a..com"), std::string("-a.com"),
          std::string("a-.com"), std::string("a.-b.com"), std::string("a.com-"), std::string("a_b.com"),
          std::string("a.COM"), std::string("a.io"), std::string("a.co"), std::string("a.com|net"),
          "a" + label63 + ".com", "b" + name253}) {
        EXPECT_FALSE(CGvxUtility::IsValidDomainName(bad)) << bad;
    }
}

TEST(UtilityChecks, Identities) {
    ScopedRecordingLogger log;
    EXPECT_TRUE(CGvxUtility::Check35114Level("A", 1));
    EXPECT_FALSE(CGvxUtility::Check35114Level("A", 2));
    EXPECT_FALSE(CGvxUtility::Check35114Level("a", 1));
    EXPECT_TRUE(CGvxUtility::CheckKeyLabel("Ab3", 3, 32));
    EXPECT_FALSE(CGvxUtility::CheckKeyLabel(std::string(33, 'a'), 3, 32));
    EXPECT_FALSE(CGvxUtility::CheckKeyLabel("a b", 3, 32));
    EXPECT_TRUE(CGvxUtility::CheckServerID("123", 3));
    EXPECT_FALSE(CGvxUtility::CheckServerID("12a", 3));
    EXPECT_EQ(8u, log->Count("start."));
    EXPECT_TRUE(CGvxUtility::isNum(""));
    EXPECT_FALSE(CGvxUtility::isNum("1.0"));
}

TEST(UtilityChecks, PasswordNeedsTwoClassesAndTheExactLength) {
    EXPECT_FALSE(CGvxUtility::checkPassword("abcdefgh", 8));
    EXPECT_FALSE(CGvxUtility::checkPassword("!!!!!!!!", 8));
    for (const char* good : {"abcdefg1", "ABCDefgh", "1234567!", "a\xc3\xa4zzzzz"}) {
        EXPECT_TRUE(CGvxUtility::checkPassword(good, 8)) << good;
    }
    EXPECT_FALSE(CGvxUtility::checkPassword("abcdefg1", 7));
    EXPECT_FALSE(CGvxUtility::checkPassword("abcdefg1", 9));
}

TEST(UtilityChecks, CommandAndPathCharacters) {
    ScopedRecordingLogger log;
    EXPECT_EQ(0, CGvxUtility::checkCmdPath("/opt/a_b-1.sh c:d"));
    EXPECT_EQ(0, CGvxUtility::checkCmdPath(""));
    EXPECT_EQ(2, CGvxUtility::checkCmdPath(nullptr));
    EXPECT_TRUE(log->Contains("the command is invalid."));
    for (const char* bad : {"a;b", "a|b", "$(x)", "a\nb", "a&b", "a`b", "a\\b", "a'b", "a\xc3\xa4"}) {
        EXPECT_EQ(2, CGvxUtility::checkCmdPath(bad)) << bad;
    }
    EXPECT_EQ(9u, log->Count("Invalid input param, command contain invaild char."));
    for (const char* bad : {"a b", "a|b", "a;b", "a?b", "a`b"}) {
        EXPECT_TRUE(CGvxUtility::FilePathJuge(bad)) << bad;
    }
    EXPECT_FALSE(CGvxUtility::FilePathJuge("/a/b&c$(d)"));
    EXPECT_TRUE(CGvxUtility::FilePathJuge(nullptr));
}

TEST(UtilityNumbers, SequenceGoesFromSixtyThousandToThree) {
    unsigned int last = CGvxUtility::CreatSeqID();
    for (int i = 0; i < 60001 && last != 60000; ++i) {
        const unsigned int next = CGvxUtility::CreatSeqID();
        ASSERT_EQ(last + 1, next);
        last = next;
    }
    ASSERT_EQ(60000u, last);
    EXPECT_EQ(3u, CGvxUtility::CreatSeqID());
}

TEST(UtilityNumbers, SequenceIsUniqueAcrossThreads) {
    std::vector<std::vector<unsigned int>> taken(8);
    std::vector<std::thread> threads;
    for (std::vector<unsigned int>& numbers : taken) {
        threads.emplace_back([&numbers] {
            for (int i = 0; i < 1000; ++i) {
                numbers.push_back(CGvxUtility::CreatSeqID());
            }
        });
    }
    std::set<unsigned int> all;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
        all.insert(taken[i].begin(), taken[i].end());
    }
    EXPECT_EQ(8000u, all.size());
}

TEST(UtilityNumbers, Checksums) {
    EXPECT_EQ(0x31C3, CGvxUtility::CalcCRCXModem("123456789", 9));
    EXPECT_EQ(0, CGvxUtility::CalcCRCXModem("", 0));
    EXPECT_EQ(1, CGvxUtility::CalcCRCXModem(nullptr, 4));

    EXPECT_EQ(((1ul << 4) ^ 'a') % 1000, CGvxUtility::RotatingHash("a", 1000));
    EXPECT_EQ(0u, CGvxUtility::RotatingHash("", 7));
    // Twelve characters push bits beyond 32: they count in both the shift back and the remainder.
    unsigned long state = 12;
    for (int i = 0; i < 12; ++i) {
        state = (state * 16) ^ (state / 268435456ul) ^ 0xFFul;
    }
    ASSERT_GT(state, 0xFFFFFFFFul);
    EXPECT_EQ(state % 1000003, CGvxUtility::RotatingHash(std::string(12, '\xff'), 1000003));
    EXPECT_EQ(0u, CGvxUtility::RotatingHash("a", 0));
}

TEST(UtilityNumbers, DefaultBitRates) {
    int bitRate = 0;
    for (const std::pair<const char*, int>& row : {std::pair<const char*, int>{"1920*1080", 4096},
                                                   {"704*576", 1024},
                                                   {"2408*1536", 7168},
                                                   {"2048*1536", 2048},
                                                   {"", 2048}}) {
        CGvxUtility::GetDefaultBitRateByResolution(row.first, bitRate);
        EXPECT_EQ(row.second, bitRate) << row.first;
    }
}

TEST(UtilityAddresses, RtspUrl) {
    struct Row {
        const char* url;
        const char* host;
        unsigned short port;
        const char* authUrl;
    };
    const Row rows[] = {
        {"rtsp://user:pw@host:8554/path", "host", 8554, "rtsp://host:8554/path"},
        {"rtsp://user@pw@host/", "host", 554, "rtsp://host/"},
        {"RTSP://host", "host", 554, "rtsp://host"},
        {"rtsp://10.0.0.1:65535", "10.0.0.1", 65535, "rtsp://10.0.0.1:65535"},
        {"rtsp://h/a:1?x=2", "h", 554, "rtsp://h/a:1?x=2"},
    };
    for (const Row& row : rows) {
        std::string host;
        std::string authUrl;
        unsigned short port = 0;
        ASSERT_EQ(0, CGvxUtility::ParseRtspUrl(row.url, host, port, authUrl)) << row.url;
        EXPECT_EQ(row.host, host);
        EXPECT_EQ(row.port, port) << row.url;
        EXPECT_EQ(row.authUrl, authUrl);
    }
    const std::pair<std::string, const char*> bad[] = {
        {"http://host/", "Url format error"},
        {"rtsp:/", "Url format error"},
        {"rtsp://" + std::string(128, 'h') + "/", "Url is too long."},
        {"rtsp://host:/", "No port number follows."},
        {"rtsp://host:x", "No port number follows."},
        {"rtsp://host:0/", "Bad port number is [0]."},
        {"rtsp://host:65536/", "Bad port number is [65536]."},
        {"rtsp://host:99999999999999999999", "Bad port number is [2147483647]."},
    };
    for (const auto& row : bad) {
        ScopedRecordingLogger log;
        std::string host;
        std::string authUrl;
        unsigned short port = 0;
        EXPECT_EQ(1, CGvxUtility::ParseRtspUrl(row.first, host, port, authUrl)) << row.first;
        EXPECT_TRUE(log->Contains(row.second)) << row.first << log->Dump();
    }
    std::string host;
    std::string authUrl;
    unsigned short port = 0;
    EXPECT_EQ(0, CGvxUtility::ParseRtspUrl("rtsp://" + std::string(127, 'h'), host, port, authUrl));
}

using Ranges = std::list<std::pair<unsigned int, unsigned int>>;

TEST(UtilityAddresses, Whitelist) {
    struct Row {
        const char* text;
        int result;
        Ranges ranges;
    };
    const Row rows[] = {
        {"", 0, {}},
        {"10.0.0.0", 0, {{0x0A000000u, 0x0AFFFFFFu}}},
        {"10.1.0.0", 0, {{0x0A010000u, 0x0A01FFFFu}}},
        {"10.1.2.0", 0, {{0x0A010200u, 0x0A0102FFu}}},
        {"10.0.2.3", 0, {{0x0A000203u, 0x0A000203u}}},
        {"*.*.*.*", 0, {{0u, 0xFFFFFFFFu}}},
        {"0.0.0.0;*.*.*.*", 0, {{0u, 0u}, {0u, 0xFFFFFFFFu}}},
        {"1.1.1.1,1.1.1.9;9.9.9.9,2.2.2.2;", 0, {{0x01010101u, 0x01010109u}, {0x09090909u, 0x02020202u}}},
        {"1.2.3.4;5.6.7.8", 2, {}},
        {"1.2.3.4;", 2, {}},
        {"1.1.1.1,2.2.2.2;3.3.3.3", 2, {{0x01010101u, 0x02020202u}}},
        {"1.1.1.1,2.2.2", 2, {}},
        {"1.1.1.1,2.2.2.2,3.3.3.3", 2, {}},
        {";", 2, {}},
    };
    for (const Row& row : rows) {
        ScopedRecordingLogger log;
        Ranges ranges;
        EXPECT_EQ(row.result, CGvxUtility::AnalysisWhitelist(row.text, ranges)) << row.text;
        EXPECT_EQ(row.ranges, ranges) << row.text;
        EXPECT_EQ(row.result == 0 ? 0u : 1u, log->Count("input param["));
    }
}

// Times in a zone that is ahead of UTC and has daylight saving.
class UtilityTimes : public testing::Test {
protected:
    UtilityTimes() {
        const char* zone = std::getenv("TZ");
        m_hadZone = zone != nullptr;
        m_formerZone = m_hadZone ? zone : "";
        SetZone("CET-1CEST,M3.5.0,M10.5.0/3");
    }
    ~UtilityTimes() override {
        if (m_hadZone) {
            SetZone(m_formerZone.c_str());
        } else {
            unsetenv("TZ");
            tzset();
        }
    }
    static void SetZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    ScopedTestClock m_clock;  // 2026-01-02 03:04:05 UTC
    bool m_hadZone = false;
    std::string m_formerZone;
};

TEST_F(UtilityTimes, CurrentTimeInEachForm) {
    EXPECT_EQ("2026-01-02 04:04:05", CGvxUtility::GetCurTime());
    EXPECT_EQ("20260102040405", CGvxUtility::GetCurTimeNoSeperate());
    std::string text;
    EXPECT_EQ(0, CGvxUtility::GetCurrentUtcTime(text, "YYYYMMDDhhmmss"));
    EXPECT_EQ("20260102030405", text);
    EXPECT_EQ(0, CGvxUtility::GetCurrentUtcTime(text, "YYYYMMDDThhmmssZ"));
    EXPECT_EQ("20260102T030405Z", text);
    EXPECT_EQ(0, CGvxUtility::GetCurrentUtcTime(text, nullptr));
    EXPECT_EQ("2026-01-02 03:04:05", text);
    EXPECT_EQ("GVX2026010204040500042", CGvxUtility::GenerateTransactionNo("GVX", 42));
    EXPECT_EQ(63u, CGvxUtility::GenerateTransactionNo(std::string(44, 'p'), 1).size());
    EXPECT_EQ("", CGvxUtility::GenerateTransactionNo(std::string(45, 'p'), 1));
}

TEST_F(UtilityTimes, ConversionsFollowTheZone) {
    ScopedRecordingLogger log;
    std::string text;
    EXPECT_EQ(0, CGvxUtility::TransUTCFormatToLocal("20260630233000", text, "YYYYMMDDhhmmss"));
    EXPECT_EQ("20260701013000", text);
    EXPECT_TRUE(log->Contains("Gvx utility: Trans time from utc[20260630233000] to local[20260701013000]. isdst=[1]"));
    EXPECT_EQ(0, CGvxUtility::TransLocalFormatToUTC("20260701013000", text, "YYYYMMDDhhmmss"));
    EXPECT_EQ("20260630233000", text);
    EXPECT_EQ(0, CGvxUtility::TransLocalFormatToUTC("2026-01-01 00:30:00", text, "other"));
    EXPECT_EQ("2025-12-31 23:30:00", text);
    EXPECT_EQ(0, CGvxUtility::TransUTCFormatToLocalEx("20251231T233000Z", text, "YYYYMMDDThhmmssZ", ""));
    EXPECT_EQ("2026-01-01 00:30:00", text);
    EXPECT_EQ(0, CGvxUtility::ParseGLUTCTimeToLocalTime("20251231T233000Z", text, "YYYYMMDDhhmmss"));
    EXPECT_EQ("20260101003000", text);
    EXPECT_EQ(0, CGvxUtility::TransISOUTCFormatToString("2025-12-31T23:30:00.123Z", text, "YYYYMMDDhhmmss"));
    EXPECT_EQ("20251231233000", text);
    long seconds = 0;
    EXPECT_EQ(0, CGvxUtility::TransLocalFormatToGMTUTC("20260102040405", seconds, "YYYYMMDDhhmmss"));
    EXPECT_EQ(TestClock::kStartWallMicroseconds / 1000000, seconds);
}

TEST_F(UtilityTimes, BadTimesAreRefusedAndTheOutputStays) {
    for (const auto& row : {std::pair<const char*, const char*>{"2026063023", "sscanf_s fail, return len[4]"},
                            {"", "sscanf_s fail, return len[-1]"},
                            {"2026-06-30 23:30:00", "Not a time"},
                            {"20261330000000", "Not a time[20261330000000]"},
                            {"20260630240000", "Not a time[20260630240000]"}}) {
        ScopedRecordingLogger log;
        std::string text = "unchanged";
        long seconds = 5;
        EXPECT_EQ(1, CGvxUtility::TransLocalFormatToUTC(row.first, text, "YYYYMMDDhhmmss")) << row.first;
        EXPECT_EQ(1, CGvxUtility::TransUTCFormatToLocal(row.first, text, "YYYYMMDDhhmmss"));
        EXPECT_EQ(1, CGvxUtility::TransLocalFormatToGMTUTC(row.first, seconds, "YYYYMMDDhhmmss"));
        EXPECT_EQ("unchanged", text);
        EXPECT_EQ(5, seconds);
        EXPECT_EQ(3u, log->CountLevel(OM_LOG_ERR));
        EXPECT_TRUE(log->Contains(row.second)) << row.first << log->Dump();
    }
}

TEST_F(UtilityTimes, TimingStatusAgesByTheMonotonicClock) {
    long last = 0;
    EXPECT_TRUE(CGvxUtility::CheckTimingStatus(last, 10));
    m_clock->AdvanceSeconds(9);
    m_clock->StepWall(std::chrono::hours(5));
    EXPECT_FALSE(CGvxUtility::CheckTimingStatus(last, 10));
    m_clock->AdvanceSeconds(1);
    EXPECT_TRUE(CGvxUtility::CheckTimingStatus(last, 10));
    EXPECT_FALSE(CGvxUtility::CheckTimingStatus(last, 10));
}

TEST(UtilityText, HexadecimalNumbers) {
    unsigned int value = 7;
    EXPECT_EQ(0, CGvxUtility::GetIntergerByHexString("0x0a14", value));
    EXPECT_EQ(0x0a14u, value);
    EXPECT_EQ(0, CGvxUtility::GetIntergerByHexString("00FFFFFFFF", value));
    EXPECT_EQ(0xFFFFFFFFu, value);
    for (const char* bad : {"", "0x", "x1", "1g", "-1", " 1", "1FFFFFFFF"}) {
        EXPECT_EQ(1, CGvxUtility::GetIntergerByHexString(bad, value)) << bad;
    }
    EXPECT_EQ(0xFFFFFFFFu, value);
}

TEST(UtilityText, SearchAndReplace) {
    const char* text = "Content-LENGTH: 5";
    EXPECT_EQ(text + 8, CGvxUtility::strcasestr(text, "length"));
    EXPECT_EQ(text, CGvxUtility::strcasestr(text, ""));
    EXPECT_EQ(nullptr, CGvxUtility::strcasestr(text, "lengths"));
    EXPECT_EQ(nullptr, CGvxUtility::strcasestr(nullptr, "x"));
    EXPECT_EQ("ba", CGvxUtility::replaceAll("aaa", "aa", "b"));
    EXPECT_EQ("1--2--3", CGvxUtility::replaceAll("1-2-3", "-", "--"));
    EXPECT_EQ("abc", CGvxUtility::replaceAll("abc", "", "x"));
}

TEST(UtilityText, CharacterSets) {
    const std::string utf8 = "\xE6\x91\x84\xE5\x83\x8F 1";  // "camera" in Chinese
    std::string gbk;
    std::string back;
    ASSERT_EQ(0, CGvxUtility::Utf8ToGbk(utf8, gbk));
    EXPECT_EQ("\xC9\xE3\xCF\xF1 1", gbk);
    ASSERT_EQ(0, CGvxUtility::GbkToUtf8(gbk, back));
    EXPECT_EQ(utf8, back);
    std::string large;
    for (int i = 0; i < 3000; ++i) {
        large += utf8;
    }
    ASSERT_EQ(0, CGvxUtility::Utf8ToGbk(large, gbk));
    EXPECT_EQ(3000u * 6, gbk.size());
    back = "unchanged";
    EXPECT_EQ(1, CGvxUtility::GbkToUtf8("\xC9", back)) << "half a character";
    EXPECT_EQ(1, CGvxUtility::ConvertCharset("no such set", "UTF-8", "x", back));
    EXPECT_EQ(2, CGvxUtility::ConvertCharset(nullptr, "UTF-8", "x", back));
    EXPECT_EQ("unchanged", back);
    EXPECT_TRUE(CGvxUtility::IsUtf8(utf8) && CGvxUtility::IsUtf8(""));
    EXPECT_FALSE(CGvxUtility::IsUtf8("\xC0\x80") || CGvxUtility::IsUtf8("\xED\xA0\x80"));
}

TEST(UtilityAddress, NetMasksPortsAndNumbers) {
    for (const char* good : {"0.0.0.0", "128.0.0.0", "255.255.255.0", "255.255.255.254", "255.255.255.255"}) {
        EXPECT_TRUE(CGvxUtility::IsNetMask(good)) << good;
    }
    for (const char* bad : {"", "255.0.255.0", "0.0.0.255", "255.255.255", "24"}) {
        EXPECT_FALSE(CGvxUtility::IsNetMask(bad)) << bad;
    }
    EXPECT_FALSE(CGvxUtility::IsNetMask(nullptr));
    EXPECT_TRUE(CGvxUtility::IsPort(1) && CGvxUtility::IsPort(65535));
    EXPECT_FALSE(CGvxUtility::IsPort(0) || CGvxUtility::IsPort(65536));
    EXPECT_EQ("10.200.0.1", CGvxUtility::convertNum2Ipv4(0x0AC80001u));
    std::uint32_t address = 0;
    EXPECT_EQ(0, CGvxUtility::convertIpv4ToNum("255.1.0.2", address));
    EXPECT_EQ(0xFF010002u, address);
    EXPECT_EQ(1, CGvxUtility::convertIpv4ToNum("1.2.3", address));
}

TEST(UtilityXml, ElementsByPath) {
    tinyxml2::XMLDocument document;
    ASSERT_EQ(tinyxml2::XML_SUCCESS, document.Parse("<r><a><b>7</b><c/></a><a><b>8</b></a></r>"));
    std::string text = "unchanged";
    int number = 0;
    EXPECT_EQ(1, CGvxUtility::GetXmlElementText(document.RootElement(), "a/d", text));
    EXPECT_EQ("unchanged", text);
    EXPECT_EQ(0, CGvxUtility::GetXmlElementText(document.RootElement(), "a/c", text));
    EXPECT_EQ("", text);
    EXPECT_EQ(0, CGvxUtility::GetXmlElementInt(document.RootElement(), "a/b", number));
    EXPECT_EQ(7, number);
    EXPECT_EQ(0, CGvxUtility::SetXmlElementText(document.RootElement(), "n", "<&>"));
    EXPECT_EQ(0, CGvxUtility::GetXmlElementText(document.RootElement(), "n", text));
    EXPECT_EQ("<&>", text);
    EXPECT_EQ(1, CGvxUtility::GetXmlElementText(nullptr, "a", text));
    EXPECT_EQ(1, CGvxUtility::SetXmlElementText(nullptr, "n", "x"));
    EXPECT_EQ("CAM1", CGvxUtility::GetDevCodeFromGetLogMsg("<Content><X/><Y><DevCode>CAM1</DevCode></Y></Content>"));
    EXPECT_EQ("", CGvxUtility::GetDevCodeFromGetLogMsg("<Content/>"));
    EXPECT_EQ("", CGvxUtility::GetDevCodeFromGetLogMsg("no xml"));
}

TEST(UtilityFile, ReadRemoveAndFolders) {
    const TempFolder folder;
    std::string content;
    EXPECT_EQ(0, CGvxUtility::dirCreate(folder.Path("a/b/c")));
    EXPECT_EQ(0, CGvxUtility::dirCreate(folder.Path("a/b/c")));
    EXPECT_EQ(0, CGvxUtility::fileWrite(folder.Path("a/b/c/f"), "text"));
    EXPECT_EQ(1, CGvxUtility::dirCreate(folder.Path("a/b/c/f")));
    EXPECT_EQ(0, CGvxUtility::fileRead(folder.Path("a/b/c/f"), content, 4));
    EXPECT_EQ("text", content);
    EXPECT_EQ(1, CGvxUtility::fileRead(folder.Path("a/b/c/f"), content, 3));
    EXPECT_EQ(0, CGvxUtility::fileRemove(folder.Path("a/b/c/f")));
    EXPECT_EQ(1, CGvxUtility::fileRemove(folder.Path("a/b/c/f")));
    const unsigned long self[] = {pthread_self()};
    EXPECT_EQ(0, CGvxUtility::pthreadSetThreadname(self, 1, "a name that is far too long"));
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    EXPECT_STREQ("a name that is ", name);
}

}  // namespace
