#include "base/json_io.h"

#include <json/reader.h>
#include <json/writer.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ios>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>
#include <vector>

namespace gvx {
namespace {

// Readers and writers that are not in use. Making one looks its settings up by name, which costs more than most of our
// texts do. One whose work threw is not given back. Never destroyed: threads read and write until late in the end of
// the process.
template <typename Tool>
class Spares {
public:
    std::unique_ptr<Tool> Take() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_tools.empty()) {
            return nullptr;
        }
        std::unique_ptr<Tool> tool = std::move(m_tools.back());
        m_tools.pop_back();
        return tool;
    }
    void Give(std::unique_ptr<Tool> tool) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_tools.push_back(std::move(tool));
    }

private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<Tool>> m_tools;  // Guarded by m_mutex.
};

Json::CharReaderBuilder MakeReaderBuilder() {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;
    builder["stackLimit"] = kMaxJsonDepth;
    return builder;
}

Json::StreamWriterBuilder MakeWriterBuilder() {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["commentStyle"] = "None";
    return builder;
}

// The library writes its findings over several lines.
std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    while (!text.empty() && text.back() == ' ') {
        text.pop_back();
    }
    return text;
}

bool ParseOrThrow(const char* text, std::size_t length, Json::Value& value, std::string& fault) {
    static const auto& builder = *new Json::CharReaderBuilder(MakeReaderBuilder());
    static auto& spares = *new Spares<Json::CharReader>;
    std::unique_ptr<Json::CharReader> reader = spares.Take();
    if (reader == nullptr) {
        reader.reset(builder.newCharReader());
    }
    const bool good = reader->parse(text, text + length, &value, &fault);
    spares.Give(std::move(reader));
    return good;
}

bool Refuse(Json::Value& value, std::string* error, std::string reason) {
    value = Json::Value();
    if (error != nullptr) {
        *error = OneLine(std::move(reason));
    }
    return false;
}

const Json::Value* Member(const Json::Value& object, const char* name) {
    return object.isObject() ? object.find(name, name + std::strlen(name)) : nullptr;
}

bool DecimalText(const std::string& text, long long& number) {
    errno = 0;
    char* end = nullptr;
    number = std::strtoll(text.c_str(), &end, 10);
    return !text.empty() && errno == 0 && end == text.c_str() + text.size();
}

}  // namespace

bool ParseJson(const char* text, std::size_t length, Json::Value& value, std::string* error, const JsonLimits& limits) {
    if (text == nullptr) {
        return Refuse(value, error, "no text");
    }
    if (length > limits.bytes) {
        return Refuse(value, error, "longer than " + std::to_string(limits.bytes) + " bytes");
    }
    if (CountJsonValues(text, length) > limits.values) {
        return Refuse(value, error, "more than " + std::to_string(limits.values) + " values");
    }
    std::string fault;
    try {
        if (ParseOrThrow(text, length, value, fault)) {
            return true;
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& thrown) {
        if (std::strstr(thrown.what(), "Failed to allocate") != nullptr) {  // the library's own words for it
            throw std::bad_alloc();
        }
        fault = thrown.what();
    }
    return Refuse(value, error, std::move(fault));
}

// Each value but the first stands behind a bracket, a comma or a colon.
std::size_t CountJsonValues(const char* text, std::size_t length) noexcept {
    std::size_t count = 1;
    bool inText = false;
    for (std::size_t at = 0; at < length; ++at) {
        const char c = text[at];
        if (c == '"') {
            inText = !inText;
        } else if (inText) {
            at += c == '\\' ? 1 : 0;
        } else {
            count += c == ',' || c == ':' || c == '[' || c == '{' ? 1 : 0;
        }
    }
    return count;
}

std::string WriteJson(const Json::Value& value) {
    static const auto& builder = *new Json::StreamWriterBuilder(MakeWriterBuilder());
    static auto& spares = *new Spares<Json::StreamWriter>;
    std::unique_ptr<Json::StreamWriter> writer = spares.Take();
    if (writer == nullptr) {
        writer.reset(builder.newStreamWriter());
    }
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // a stream keeps to itself that it finds no memory, and leaves half a text
    writer->write(value, &text);
    text << '\n';
    spares.Give(std::move(writer));
    return text.str();
}

void AppendJsonText(const std::string& value, std::string& text) {
    const bool plain =
        std::all_of(value.begin(), value.end(), [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
    if (plain) {
        text.append(1, '"').append(value).append(1, '"');
    } else {
        text += WriteJson(value);
        text.pop_back();  // the end of its line
    }
}

void WipeJson(Json::Value& value) {
    const char* begin = nullptr;
    const char* end = nullptr;
    if (value.isString() && value.getString(&begin, &end)) {
        OPENSSL_cleanse(const_cast<char*>(begin), static_cast<std::size_t>(end - begin));
    }
    if (value.isArray() || value.isObject()) {
        for (Json::Value& member : value) {
            WipeJson(member);
        }
    }
}

std::string JsonText(const Json::Value& object, const char* name, const std::string& fallback) {
    const Json::Value* member = Member(object, name);
    return member != nullptr && (member->isString() || member->isNumeric()) ? member->asString() : fallback;
}

long long JsonInt(const Json::Value& object, const char* name, long long fallback) {
    const Json::Value* member = Member(object, name);
    if (member == nullptr) {
        return fallback;
    }
    if (member->isInt64()) {
        return member->asInt64();
    }
    long long number = 0;
    return member->isString() && DecimalText(member->asString(), number) ? number : fallback;
}

bool JsonBool(const Json::Value& object, const char* name, bool fallback) {
    const Json::Value* member = Member(object, name);
    return member != nullptr && member->isBool() ? member->asBool() : fallback;
}

}  // namespace gvx
