#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <utility>
#include <vector>

namespace tinyxml2 {
class XMLElement;
}

// Helpers that the rest of the system shares: texts, validators, times, addresses, numbers. All are static, free of
// shared state (save the two counters, which lock by themselves) and callable from any thread. Integer results are
// 0 for success, 1 for a failure and 2 for an argument that is not allowed.
class CGvxUtility {
public:
    // The singleton, for callers that hold helpers by object; never null.
    static CGvxUtility* Instance();

    // ---- texts ----

    // Without blanks, tabs, carriage returns and line feeds at both ends.
    static std::string trim(const std::string& text);
    // The pieces between separators; empty pieces are kept, and an empty text gives none. An empty separator gives
    // the whole text.
    static std::vector<std::string> split(const std::string& text, const std::string& separator);
    // ASCII letters only, whatever the locale.
    static std::string toUpper(const std::string& text);
    static std::string toLower(const std::string& text);
    // The decimal number that text begins with, 0 when there is none; limited to the range of int.
    static int toInt(const std::string& text);
    template <typename Number>
    static std::string toStr(Number value) {
        return std::to_string(value);
    }
    // Bare lower-case hexadecimal without prefix or leading zeros; 0 gives "0".
    static std::string hexToStr(unsigned int value);
    // The hexadecimal number that is the whole text, with or without "0x". 0; 1 for any other text or above 32 bits,
    // and value is then unchanged.
    static int GetIntergerByHexString(const std::string& text, unsigned int& value);
    // Where needle first stands in text, whatever the case of ASCII letters; null when it does not, or for null. An
    // empty needle stands at the start.
    static const char* strcasestr(const char* text, const char* needle);
    // Each stretch of from replaced by to; an empty from changes nothing.
    static std::string replaceAll(const std::string& text, const std::string& from, const std::string& to);

    // ---- character sets ----

    // Between two character sets by their iconv names, such as "UTF-8" and "GB18030". 0; 2 for null; 1 with a log line
    // for a set that is not known or bytes that are not of it, and out is then unchanged.
    static int ConvertCharset(const char* from, const char* to, const std::string& in, std::string& out);
    // Chinese text of devices; GB18030 holds GBK and GB2312.
    static int GbkToUtf8(const std::string& in, std::string& out);
    static int Utf8ToGbk(const std::string& in, std::string& out);
    // Well-formed UTF-8 (RFC 3629), the empty text included.
    static bool IsUtf8(const std::string& text);

    // ---- XML elements (owned by their document) ----

    // Follows a slash path of names from the children of parent on, first match at each level; null when there is none.
    static const tinyxml2::XMLElement* FindXmlElement(const tinyxml2::XMLElement* parent, const char* path);
    // The text of the element at that path. 0; 1 when there is no such element, and value is then unchanged. An
    // element without text gives the empty text.
    static int GetXmlElementText(const tinyxml2::XMLElement* parent, const char* path, std::string& value);
    static int GetXmlElementInt(const tinyxml2::XMLElement* parent, const char* path, int& value);
    // Sets the text of the child of that name, which is made when it is missing. 0, or 1 for null.
    static int SetXmlElementText(tinyxml2::XMLElement* parent, const char* name, const std::string& value);
    // The device that a request for a device's log names: the first DevCode of its XML text. Empty when there is none.
    static std::string GetDevCodeFromGetLogMsg(const std::string& xml);

    // ---- files and threads ----

    static bool fileExist(const std::string& path);
    // Replaces the file's content, or makes the file. 0, or 1 with a log line when it cannot be written whole.
    static int fileWrite(const std::string& path, const std::string& content);
    // Reads a regular file of at most maxBytes. 0, or 1 with a log line.
    static int fileRead(const std::string& path, std::string& content, std::size_t maxBytes);
    static int fileRemove(const std::string& path);
    // Makes a folder and those above it, mode 0755; one that exists is fine.
    static int dirCreate(const std::string& path);
    // Names a thread (pthread_t) for the system's tools; a name longer than 15 characters is cut. 0 or an errno value.
    static int pthreadSetThreadname(unsigned long thread, const char* name);
    // The same for several threads. 0, or the errno value of the first that failed; all are tried.
    static int pthreadSetThreadname(const unsigned long* threads, int count, const std::string& name);

    // ---- validators ----

    // Decimal digits only; the empty text passes.
    static bool isNum(const std::string& text);
    // Four dotted groups of at most 255; a group above 0 has no leading zero.
    static bool IsIPv4(const char* text);
    // An IPv4 address whose ones stand before its zeros, 0.0.0.0 and 255.255.255.255 included.
    static bool IsNetMask(const char* text);
    // 1 to 65535.
    static bool IsPort(int port);
    // Labels of 1 to 63 letters, digits and inner hyphens, 253 characters at most, under one of the known suffixes.
    static bool IsValidDomainName(const std::string& name);
    static bool Check35114Level(const std::string& text, unsigned int length);
    static bool CheckKeyLabel(const std::string& text, unsigned int min, unsigned int max);
    static bool CheckServerID(const std::string& text, unsigned int length);
    // Exactly that length, and at least two of: lower case, upper case, digits, others.
    static bool checkPassword(const std::string& text, unsigned int length);
    // 0 when text may be part of a shell command, 2 when it may not. Keeps metacharacters from the wire out of it.
    static int checkCmdPath(const char* text);
    // True for a character below the blank, or DEL: a text with one may not be part of a header line, which a line end
    // would cut in two (RFC 9110, section 5.5). False for null.
    static bool HoldsControlCharacter(const char* text);
    // True when the path is bad: null, or holding a blank or one of | ; ? `
    static bool FilePathJuge(const char* text);

    // ---- numbers ----

    // A process-wide number up to 60000, then on from 3; 0 to 2 do not come again after the first wrap.
    static unsigned int CreatSeqID();
    // prefix, local time and number as "<prefix>YYYYMMDDhhmmss<number, 5 digits>"; empty when longer than 63
    // characters. Unique within a second only as far as number is.
    static std::string GenerateTransactionNo(const std::string& prefix, unsigned int number);
    // CRC-16/XMODEM: polynomial 0x1021, start 0, no reflection. Null data gives 1.
    static unsigned short CalcCRCXModem(const char* data, unsigned int length);
    // modulus must not be 0; 0 is answered with 0 and a log line.
    static unsigned long RotatingHash(const std::string& text, unsigned long modulus);
    // The usual bit rate of a resolution such as "1920*1080", in kbit/s; 2048 for any other.
    static void GetDefaultBitRateByResolution(const std::string& resolution, int& bitRate);

    // ---- addresses ----

    // Between dotted text and a number in host order. convertIpv4ToNum gives 0 or 1.
    static std::string convertNum2Ipv4(std::uint32_t address);
    static int convertIpv4ToNum(const std::string& text, std::uint32_t& address);
    // Takes "rtsp://[user[:password]@]host[:port][/path]" (RFC 2326, section 3.2) apart. port is in host order, 554
    // when absent; authUrl is the URL without credentials. 0 or 1; outputs are unspecified on failure.
    static int ParseRtspUrl(const std::string& url, std::string& host, unsigned short& port, std::string& authUrl);
    // Appends the low and high address (host order) of each entry of "a,b;c,d;..." or of one single address, whose
    // zeros at the end widen it. 0, or 2 for a bad entry; entries before it stay appended.
    static int AnalysisWhitelist(const std::string& text, std::list<std::pair<unsigned int, unsigned int>>& ranges);

    // ---- times ----
    //
    // A format word names a form: "YYYYMMDDhhmmss", "YYYYMMDDThhmmssZ", or any other word (null included) for
    // "YYYY-MM-DD hh:mm:ss". Conversions give 0, or 1 with a log line when the input is not of its form; the output is
    // then unchanged. Local time is that of the process (TZ).

    static std::string GetCurTime();            // local, "YYYY-MM-DD hh:mm:ss"
    static std::string GetCurTimeNoSeperate();  // local, "YYYYMMDDhhmmss"
    static int GetCurrentUtcTime(std::string& text, const char* format);

    // "YYYY-MM-DDThh:mm:ss", with anything behind it, in UTC, to the form of the format word; stays UTC.
    static int TransISOUTCFormatToString(const std::string& isoTime, std::string& text, const char* format);
    // Between local time and UTC, both in the form of the format word.
    static int TransLocalFormatToUTC(const std::string& local, std::string& utc, const char* format);
    static int TransUTCFormatToLocal(const std::string& utc, std::string& local, const char* format);
    // The same with a form of its own for the output.
    static int TransUTCFormatToLocalEx(const std::string& utc, std::string& local, const char* format,
                                       const char* localFormat);
    // Local time to seconds since 1970-01-01 00:00:00 UTC.
    static int TransLocalFormatToGMTUTC(const std::string& local, long& seconds, const char* format);
    // "YYYYMMDDThhmmssZ" in UTC to local time in the form of the format word.
    static int ParseGLUTCTimeToLocalTime(const std::string& utc, std::string& local, const char* format);

    // False when fewer than interval seconds have passed since last; otherwise last becomes now. last counts seconds
    // of the monotonic clock; begin it with 0 or with an earlier call's value.
    static bool CheckTimingStatus(long& last, int interval);

private:
    CGvxUtility() = default;
};

// The same object as CGvxUtility::Instance().
CGvxUtility* GvxUtility();
