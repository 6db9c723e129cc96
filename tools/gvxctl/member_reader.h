#pragma once

#include "gvxctl/answer_rules.h"

#include <json/value.h>

#include <set>
#include <string>

namespace gvxctl {

// Reads the members of one JSON object and remembers the first fault: a member of the wrong type, one that must be
// there and is not, and, at Finish, one that nobody has asked for. After a fault every reading leaves its target alone.
// One thread.
class MemberReader {
public:
    explicit MemberReader(const Json::Value& object);

    bool Has(const char* name) const;
    void Text(const char* name, std::string& value);
    void MustText(const char* name, std::string& value);  // neither missing nor empty
    void Flag(const char* name, bool& value);
    void Number(const char* name, long long min, long long max, long long& value);
    void Milliseconds(const char* name, int& value);  // 0 to one hour
    // A message type: a name with or without its "NSS_", or a number, as text also in hexadecimal.
    void MustType(const char* name, std::uint16_t& value);
    void Type(const char* name, std::uint16_t& value);
    // A result: its name, or its number.
    void Result(const char* name, std::uint32_t& value);
    // Null when there is none.
    const Json::Value* Object(const char* name);
    const Json::Value* MustArray(const char* name);
    // One of "xml", "json", "plain_json", "text" and "hex", or none.
    void Body(BodySpec& body);

    void Fail(const std::string& fault);
    const std::string& Fault() const { return m_fault; }
    // True when everything could be read and nothing is left over.
    bool Finish();

private:
    const Json::Value* Find(const char* name);

    const Json::Value& m_object;
    std::set<std::string> m_asked;
    std::string m_fault;
};

// "NSS_KEEPALIVE_REQ", "KEEPALIVE_REQ", "2987", "0x0BAB"
bool ParseMsgType(const std::string& text, std::uint16_t& type);
// "ZVS_GVX_DEV_NOT_EXIST", "GVX_DEV_NOT_EXIST", "189108041"
bool ParseResult(const std::string& text, std::uint32_t& code);

}  // namespace gvxctl
