#include "gvx_common/alarm/gvx_dev_err.h"

#include "base/cbb_xml.h"
#include "base/utf8.h"
#include "base/zvs_error.h"

#include <cstddef>
#include <string_view>

namespace {

// The length of the character at the start of the text, 0 when it is none that XML can carry.
std::size_t CharacterLength(std::string_view text) {
    const std::size_t length = gvx::Utf8CharacterLength(text);
    const std::string_view character = text.substr(0, length);
    return character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF" ? 0 : length;  // U+FFFE and U+FFFF
}

// A device's own words end up here; they may hold anything.
bool AddText(CBB::CXml& xml, const char* name, std::string_view text) {
    std::string readable;
    while (!text.empty()) {
        const std::size_t length = CharacterLength(text);
        if (length == 0) {
            readable += gvx::kReplacementCharacter;
        } else if (static_cast<unsigned char>(text[0]) < 0x20) {
            readable += ' ';
        } else {
            readable.append(text.data(), length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return xml.AddElem(name, readable.c_str());
}

bool AddPairs(CBB::CXml& xml, const std::list<GVXDevErr::DevPair>& pairs) {
    bool added = xml.AddElem("DevList") && xml.IntoElem();
    for (const GVXDevErr::DevPair& pair : pairs) {
        added = added && xml.AddElem("DevInfo") && xml.IntoElem() && AddText(xml, "DevCode", pair.first) &&
                AddText(xml, "ChannelCode", pair.second) && xml.OutOfElem();
    }
    return added && xml.OutOfElem();
}

}  // namespace

void GVXDevErr::addDevErr(GVXDevErr& other) {
    lstDevInfo.insert(lstDevInfo.end(), other.lstDevInfo.begin(), other.lstDevInfo.end());
}

int GVXDevErr::fromStruToXml(CBB::CXml& xml) const {
    const bool written =
        xml.AddDeclaration("1.0", "UTF-8") && xml.AddElem("Content") && xml.IntoElem() &&
        xml.AddElem("InfoType", std::to_string(nInfoType).c_str()) && xml.AddElem("DevErrorInfo") && xml.IntoElem() &&
        AddPairs(xml, lstDevInfo) && AddText(xml, "ErrorOccurTime", sErrorOccurTime) &&
        xml.AddElem("ErrorCode", std::to_string(nErrorCode).c_str()) && AddText(xml, "FaultSourceIP", sFaultSourceIP) &&
        AddText(xml, "FaultSourceModule", sFaultSourceModule) && AddText(xml, "ErrorDetail", sErrDetail) &&
        xml.OutOfElem() && xml.OutOfElem();
    return written ? ZVS_SUCCEED : ZVS_FAIL;
}

void GVXDevErr::release() {
    *this = GVXDevErr();
}
