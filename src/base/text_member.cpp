#include "base/text_member.h"

#include "base/json_io.h"
#include "base/wiping_memory.h"
#include "base/xml_reader.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <cstring>
#include <exception>
#include <new>
#include <utility>

namespace gvx {
namespace {

TextMember Malformed(std::string fault) {
    TextMember member;
    member.state = TextMember::State::Malformed;
    member.fault = std::move(fault);
    return member;
}

class XmlMemberSink : public XmlSink {
public:
    XmlMemberSink(const char* root, const char* child) : m_root(root), m_child(child) {}

    void Attach(XmlReader& reader) {
        m_reader = &reader;
        reader.WantText(false);
    }

    void ElementBegins(const char* name, const char* const*) override {
        ++m_depth;
        if (m_depth == 1) {
            m_inRoot = std::strcmp(name, m_root) == 0;
        } else if (m_depth == 2 && m_inRoot && !m_done && std::strcmp(name, m_child) == 0) {
            m_inside = true;
            m_reader->WantText(true);
        } else if (m_inside) {
            m_textEnded = true;  // what stands behind a child is a text of its own, as it is in the tree
        }
    }
    void ElementEnds() override {
        if (m_inside && m_depth == 2) {
            m_inside = false;
            m_done = true;
            m_reader->WantText(false);
        }
        --m_depth;
    }
    void Text(const char* text, std::size_t length) override {
        if (m_inside && m_depth == 2 && !m_textEnded) {
            member.text.append(text, length);
        }
    }
    void CDataBegins() override { m_hasCData = m_hasCData || (m_inside && m_depth == 2 && !m_textEnded); }

    TextMember Take() {
        if (m_done) {
            member.state = TextMember::State::Found;
            if (IsBlank()) {
                member.text.clear();
            }
        }
        return std::move(member);
    }

    TextMember member;

private:
    bool IsBlank() const { return !m_hasCData && member.text.find_first_not_of(" \t\r\n") == std::string::npos; }

    const char* const m_root;
    const char* const m_child;
    XmlReader* m_reader = nullptr;
    unsigned int m_depth = 0;
    bool m_inRoot = false;
    bool m_inside = false;
    bool m_hasCData = false;
    bool m_textEnded = false;
    bool m_done = false;
};

// The parser's buffers, which hold every text of the document in turn.
struct WipingAllocator {
    static const bool kNeedFree = true;
    void* Malloc(std::size_t bytes) { return bytes == 0 ? nullptr : WipingAlloc(bytes); }
    void* Realloc(void* memory, std::size_t, std::size_t bytes) {
        if (bytes == 0) {
            WipingFree(memory);
            return nullptr;
        }
        return WipingRealloc(memory, bytes);
    }
    static void Free(void* memory) { WipingFree(memory); }
};

class JsonMemberHandler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, JsonMemberHandler> {
public:
    explicit JsonMemberHandler(const char* name) : m_name(name) {}

    bool Default() { return TakeOther(); }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (m_depth != 1 || !m_named) {
            return TakeOther();
        }
        member.text.assign(text, length);
        return Take(TextMember::State::Found);
    }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        m_named = m_depth == 1 && m_name.size() == length && std::memcmp(m_name.data(), text, length) == 0;
        return true;
    }
    bool StartObject() { return Enter(true); }
    bool StartArray() { return Enter(false); }
    bool EndObject(rapidjson::SizeType) { return Leave(); }
    bool EndArray(rapidjson::SizeType) { return Leave(); }

    const char* Fault() const { return m_fault; }
    TextMember member;

private:
    bool Refuse(const char* fault) {
        m_fault = fault;
        return false;
    }
    bool TakeOther() {
        if (m_depth == 0) {
            return Refuse("it is no object");
        }
        return m_depth != 1 || !m_named || Take(TextMember::State::NoText);
    }
    bool Take(TextMember::State state) {
        if (member.state != TextMember::State::Absent) {
            return Refuse("a member stands there twice");
        }
        member.state = state;
        m_named = false;
        return true;
    }
    bool Enter(bool object) {
        if (!TakeOther() && !(m_depth == 0 && object)) {
            return false;
        }
        m_fault = nullptr;
        m_named = false;
        return ++m_depth <= kMaxJsonDepth || Refuse("it is nested too deeply");
    }
    bool Leave() {
        --m_depth;
        m_named = false;
        return true;
    }

    const std::string m_name;
    const char* m_fault = nullptr;
    unsigned int m_depth = 0;
    bool m_named = false;  // the value that comes is the member's
};

}  // namespace

TextMember FindXmlMember(const char* text, std::size_t length, const char* root, const char* child) {
    XmlLimits limits;
    limits.elements = kMaxBodyElements;
    try {
        XmlMemberSink sink(root, child);
        XmlReader reader(sink, limits);
        sink.Attach(reader);
        std::string fault;
        return reader.Read(text, length, &fault) ? sink.Take() : Malformed(std::move(fault));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& thrown) {
        return Malformed(thrown.what());
    }
}

TextMember FindJsonMember(const char* text, std::size_t length, const char* name) {
    if (text == nullptr || std::memchr(text, '\0', length) != nullptr) {
        return Malformed("there is no text, or a zero byte in it");
    }
    if (CountJsonValues(text, length) > kMaxBodyElements) {
        return Malformed("it has too many values");
    }
    constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
    try {
        WipingAllocator memory;
        rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, WipingAllocator> reader(&memory);
        rapidjson::MemoryStream stream(text, length);
        JsonMemberHandler handler(name);
        if (reader.Parse<kFlags>(stream, handler)) {
            return std::move(handler.member);
        }
        const char* fault = handler.Fault();
        return Malformed(
            std::string(fault != nullptr ? fault : rapidjson::GetParseError_En(reader.GetParseErrorCode())) +
            ", byte " + std::to_string(reader.GetErrorOffset()));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& thrown) {
        return Malformed(thrown.what());
    }
}

}  // namespace gvx
