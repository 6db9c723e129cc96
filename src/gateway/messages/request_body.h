#pragma once

#include <string>

namespace BP {
class CCmd;
}
namespace CBB {
class CXml;
}
namespace Json {
class Value;
}

namespace gvx {

// Reads the XML body of a command; the cursor of xml then stands inside Content, before its first child. False when
// there is no such body.
bool ReadXmlContent(const BP::CCmd& cmd, CBB::CXml& xml);

// Text of a child at the cursor's level, whatever its place; empty when there is none.
std::string XmlText(CBB::CXml& xml, const char* name);

// Reads the JSON body of a command, an object. False when there is no such body.
bool ReadJsonObject(const BP::CCmd& cmd, Json::Value& body);

}  // namespace gvx
