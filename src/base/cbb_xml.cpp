#include "base/cbb_xml.h"

#include "base/whole_file.h"
#include "base/xml_reader.h"

#include <openssl/crypto.h>
#include <tinyxml2.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

namespace CBB {
namespace {

constexpr std::size_t kMaxDocumentBytes = 16u * 1024u * 1024u;

using tinyxml2::XMLElement;
using tinyxml2::XMLNode;

bool IsElementName(const char* name) {
    return name != nullptr && *name != '\0' && std::strpbrk(name, " \t\r\n<>&\"'/=") == nullptr &&
           std::strchr("0123456789-.", *name) == nullptr;
}

bool IsCharacterData(const char* value) {
    for (; *value != '\0'; ++value) {
        const auto c = static_cast<unsigned char>(*value);
        if (c < 0x20 && c != '\t' && c != '\n' && c != '\r') {
            return false;
        }
    }
    return true;
}

const char* OrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

std::string NameUpToSlash(std::string_view path) {
    return std::string(path.substr(0, path.find('/')));
}

// The first element of a path at or behind `first` among its siblings, searched depth first.
XMLElement* FindPath(XMLElement* first, std::string_view path) {
    const std::size_t slash = path.find('/');
    const std::string name = NameUpToSlash(path);
    for (XMLElement* at = first; at != nullptr; at = at->NextSiblingElement()) {
        if (name != at->Name()) {
            continue;
        }
        XMLElement* found =
            slash == std::string_view::npos ? at : FindPath(at->FirstChildElement(), path.substr(slash + 1));
        if (found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

void Wipe(std::string& text) {
    OPENSSL_cleanse(text.data(), text.size());
    text.clear();
}

// The texts are wiped where they stand; names and structure hold no secrets. Walked without recursion.
void WipeTexts(tinyxml2::XMLDocument& document) {
    for (XMLNode* node = document.FirstChild(); node != nullptr;) {
        if (node->ToText() != nullptr) {
            char* const text = const_cast<char*>(node->Value());
            OPENSSL_cleanse(text, std::strlen(text));
        }
        if (node->FirstChild() != nullptr) {
            node = node->FirstChild();
            continue;
        }
        while (node != nullptr && node->NextSibling() == nullptr) {
            node = node->Parent();
        }
        node = node == nullptr ? nullptr : node->NextSibling();
    }
}

// A text that grows without leaving a copy behind, and is wiped at its end.
class WipedText {
public:
    ~WipedText() { Wipe(m_text); }
    WipedText() = default;
    WipedText(const WipedText&) = delete;
    WipedText& operator=(const WipedText&) = delete;

    void Append(const char* data, std::size_t size) {
        if (m_text.size() + size > m_text.capacity()) {
            std::string larger;
            larger.reserve(std::max({m_text.capacity() * 2, m_text.size() + size, kFirstBytes}));
            larger.append(m_text);
            m_text.swap(larger);
            Wipe(larger);
        }
        m_text.append(data, size);
    }
    const std::string& Get() const { return m_text; }
    std::string Take() { return std::exchange(m_text, std::string()); }
    void Clear() { Wipe(m_text); }

private:
    static constexpr std::size_t kFirstBytes = 4096;

    std::string m_text;
};

class TextPrinter : public tinyxml2::XMLPrinter {
public:
    explicit TextPrinter(bool compact) : XMLPrinter(nullptr, compact) {}

    std::string Take() { return m_text.Take(); }

protected:
    void Print(const char* format, ...) override __attribute__((format(printf, 2, 3))) {
        char piece[kPieceBytes];
        va_list args;
        va_start(args, format);
        const int length = std::vsnprintf(piece, sizeof(piece), format, args);
        va_end(args);
        if (length > 0) {
            Write(piece, std::min<std::size_t>(static_cast<std::size_t>(length), sizeof(piece) - 1));
        }
    }
    void Write(const char* data, size_t size) override { m_text.Append(data, size); }
    void Putc(char c) override { Write(&c, 1); }

private:
    static constexpr std::size_t kPieceBytes = 256;  // the printer formats nothing but numbers

    WipedText m_text;
};

// Makes the tree of what the reader tells. The tree's own parser is not used: it lets much pass that is not well
// formed, and looks for doubled attributes in quadratic time.
class TreeBuilder : public gvx::XmlSink {
public:
    explicit TreeBuilder(tinyxml2::XMLDocument& document) : m_document(document), m_parent(&document) {}

    // Whose lines the elements get.
    void Follow(const gvx::XmlReader& reader) { m_reader = &reader; }

    void ElementBegins(const char* name, const char* const* attributes) override {
        PutText();
        XMLElement* const element = m_document.NewElement(name);
        for (; *attributes != nullptr; attributes += 2) {
            element->SetAttribute(attributes[0], attributes[1]);
        }
        // The document keeps the lines of what it has parsed itself alone.
        element->SetUserData(reinterpret_cast<void*>(static_cast<std::intptr_t>(m_reader->Line())));
        m_parent->InsertEndChild(element);
        m_parent = element;
    }
    void ElementEnds() override {
        PutText();
        m_parent = m_parent->Parent();
    }
    void Text(const char* text, std::size_t length) override { m_text.Append(text, length); }
    void CDataBegins() override { m_mayBeBlank = true; }
    // A comment inside a text comes to stand before it, so that the text is one.
    void Comment(const char* text) override { m_parent->InsertEndChild(m_document.NewComment(text)); }
    void Instruction(const char* target, const char* text) override {
        const std::string whole = std::string(target) + (*text == '\0' ? "" : " ") + text;
        m_parent->InsertEndChild(m_document.NewDeclaration(whole.c_str()));
    }
    // What the tree holds, and what is written of it, is UTF-8.
    void Declaration(const char* version, bool hasEncoding, int standalone) override {
        std::string text = std::string("xml version=\"") + version + "\"";
        text += hasEncoding ? " encoding=\"UTF-8\"" : "";
        text += standalone < 0 ? "" : standalone == 0 ? " standalone=\"no\"" : " standalone=\"yes\"";
        m_document.InsertEndChild(m_document.NewDeclaration(text.c_str()));
    }

private:
    // Blanks between elements are layout and not kept.
    void PutText() {
        const bool blank = m_text.Get().find_first_not_of(" \t\r\n") == std::string::npos;
        if (!m_text.Get().empty() && (!blank || m_mayBeBlank)) {
            m_parent->InsertEndChild(m_document.NewText(m_text.Get().c_str()));
        }
        m_text.Clear();
        m_mayBeBlank = false;
    }

    tinyxml2::XMLDocument& m_document;
    XMLNode* m_parent;
    const gvx::XmlReader* m_reader = nullptr;
    WipedText m_text;
    bool m_mayBeBlank = false;
};

// The text that stands before the first child element.
const char* TextOf(const XMLElement& element) {
    for (const XMLNode* node = element.FirstChild(); node != nullptr && node->ToElement() == nullptr;
         node = node->NextSibling()) {
        if (node->ToText() != nullptr) {
            return node->Value();
        }
    }
    return "";
}

}  // namespace

struct CXml::Impl {
    ~Impl() { Clear(); }

    void Clear() {
        WipeTexts(document);
        document.Clear();
        Wipe(stream);
    }

    tinyxml2::XMLDocument document;
    XMLNode* level = nullptr;       // the document or the element whose children are the cursor's level
    XMLElement* current = nullptr;  // null: before the first sibling
    XMLElement* justAdded = nullptr;
    std::string stream;
    std::string faultText;
    int faultLine = 0;

    void Rewind() {
        level = &document;
        current = nullptr;
        justAdded = nullptr;
    }

    bool Refuse(std::string why, int line = 0) {
        Clear();
        Rewind();
        faultText = std::move(why);
        faultLine = line;
        return false;
    }

    bool MoveTo(XMLElement* found) {
        if (found == nullptr) {
            return false;
        }
        current = found;
        level = found->Parent();
        return true;
    }

    XMLElement* FirstOfLevel() const { return level->FirstChildElement(); }

    bool Append(const char* name, const char* value) {
        const bool secondRoot = level == &document && document.RootElement() != nullptr;
        if (!IsElementName(name) || secondRoot || (value != nullptr && !IsCharacterData(value))) {
            return false;
        }
        XMLElement* element = document.NewElement(name);
        if (value != nullptr && *value != '\0') {
            element->SetText(value);
        }
        level->InsertEndChild(element);
        current = element;
        justAdded = element;
        return true;
    }
};

CXml::CXml() : m_impl(std::make_unique<Impl>()) {
    m_impl->Rewind();
}

CXml::~CXml() = default;

bool CXml::Load(const char* fileName) {
    std::string content;
    errno = 0;
    if (fileName == nullptr || !gvx::ReadWholeFile(fileName, kMaxDocumentBytes, content)) {
        return m_impl->Refuse(errno != 0 ? std::strerror(errno) : "it is no regular file, or too long");
    }
    const bool parsed = Parse(content.data(), content.size());
    Wipe(content);
    return parsed;
}

const std::string& CXml::FaultText() const {
    return m_impl->faultText;
}

int CXml::FaultLine() const {
    return m_impl->faultLine;
}

int CXml::GetElemLine() const {
    return m_impl->current == nullptr
               ? 0
               : static_cast<int>(reinterpret_cast<std::intptr_t>(m_impl->current->GetUserData()));
}

bool CXml::Parse(const char* text) {
    return text == nullptr ? m_impl->Refuse("there is no text") : Parse(text, std::strlen(text));
}

bool CXml::Parse(const char* text, std::size_t length) {
    if (text == nullptr || length == 0 || length > kMaxDocumentBytes) {
        return m_impl->Refuse(text == nullptr || length == 0 ? "it is empty" : "it is too long");
    }
    WipeTexts(m_impl->document);
    m_impl->document.Clear();
    m_impl->Rewind();
    TreeBuilder builder(m_impl->document);
    gvx::XmlReader reader(builder, gvx::XmlLimits());
    builder.Follow(reader);
    std::string fault;
    bool read = false;
    try {
        read = reader.Read(text, length, &fault);
    } catch (...) {
        m_impl->Clear();
        throw;
    }
    if (!read) {
        const std::string why = fault.substr(0, fault.rfind(", line "));
        return m_impl->Refuse("no well-formed XML (" + why + ")", reader.Line());
    }
    m_impl->faultText.clear();
    m_impl->faultLine = 0;
    Wipe(m_impl->stream);  // not before: it may be what was parsed
    m_impl->Rewind();
    return true;
}

bool CXml::FindElem(const char* name) {
    XMLElement* first = m_impl->current == nullptr ? m_impl->FirstOfLevel() : m_impl->current->NextSiblingElement();
    return name != nullptr && m_impl->MoveTo(FindPath(first, name));
}

bool CXml::FindFirstElem(const char* name) {
    return name != nullptr && m_impl->MoveTo(FindPath(m_impl->FirstOfLevel(), name));
}

bool CXml::IntoElem() {
    XMLElement* const element = m_impl->current;
    if (element == nullptr || (element->FirstChildElement() == nullptr && element != m_impl->justAdded)) {
        return false;
    }
    m_impl->level = element;
    m_impl->current = nullptr;
    return true;
}

bool CXml::OutOfElem() {
    XMLElement* const parent = m_impl->level->ToElement();
    return m_impl->MoveTo(parent);
}

bool CXml::NextElem() {
    return m_impl->MoveTo(m_impl->current == nullptr ? m_impl->FirstOfLevel() : m_impl->current->NextSiblingElement());
}

void CXml::Rewind() {
    m_impl->Rewind();
}

const char* CXml::GetElemValue() const {
    return m_impl->current == nullptr ? nullptr : TextOf(*m_impl->current);
}

const char* CXml::GetElemName() const {
    return m_impl->current == nullptr ? nullptr : m_impl->current->Name();
}

const char* CXml::GetAttributeValue(const char* name) const {
    return m_impl->current == nullptr || name == nullptr ? nullptr : m_impl->current->Attribute(name);
}

bool CXml::AddDeclaration(const char* version, const char* encoding) {
    m_impl->Clear();
    m_impl->Rewind();
    if (version == nullptr || encoding == nullptr || std::strpbrk(version, "\"<>?") != nullptr ||
        std::strpbrk(encoding, "\"<>?") != nullptr) {
        return false;
    }
    const std::string text = std::string("xml version=\"") + version + "\" encoding=\"" + encoding + "\"";
    m_impl->document.InsertEndChild(m_impl->document.NewDeclaration(text.c_str()));
    return true;
}

bool CXml::AddElem(const char* name) {
    return m_impl->Append(name, nullptr);
}

bool CXml::AddElem(const char* name, const char* value) {
    return m_impl->Append(name, value);
}

bool CXml::SetElemValue(const char* value) {
    if (m_impl->current == nullptr || !IsCharacterData(OrEmpty(value))) {
        return false;
    }
    m_impl->current->SetText(OrEmpty(value));
    return true;
}

bool CXml::SetAttributeValue(const char* name, const char* value) {
    if (m_impl->current == nullptr || !IsElementName(name) || !IsCharacterData(OrEmpty(value))) {
        return false;
    }
    m_impl->current->SetAttribute(name, OrEmpty(value));
    return true;
}

const char* CXml::GetXMLStream(unsigned int& length) {
    Wipe(m_impl->stream);
    m_impl->stream = ToString();
    length = static_cast<unsigned int>(m_impl->stream.size());
    return m_impl->stream.c_str();
}

std::string CXml::ToString() {
    TextPrinter printer(true);
    m_impl->document.Print(&printer);
    return printer.Take();
}

bool CXml::Save(const char* fileName) {
    if (fileName == nullptr || m_impl->document.RootElement() == nullptr) {
        return false;
    }
    TextPrinter printer(false);
    m_impl->document.Print(&printer);
    std::string text = printer.Take();
    const bool saved = gvx::ReplaceWholeFile(fileName, text);
    Wipe(text);
    return saved;
}

}  // namespace CBB
