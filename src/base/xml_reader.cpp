#include "base/xml_reader.h"

#include "base/wiping_memory.h"

#include <expat.h>

#include <algorithm>
#include <climits>
#include <exception>
#include <new>
#include <string_view>
#include <utility>

namespace gvx {

namespace {

// Behind a comment, a CDATA section or an instruction that begins there; 0 for an element.
std::size_t EndOfOther(std::string_view text, std::size_t at) {
    constexpr std::pair<std::string_view, std::string_view> kOthers[] = {
        {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
    for (const auto& [begin, end] : kOthers) {
        if (text.compare(at, begin.size(), begin) == 0) {
            const std::size_t found = text.find(end, at + begin.size());
            return found == std::string_view::npos ? text.size() : found + end.size();
        }
    }
    return 0;
}

// Tells whether an element has more attributes than allowed, as far as a look at the bytes does. The parser reads all
// of an element's attributes before it tells of one, which takes long when there are many.
class AttributeScan {
public:
    AttributeScan(std::string_view text, unsigned int limit) : m_text(text), m_limit(limit) {}

    // Looks at what stands before that place and was not looked at yet. False when there are too many.
    bool GoOn(std::size_t until) {
        const char* const text = m_text.data();
        for (; m_at < until; ++m_at) {
            const char c = text[m_at];
            if (!m_inTag) {
                if (c == '<') {
                    Enter();
                }
            } else if (m_quote != '\0') {
                m_quote = c == m_quote ? '\0' : m_quote;
            } else if (c == '"' || c == '\'') {
                m_quote = c;
                if (++m_attributes > m_limit) {
                    return false;
                }
            } else {
                m_inTag = c != '>';
            }
        }
        return true;
    }

private:
    void Enter() {
        const std::size_t next = m_at + 1;
        const bool other = next < m_text.size() && (m_text[next] == '!' || m_text[next] == '?');
        if (const std::size_t end = other ? EndOfOther(m_text, m_at) : 0; end != 0) {
            m_at = end - 1;
        } else {
            m_inTag = true;
            m_attributes = 0;
        }
    }

    const std::string_view m_text;
    const unsigned int m_limit;
    std::size_t m_at = 0;
    bool m_inTag = false;
    char m_quote = '\0';
    unsigned int m_attributes = 0;
};

struct FreeWiped {
    void operator()(void* memory) const noexcept { WipingFree(memory); }
};
using WipedBytes = std::unique_ptr<char, FreeWiped>;

// Of a text in UTF-16, which its first two bytes show: each unit as one byte, those beyond ASCII as another. Otherwise
// null.
WipedBytes NarrowUtf16(std::string_view text) {
    const std::string_view first = text.substr(0, 2);
    const bool bigEndian = first == "\xFE\xFF" || first == std::string_view("\0<", 2);
    if (!bigEndian && first != "\xFF\xFE" && first != std::string_view("<\0", 2)) {
        return nullptr;
    }
    WipedBytes narrow(static_cast<char*>(WipingAlloc(text.size() / 2)));
    if (narrow == nullptr) {
        throw std::bad_alloc();
    }
    for (std::size_t at = 0; at + 1 < text.size(); at += 2) {
        const char high = text[bigEndian ? at : at + 1];
        narrow.get()[at / 2] = high == '\0' ? text[bigEndian ? at + 1 : at] : '\x80';
    }
    return narrow;
}

// A text is read in pieces, so that one that is refused early costs no look at the rest. The first is so long, and each
// further one as long as all before: the parser looks again at what it had begun.
constexpr std::size_t kFirstPieceBytes = 16u * 1024u;

}  // namespace

struct XmlReader::Impl {
    Impl(XmlSink& sinkOfUser, const XmlLimits& limitsOfUser) : sink(sinkOfUser), limits(limitsOfUser) {}
    ~Impl() {
        if (parser != nullptr) {
            XML_ParserFree(parser);
        }
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Refuse(const char* reason) {
        refusal = reason;
        XML_StopParser(parser, XML_FALSE);
    }

    // The parser is C and must not be left by an exception.
    template <typename Call>
    void Tell(Call call) {
        if (refusal != nullptr || thrown != nullptr) {
            return;
        }
        try {
            call();
        } catch (...) {
            thrown = std::current_exception();
            XML_StopParser(parser, XML_FALSE);
        }
    }

    void Begin(const char* name, const char** attributes) {
        std::size_t count = 0;
        for (; attributes[count] != nullptr; count += 2) {
        }
        if (count / 2 > limits.attributes) {
            Refuse("an element has too many attributes");
        } else if (++depth > limits.depth) {
            Refuse("it is nested too deeply");
        } else if (++elements > limits.elements) {
            Refuse("it has too many elements");
        } else {
            Tell([&] { sink.ElementBegins(name, attributes); });
        }
    }

    static Impl& Of(void* user) { return *static_cast<Impl*>(user); }
    static void XMLCALL OnBegin(void* user, const char* name, const char** attributes) {
        Of(user).Begin(name, attributes);
    }
    static void XMLCALL OnEnd(void* user, const char*) {
        --Of(user).depth;
        Of(user).Tell([user] { Of(user).sink.ElementEnds(); });
    }
    static void XMLCALL OnText(void* user, const char* text, int length) {
        Of(user).Tell([&] { Of(user).sink.Text(text, static_cast<std::size_t>(length)); });
    }
    static void XMLCALL OnCData(void* user) {
        Of(user).Tell([user] { Of(user).sink.CDataBegins(); });
    }
    static void XMLCALL OnComment(void* user, const char* text) {
        Of(user).Tell([&] { Of(user).sink.Comment(text); });
    }
    static void XMLCALL OnInstruction(void* user, const char* target, const char* text) {
        Of(user).Tell([&] { Of(user).sink.Instruction(target, text); });
    }
    static void XMLCALL OnDeclaration(void* user, const char* version, const char* encoding, int standalone) {
        if (version != nullptr) {
            Of(user).Tell([&] { Of(user).sink.Declaration(version, encoding != nullptr, standalone); });
        }
    }
    static void XMLCALL OnDocumentType(void* user, const char*, const char*, const char*, int) {
        Of(user).Refuse("it has a document type declaration");
    }

    XmlSink& sink;
    const XmlLimits limits;
    XML_Parser parser = nullptr;
    const char* refusal = nullptr;
    std::exception_ptr thrown;
    unsigned int depth = 0;
    std::size_t elements = 0;
};

XmlReader::XmlReader(XmlSink& sink, const XmlLimits& limits) : m_impl(std::make_unique<Impl>(sink, limits)) {
    static const XML_Memory_Handling_Suite memory = {&WipingAlloc, &WipingRealloc, &WipingFree};
    m_impl->parser = XML_ParserCreate_MM(nullptr, &memory, nullptr);
    if (m_impl->parser == nullptr) {
        throw std::bad_alloc();
    }
    XML_SetUserData(m_impl->parser, m_impl.get());
    XML_SetElementHandler(m_impl->parser, &Impl::OnBegin, &Impl::OnEnd);
    XML_SetCharacterDataHandler(m_impl->parser, &Impl::OnText);
    XML_SetStartCdataSectionHandler(m_impl->parser, &Impl::OnCData);
    XML_SetCommentHandler(m_impl->parser, &Impl::OnComment);
    XML_SetProcessingInstructionHandler(m_impl->parser, &Impl::OnInstruction);
    XML_SetXmlDeclHandler(m_impl->parser, &Impl::OnDeclaration);
    XML_SetStartDoctypeDeclHandler(m_impl->parser, &Impl::OnDocumentType);
}

XmlReader::~XmlReader() = default;

void XmlReader::WantText(bool want) {
    XML_SetCharacterDataHandler(m_impl->parser, want ? &Impl::OnText : nullptr);
}

int XmlReader::Line() const {
    return static_cast<int>(XML_GetCurrentLineNumber(m_impl->parser));
}

bool XmlReader::Read(const char* text, std::size_t length, std::string* fault) {
    if (text == nullptr || length > INT_MAX) {
        *fault = "there is no text, or too much of it";
        return false;
    }
    const WipedBytes narrow = NarrowUtf16({text, length});
    const std::size_t unit = narrow != nullptr ? 2 : 1;
    AttributeScan scan({narrow != nullptr ? narrow.get() : text, length / unit}, m_impl->limits.attributes);
    XML_Status status = XML_STATUS_OK;
    std::size_t read = 0;
    do {
        const std::size_t piece = std::min(std::max(kFirstPieceBytes, read), length - read);
        if (!scan.GoOn((read + piece) / unit)) {
            *fault = "an element has too many attributes";
            return false;
        }
        const int last = read + piece == length ? XML_TRUE : XML_FALSE;
        status = XML_Parse(m_impl->parser, text + read, static_cast<int>(piece), last);
        read += piece;
    } while (status == XML_STATUS_OK && read < length);
    if (m_impl->thrown != nullptr) {
        std::rethrow_exception(std::exchange(m_impl->thrown, nullptr));
    }
    if (status == XML_STATUS_OK) {
        return true;
    }
    const XML_Error error = XML_GetErrorCode(m_impl->parser);
    if (m_impl->refusal == nullptr && error == XML_ERROR_NO_MEMORY) {
        throw std::bad_alloc();
    }
    *fault = m_impl->refusal != nullptr ? m_impl->refusal : XML_ErrorString(error);
    *fault += ", line " + std::to_string(XML_GetCurrentLineNumber(m_impl->parser));
    return false;
}

}  // namespace gvx
