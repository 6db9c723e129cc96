#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace gvx {

// How much structure a document may have; beyond it the reading ends. What costs time beyond its bytes is bounded here.
struct XmlLimits {
    unsigned int depth = 100;       // elements inside each other
    unsigned int attributes = 256;  // of one element
    std::size_t elements = 100000;  // in all
};

// Is told what a document holds, in its order. Texts are UTF-8, whatever the document's encoding, and valid during the
// call only. An exception ends the reading and comes out of it.
class XmlSink {
public:
    virtual ~XmlSink() = default;
    // attributes: name, value, name, value, null.
    virtual void ElementBegins(const char* name, const char* const* attributes) = 0;
    virtual void ElementEnds() = 0;
    // A piece of text; one text may come in several. Only while it is wanted.
    virtual void Text(const char* text, std::size_t length) = 0;
    virtual void CDataBegins() {}
    virtual void Comment(const char* /*text*/) {}
    virtual void Instruction(const char* /*target*/, const char* /*text*/) {}
    // standalone: 1 yes, 0 no, -1 not said.
    virtual void Declaration(const char* /*version*/, bool /*hasEncoding*/, int /*standalone*/) {}
};

// Reads an XML 1.0 document from front to back without keeping it. Refused is what is not well formed, what goes beyond
// the limits, an encoding other than UTF-8, UTF-16, ISO-8859-1 and US-ASCII, and a document type declaration, whose
// entities could make much of little. Its buffers are wiped. One thread at a time.
class XmlReader {
public:
    XmlReader(XmlSink& sink, const XmlLimits& limits);
    ~XmlReader();
    XmlReader(const XmlReader&) = delete;
    XmlReader& operator=(const XmlReader&) = delete;

    // Once. On failure *fault says what and in which line. Throws std::bad_alloc without memory.
    bool Read(const char* text, std::size_t length, std::string* fault);

    // The line that is being read, from 1; behind a failure, where it happened.
    int Line() const;

    // Whether texts are told; also from within a call of the sink. True at first.
    void WantText(bool want);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace gvx
