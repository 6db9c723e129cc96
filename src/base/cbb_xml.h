#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace CBB {

// A cursor over an XML document, and an encoder of one. The cursor stands on one element, or before the first
// sibling of its level. One thread at a time. Boolean results are true for success. Texts and streams may hold
// passwords: they are wiped when the document is replaced or ends.
class CXml {
public:
    CXml();
    ~CXml();
    CXml(const CXml&) = delete;
    CXml& operator=(const CXml&) = delete;

    // Reads a document from a file or from memory; the cursor then stands at the top level, before the first
    // element. Refused is a document that is not well formed XML 1.0, one in an encoding other than UTF-8, UTF-16,
    // ISO-8859-1 and US-ASCII, one with a document type declaration, and one of more than 16 MiB, 100,000 elements, 100
    // elements inside each other or 256 attributes of an element. Texts are UTF-8 then, and so is what is written.
    bool Load(const char* fileName);
    bool Parse(const char* text);
    bool Parse(const char* text, std::size_t length);
    // Why the last Load or Parse has failed, in words that quote nothing of the document, and the line; empty and 0
    // after a success. The line is 0 where the fault belongs to none.
    const std::string& FaultText() const;
    int FaultLine() const;

    // Finds the next element of that name among the siblings at the cursor's level, beginning behind the cursor's
    // element; where the cursor stands before the first sibling, with the first. On failure the cursor stays.
    // A path "A/B/C" finds A at this level, then enters it, and so on; an A without what follows is passed over for
    // the next. The cursor ends on the last, inside its parents.
    bool FindElem(const char* name);
    // Finds from the first sibling of the level, whatever the cursor's place.
    bool FindFirstElem(const char* name);
    // To the level of the element's children, before the first. False for an element without child elements,
    // except one that AddElem has just made, so that it can be filled.
    bool IntoElem();
    bool OutOfElem();  // back to the parent element
    bool NextElem();   // to the next sibling; false at the last, and the cursor stays
    // Moves the cursor to the top level, before the first element.
    void Rewind();

    // The text of the cursor's element up to its first child element; null when there is no element. What comments and
    // the bounds of CDATA sections divide is one text. An element without text, or with blanks alone, gives "". Valid
    // until the document changes.
    const char* GetElemValue() const;
    const char* GetElemName() const;
    // The line on which the cursor's element begins in the text that was read; 0 when there is no element.
    int GetElemLine() const;
    // Null when there is no such attribute.
    const char* GetAttributeValue(const char* name) const;

    // Encoding. AddDeclaration begins a new document, whatever was there before; AddElem puts a new element behind the
    // last sibling of the cursor's level and moves the cursor to it. A null value is an empty one. False for a name
    // that is none, a second root, or a value with control characters, which XML cannot carry.
    bool AddDeclaration(const char* version, const char* encoding);
    bool AddElem(const char* name);
    bool AddElem(const char* name, const char* value);
    bool SetElemValue(const char* value);
    bool SetAttributeValue(const char* name, const char* value);

    // The document as compact text. The pointer is owned by the object and valid until the next change or call.
    const char* GetXMLStream(unsigned int& length);
    std::string ToString();

    // Writes the document indented to "<fileName>.bak" and renames that over the file, which keeps its access bits.
    // False when it cannot be written whole; the file is then as it was.
    bool Save(const char* fileName);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace CBB
