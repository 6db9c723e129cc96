#include "gvx_common/utility/gvx_utility.h"

#include "base/zvs_error.h"

#include <tinyxml2.h>

namespace {

using tinyxml2::XMLElement;

// The first element of that name, depth first; the parser bounds the depth.
const XMLElement* FindAnywhere(const XMLElement* element, const char* name) {
    for (; element != nullptr; element = element->NextSiblingElement()) {
        const XMLElement* found =
            std::string(element->Name()) == name ? element : FindAnywhere(element->FirstChildElement(), name);
        if (found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

std::string TextOf(const XMLElement& element) {
    const char* text = element.GetText();
    return text == nullptr ? std::string() : std::string(text);
}

}  // namespace

const XMLElement* CGvxUtility::FindXmlElement(const XMLElement* parent, const char* path) {
    if (path == nullptr || *path == '\0') {
        return nullptr;
    }
    for (const std::string& name : split(path, "/")) {
        parent = parent == nullptr ? nullptr : parent->FirstChildElement(name.c_str());
    }
    return parent;
}

int CGvxUtility::GetXmlElementText(const XMLElement* parent, const char* path, std::string& value) {
    const XMLElement* element = FindXmlElement(parent, path);
    if (element == nullptr) {
        return ZVS_FAIL;
    }
    value = TextOf(*element);
    return ZVS_SUCCEED;
}

int CGvxUtility::GetXmlElementInt(const XMLElement* parent, const char* path, int& value) {
    std::string text;
    if (GetXmlElementText(parent, path, text) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    value = toInt(text);
    return ZVS_SUCCEED;
}

int CGvxUtility::GetXmlAttribute(const XMLElement* element, const char* name, std::string& value) {
    const char* text = element == nullptr || name == nullptr ? nullptr : element->Attribute(name);
    if (text == nullptr) {
        return ZVS_FAIL;
    }
    value = text;
    return ZVS_SUCCEED;
}

int CGvxUtility::SetXmlElementText(XMLElement* parent, const char* name, const std::string& value) {
    if (parent == nullptr || name == nullptr) {
        return ZVS_FAIL;
    }
    XMLElement* element = parent->FirstChildElement(name);
    if (element == nullptr) {
        element = parent->GetDocument()->NewElement(name);
        parent->InsertEndChild(element);
    }
    element->SetText(value.c_str());
    return ZVS_SUCCEED;
}

std::string CGvxUtility::GetDevCodeFromGetLogMsg(const std::string& xml) {
    tinyxml2::XMLDocument document;
    if (document.Parse(xml.data(), xml.size()) != tinyxml2::XML_SUCCESS) {
        return std::string();
    }
    const XMLElement* element = FindAnywhere(document.RootElement(), "DevCode");
    return element == nullptr ? std::string() : TextOf(*element);
}
