#include "gvxctl/member_reader.h"

#include "base/json_io.h"
#include "nss/nss_msg_type.h"

#include <cerrno>
#include <cstdlib>
#include <map>

namespace gvxctl {
namespace {

constexpr int kHourMs = 3600 * 1000;

int HexDigit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

// Blanks may stand anywhere between two digits.
bool FromHex(const std::string& text, std::string& bytes) {
    int high = -1;
    for (const char c : text) {
        const int digit = HexDigit(c);
        if (digit < 0 && c != ' ') {
            return false;
        }
        if (digit >= 0 && high < 0) {
            high = digit;
        } else if (digit >= 0) {
            bytes += static_cast<char>(high << 4 | digit);
            high = -1;
        }
    }
    return high < 0;
}

}  // namespace

bool ParseMsgType(const std::string& text, std::uint16_t& type) {
    if (NssMsgTypeFromName(text, type)) {
        return true;
    }
    if (text.empty() || HexDigit(text[0]) < 0) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const unsigned long number = std::strtoul(text.c_str(), &end, hex ? 16 : 10);
    type = static_cast<std::uint16_t>(number);
    return errno == 0 && *end == '\0' && number <= 0xFFFF;
}

bool ParseResult(const std::string& text, std::uint32_t& code) {
    static const std::map<std::string, int> kResults{
#define ZVS_ERROR_ROW(name, number, text) {#name, number},
#include "base/zvs_error_table.inc"
#undef ZVS_ERROR_ROW
    };
    auto row = kResults.find(text);
    row = row == kResults.end() ? kResults.find("ZVS_" + text) : row;
    if (row != kResults.end()) {
        code = static_cast<std::uint32_t>(row->second);
        return true;
    }
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos ||
        std::stoull(text) > 0xFFFFFFFF) {
        return false;
    }
    code = static_cast<std::uint32_t>(std::stoull(text));
    return true;
}

MemberReader::MemberReader(const Json::Value& object) : m_object(object) {
    if (!object.isObject()) {
        Fail("is no JSON object");
    }
}

void MemberReader::Fail(const std::string& fault) {
    if (m_fault.empty()) {
        m_fault = fault;
    }
}

bool MemberReader::Has(const char* name) const {
    return m_object.isObject() && m_object.isMember(name);
}

const Json::Value* MemberReader::Find(const char* name) {
    m_asked.insert(name);
    return m_fault.empty() && Has(name) ? &m_object[name] : nullptr;
}

void MemberReader::Text(const char* name, std::string& value) {
    const Json::Value* member = Find(name);
    if (member != nullptr && !member->isString()) {
        return Fail(std::string("\"") + name + "\" is no text");
    }
    if (member != nullptr) {
        value = member->asString();
    }
}

void MemberReader::MustText(const char* name, std::string& value) {
    Text(name, value);
    if (value.empty()) {
        Fail(std::string("\"") + name + "\" is missing");
    }
}

void MemberReader::Flag(const char* name, bool& value) {
    const Json::Value* member = Find(name);
    if (member != nullptr && !member->isBool()) {
        return Fail(std::string("\"") + name + "\" is neither true nor false");
    }
    if (member != nullptr) {
        value = member->asBool();
    }
}

void MemberReader::Number(const char* name, long long min, long long max, long long& value) {
    const Json::Value* member = Find(name);
    if (member == nullptr) {
        return;
    }
    if (!member->isInt64() || member->asInt64() < min || member->asInt64() > max) {
        return Fail(std::string("\"") + name + "\" is no number from " + std::to_string(min) + " to " +
                    std::to_string(max));
    }
    value = member->asInt64();
}

void MemberReader::Milliseconds(const char* name, int& value) {
    long long number = value;
    Number(name, 0, kHourMs, number);
    value = static_cast<int>(number);
}

void MemberReader::MustType(const char* name, std::uint16_t& value) {
    if (!Has(name)) {
        return Fail(std::string("\"") + name + "\" is missing");
    }
    Type(name, value);
}

void MemberReader::Type(const char* name, std::uint16_t& value) {
    const Json::Value* member = Find(name);
    if (member == nullptr) {
        return;
    }
    const bool scalar = member->isString() || member->isIntegral();
    if (!scalar || !ParseMsgType(member->asString(), value)) {
        Fail(std::string("\"") + name + "\" is no message type: " + (scalar ? member->asString() : "no text"));
    }
}

void MemberReader::Result(const char* name, std::uint32_t& value) {
    const Json::Value* member = Find(name);
    if (member != nullptr && !((member->isString() || member->isUInt()) && ParseResult(member->asString(), value))) {
        Fail(std::string("\"") + name + "\" is no result, neither by name nor by number");
    }
}

const Json::Value* MemberReader::Object(const char* name) {
    const Json::Value* member = Find(name);
    if (member != nullptr && !member->isObject()) {
        Fail(std::string("\"") + name + "\" is no JSON object");
        return nullptr;
    }
    return member;
}

const Json::Value* MemberReader::MustArray(const char* name) {
    const Json::Value* member = Find(name);
    if (member == nullptr || !member->isArray()) {
        Fail(std::string("\"") + name + "\" is no list");
        return nullptr;
    }
    return member;
}

void MemberReader::Body(BodySpec& body) {
    const auto take = [&](const char* name, std::uint16_t tag) -> const Json::Value* {
        const Json::Value* member = Find(name);
        if (member != nullptr && body.given) {
            Fail(std::string("\"") + name + "\" is a second body");
        }
        if (member != nullptr) {
            body.given = true;
            body.tag = tag;
        }
        return member;
    };
    for (const char* name : {"json", "plain_json"}) {
        if (const Json::Value* json = take(name, name[0] == 'j' ? NSS_TAG_JSON_CONTENT : NSS_TAG_INVALID)) {
            body.content = json->isString() ? json->asString() : gvx::WriteJson(*json);
        }
    }
    if (take("xml", NSS_TAG_XML_CONTENT) != nullptr) {
        Text("xml", body.content);
    }
    if (take("text", NSS_TAG_INVALID) != nullptr) {
        Text("text", body.content);
    }
    std::string hex;
    if (take("hex", NSS_TAG_INVALID) != nullptr) {
        Text("hex", hex);
        if (!FromHex(hex, body.content)) {
            Fail("\"hex\" holds something else than pairs of hexadecimal digits");
        }
    }
}

bool MemberReader::Finish() {
    if (m_fault.empty()) {
        for (const std::string& name : m_object.getMemberNames()) {
            if (m_asked.count(name) == 0) {
                Fail("unknown member \"" + name + "\"");
            }
        }
    }
    return m_fault.empty();
}

}  // namespace gvxctl
