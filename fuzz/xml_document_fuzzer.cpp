// A document as CXml reads it, with its limits: the tree and the look for one text on the way must agree, and what is
// written must read back.

#include "base/cbb_xml.h"
#include "base/text_member.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// Visits elements, deepest first, up to so many.
void Walk(CBB::CXml& xml, int& left) {
    while (left-- > 0 && xml.NextElem()) {
        Require(xml.GetElemName() != nullptr && xml.GetElemValue() != nullptr);
        xml.GetAttributeValue("a");
        if (xml.IntoElem()) {
            Walk(xml, left);
            Require(xml.OutOfElem());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    CBB::CXml xml;
    const bool good = xml.Parse(text.data(), text.size());
    using State = gvx::TextMember::State;
    if (!good) {
        Require(!xml.NextElem());
        Require(text.empty() || gvx::FindXmlMember(text.data(), text.size(), "r", "a").state == State::Malformed);
        return 0;
    }
    Require(xml.NextElem());
    const std::string root = xml.GetElemName();
    if (xml.IntoElem() && xml.NextElem()) {
        const std::string child = xml.GetElemName();
        const std::string value = xml.GetElemValue();
        const gvx::TextMember member = gvx::FindXmlMember(text.data(), text.size(), root.c_str(), child.c_str());
        Require(member.state == State::Malformed || (member.state == State::Found && member.text == value));
    }
    xml.Rewind();
    int left = 1000;
    Walk(xml, left);
    CBB::CXml again;
    Require(again.Parse(xml.ToString().c_str()));
    return 0;
}
