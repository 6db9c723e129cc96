#pragma once

#include <json/value.h>

#include <cstddef>
#include <string>

// The only way to read and write JSON here, bounded in size and depth. Without memory both throw std::bad_alloc, and
// nothing else. Any thread.
namespace gvx {

constexpr std::size_t kMaxJsonBytes = 4u * 1024u * 1024u;  // a frame is never longer
constexpr unsigned kMaxJsonDepth = 64;
constexpr std::size_t kMaxJsonValues = 100000;

struct JsonLimits {
    std::size_t bytes = kMaxJsonBytes;
    std::size_t values = kMaxJsonValues;
};

// Parses text; false when it is too long, too deep, of too many values or malformed, and *error (may be null) then says
// what and where. Duplicate keys are refused.
bool ParseJson(const char* text, std::size_t length, Json::Value& value, std::string* error,
               const JsonLimits& limits = JsonLimits());

// At least as many as the values that the text holds, names of members among them; found without parsing.
std::size_t CountJsonValues(const char* text, std::size_t length) noexcept;

// Compact text, one line, ended by a line feed as Json::FastWriter ends it.
std::string WriteJson(const Json::Value& value);

// Appends a text to one that is written by hand, quoted and escaped as WriteJson has it.
void AppendJsonText(const std::string& value, std::string& text);

// Overwrites the texts that the value holds, at any depth; for one that carried a password. Member names stay.
void WipeJson(Json::Value& value);

// Reads a member by name. Missing, or of another type: the fallback. A number is accepted as text where text is
// asked for, and decimal text where a number is asked for.
std::string JsonText(const Json::Value& object, const char* name, const std::string& fallback = std::string());
long long JsonInt(const Json::Value& object, const char* name, long long fallback = 0);
bool JsonBool(const Json::Value& object, const char* name, bool fallback = false);

}  // namespace gvx
