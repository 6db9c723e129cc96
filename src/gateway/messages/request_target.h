#pragma once

#include <cstddef>
#include <string>

class ACE_Message_Block;

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
// outside the frame, a body of more than kMaxRequestBodyBytes, an identifier that is none.
RequestTarget ReadRequestTarget(const ACE_Message_Block& frame);

// 1 to 32 printable characters without blanks.
bool IsCode(const std::string& text);

}  // namespace gvx
