#pragma once

#include <cstddef>
#include <string>

// One text of a document, found on the way through it: nothing is kept of the rest, so that it costs little whatever a
// peer sends. Any thread; the time is bounded by the length and by the limits.
namespace gvx {

constexpr std::size_t kMaxBodyElements = 20000;  // elements of a body in XML, values of one in JSON

// What is found, and how.
struct TextMember {
    enum class State {
        Found,
        Absent,    // well formed, without such a text
        NoText,    // there, but no text (JSON)
        Malformed  // not well formed, or beyond the limits; fault says why
    };
    State state = State::Absent;
    std::string text;   // UTF-8
    std::string fault;  // one sentence without its full stop
};

// The text of the first element `child` right below the root element `root`; texts beside comments and CDATA sections
// are one text. Absent where the root has another name.
TextMember FindXmlMember(const char* text, std::size_t length, const char* root, const char* child);

// The member of the outermost object; of two of that name it is Malformed. A document that is no object is Malformed.
TextMember FindJsonMember(const char* text, std::size_t length, const char* name);

}  // namespace gvx
