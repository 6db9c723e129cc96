#pragma once

#include "bp/cmd.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class ACE_Message_Block;
namespace CBB {
class CXml;
}
namespace Json {
class Value;
}

namespace gvx {

constexpr std::size_t kMaxCodeLength = 32;                 // of a device, a lens, a service
constexpr std::size_t kMaxRequestBodyBytes = 1024 * 1024;  // of an XML or JSON body

// Whom a frame concerns.
struct RequestTarget {
    bool malformed = false;
    std::string device;  // empty: the gateway itself
    std::string reason;  // of a malformed body, one sentence
};

// Reads the device from a frame's body: Content/DevCode of XML, the member DevCode of JSON. A body in neither form, an
// empty one and one without DevCode concern the gateway. Malformed: text that does not parse, an item that leads
// outside the frame, a body of more than kMaxRequestBodyBytes or kMaxBodyElements, an identifier that is none. Nothing
// is kept of the body, so that whatever a peer sends holds the link thread up but for moments. Any thread.
RequestTarget ReadRequestTarget(const ACE_Message_Block& frame);

// The member PluginName of a frame's JSON body; empty when there is no such text. Any thread.
std::string ReadRequestPlugin(const ACE_Message_Block& frame);

// The XML body of a command; its cursor stands inside Content, before the first child. Null when there is none.
std::unique_ptr<CBB::CXml> ReadXmlContent(const BP::CCmd& cmd);

// Text of a child at the cursor's level, whatever its place; empty when there is none.
std::string XmlText(CBB::CXml& xml, const char* name);

// Reads the JSON body of a command, an object. False when there is no such body.
bool ReadJsonObject(const BP::CCmd& cmd, Json::Value& body);

// The result in the head of a response; none when the command has no whole head.
std::optional<std::uint32_t> ResponseCode(const BP::CCmd& cmd);

// Decimal text within the bounds, both included.
bool ReadNumber(const std::string& text, long long least, long long most, long long& value);

// 1 to 32 printable characters without blanks.
bool IsCode(const std::string& text);

}  // namespace gvx
