#include "gvx_common/alarm/gvx_dev_err.h"

#include "base/cbb_xml.h"
#include "base/zvs_error.h"

#include <cstddef>
#include <string_view>

namespace {

// The length of the character at the start of the text, 0 when it is none that XML can carry as UTF-8.
std::size_t CharacterLength(std::string_view text) {
    const auto byte = [&text](std::size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u; };
    const unsigned int lead = byte(0);
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xC2 && lead < 0xE0 ? 2 : lead >= 0xE0 && lead < 0xF0 ? 3 : 4;
    if (length == 1) {
        return 1;
    }
    unsigned int code = length == 2 ? lead & 0x1Fu : length == 3 ? lead & 0x0Fu : lead & 0x07u;
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xC0u) != 0x80u) {
            return 0;
        }
        code = code << 6 | (byte(at) & 0x3Fu);
    }
    const bool isShortest =
        length == 2 || (length == 3 && code >= 0x800) || (lead <= 0xF4 && lead >= 0xF0 && code >= 0x10000);
    const bool isSurrogate = code >= 0xD800 && code < 0xE000;
    return isShortest && !isSurrogate && code <= 0x10FFFF && code != 0xFFFE && code != 0xFFFF ? length : 0;
}

// A device's own words end up here; they may hold anything.
bool AddText(CBB::CXml& xml, const char* name, std::string_view text) {
    constexpr const char* kReplacement = "\xEF\xBF\xBD";  // U+FFFD
    std::string readable;
    while (!text.empty()) {
        const std::size_t length = CharacterLength(text);
        if (length == 0) {
            readable += kReplacement;
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
