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

// A body as it was parsed when the frame's device was looked for. It goes with the command (BP::CCmd::SetAttachment),
// so that the work need not parse again: whoever reads the body first gets the tree. One thread at a time.
struct ParsedBody : BP::CmdAttachment {
    // A tree takes some sixty times the bytes of its text. Commands wait with trees of texts up to this length, which
    // then take no more than the longest frame.
    static constexpr std::size_t kMaxWaitingBytes = 16 * 1024;

    ~ParsedBody() override;

    std::size_t textBytes = 0;
    std::unique_ptr<CBB::CXml> xml;     // null for JSON
    std::unique_ptr<Json::Value> json;  // an object; null for XML
};

// Whom a frame concerns.
struct RequestTarget {
    bool malformed = false;
    std::string device;                // empty: the gateway itself
    std::string reason;                // of a malformed body, one sentence
    std::shared_ptr<ParsedBody> body;  // null when nothing was parsed
};

// Reads the device from a frame's body: Content/DevCode of XML, the member DevCode of JSON. A body in neither form, an
// empty one and one without DevCode concern the gateway. Malformed: text that does not parse, an item that leads
// outside the frame, a body of more than kMaxRequestBodyBytes, an identifier that is none. Any thread.
RequestTarget ReadRequestTarget(const ACE_Message_Block& frame);

// The XML body of a command; its cursor stands inside Content, before the first child. Null when there is none.
std::unique_ptr<CBB::CXml> ReadXmlContent(const BP::CCmd& cmd);

// Text of a child at the cursor's level, whatever its place; empty when there is none.
std::string XmlText(CBB::CXml& xml, const char* name);

// Reads the JSON body of a command, an object. False when there is no such body.
bool ReadJsonObject(const BP::CCmd& cmd, Json::Value& body);

// The result in the head of a response; none when the command has no whole head.
std::optional<std::uint32_t> ResponseCode(const BP::CCmd& cmd);

// 1 to 32 printable characters without blanks.
bool IsCode(const std::string& text);

}  // namespace gvx
