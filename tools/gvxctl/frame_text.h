#pragma once

#include "gvxctl/frame.h"

#include <string>

// Frames for people: names of types and codes, head fields, and bodies decoded by their form. Any thread.
namespace gvxctl {

// The body as text: its XML or JSON item, JSON text without an item, or an alarm record field by field; other bodies
// as their tagged items or a piece in hexadecimal. Empty for a bare head. Lines behind the first are indented by
// four blanks.
std::string BodyText(const Frame& frame);

// Text in which patterns are looked for: the XML or JSON item, else all bytes of the body.
std::string BodyContent(const Frame& frame);

// The names of a message type; where one number has several, all of them with a '/' between.
std::string TypeText(std::uint16_t type);

// "189108041 ZVS_GVX_DEV_NOT_EXIST"
std::string CodeText(std::uint32_t code);

// The head on one line, the body on lines of its own.
std::string DescribeFrame(const Frame& frame);
// Type, result and a piece of the body, all on one line.
std::string FrameLine(const Frame& frame);

}  // namespace gvxctl
