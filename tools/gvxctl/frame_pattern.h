#pragma once

#include "gvxctl/member_reader.h"

#include <json/value.h>

#include <string>
#include <vector>

namespace gvxctl {

// What an expected frame looks like. Everything that is given must hold; a '*' in a text stands for any text.
// Read by one thread; a pattern that does not change may be matched by any.
struct FramePattern {
    bool anyType = true;
    std::uint16_t type = 0;
    bool anyCode = true;
    std::uint32_t code = 0;
    std::string transaction;                                  // empty: any
    std::string body;                                         // the body's content; empty: any
    std::vector<std::pair<std::string, std::string>> fields;  // of an alarm, by name
    std::vector<std::pair<std::string, std::string>> xml;     // values by path, "Content/MUPort"
    std::vector<std::pair<std::string, Json::Value>> json;    // members of the top level
    bool bare = false;                                        // no body at all

    // Reads "type", "code", "transaction", "body", "fields", "xml", "json" and "bare".
    void Read(MemberReader& reader);
    bool Matches(const Frame& frame) const;
    // "NSS_... code 0 with MUPort=*"
    std::string Describe() const;
};

// '*' stands for any text, the empty one too; every other character for itself.
bool MatchesText(const std::string& pattern, const std::string& text);

}  // namespace gvxctl
