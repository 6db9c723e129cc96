#include "gateway/devices/device_request.h"

#include "base/cbb_xml.h"
#include "bp/cmd.h"
#include "gateway/messages/request_body.h"
#include "gateway/messages/request_target.h"
#include "gateway/settings/number_setting.h"

#include <algorithm>

namespace gvx {

namespace {

constexpr std::size_t kMaxTextLength = 256;     // address, user, password, model, parent
constexpr std::size_t kMaxExtendLength = 2047;  // for the plug-in alone
constexpr std::size_t kMaxLenses = 1024;
constexpr long long kMaxChannel = 32767;

bool Refuse(std::string& reason, const char* text) {
    reason = text;
    return false;
}

bool ReadIdentity(CBB::CXml& xml, MainDeviceInfo& info, std::string& reason) {
    info.strDevCode = XmlText(xml, "DevCode");
    info.strPluginName = XmlText(xml, "PluginName");
    if (!IsCode(info.strDevCode)) {
        return Refuse(reason, "DevCode is missing or no identifier of 1 to 32 characters.");
    }
    if (!IsCode(info.strPluginName)) {
        return Refuse(reason, "PluginName is missing or no name of 1 to 32 characters.");
    }
    const std::string form = XmlText(xml, "FormType");
    long long formType = PU_IPC;
    if (!form.empty() && !ReadNumber(form, PU_IPC, PU_EXT_DEV, formType)) {
        return Refuse(reason, "FormType is not one of 1 to 6.");
    }
    info.eDevFormType = static_cast<enPuDevFormType>(formType);
    return true;
}

bool ReadAddress(CBB::CXml& xml, MainDeviceInfo& info, std::string& reason) {
    info.strParentCode = XmlText(xml, "ParentCode");
    info.strIP = XmlText(xml, "IP");
    info.strUserName = XmlText(xml, "UserName");
    info.strPassword = XmlText(xml, "Password");
    info.strModel = XmlText(xml, "Model");
    info.strExtend = XmlText(xml, "Extend");
    for (const std::string* text :
         {&info.strParentCode, &info.strIP, &info.strUserName, &info.strPassword, &info.strModel}) {
        if (text->size() > kMaxTextLength) {
            return Refuse(reason, "ParentCode, IP, UserName, Password or Model is too long.");
        }
    }
    if (info.strExtend.size() > kMaxExtendLength) {
        return Refuse(reason, "Extend is longer than 2047 bytes.");
    }
    const std::string portText = XmlText(xml, "Port");
    long long port = 0;
    if (!portText.empty() && !ReadNumber(portText, 0, 65535, port)) {
        return Refuse(reason, "Port is not one of 0 to 65535.");
    }
    info.nPort = static_cast<std::uint16_t>(port);
    return true;
}

bool AddLens(const LensRequest& lens, std::vector<LensRequest>& lenses, std::string& reason) {
    const bool known = std::any_of(lenses.begin(), lenses.end(), [&](const LensRequest& other) {
        return other.code == lens.code || other.channel == lens.channel;
    });
    if (known || lenses.size() == kMaxLenses) {
        return Refuse(reason, "LensList names a lens or a channel twice, or has more than 1024 lenses.");
    }
    lenses.push_back(lens);
    return true;
}

// The cursor stands on LensList and comes back there.
bool ReadLenses(CBB::CXml& xml, std::vector<LensRequest>& lenses, std::string& reason) {
    if (!xml.IntoElem()) {
        return true;  // an empty list
    }
    bool ok = true;
    while (ok && xml.FindElem("Lens")) {
        if (!xml.IntoElem()) {
            return Refuse(reason, "A Lens is empty.");
        }
        LensRequest lens;
        long long channel = 0;
        lens.code = XmlText(xml, "LensCode");
        ok = IsCode(lens.code) && ReadNumber(XmlText(xml, "Channel"), 0, kMaxChannel, channel);
        if (!ok) {
            return Refuse(reason, "A Lens has no LensCode of 1 to 32 characters or no Channel.");
        }
        lens.channel = static_cast<short>(channel);
        ok = AddLens(lens, lenses, reason);
        xml.OutOfElem();
    }
    xml.OutOfElem();
    return ok;
}

}  // namespace

bool ReadDeviceRequest(const BP::CCmd& cmd, DeviceRequest& request, std::string& reason) {
    CBB::CXml xml;
    if (!ReadXmlContent(cmd, xml)) {
        return Refuse(reason, "There is no XML body with Content.");
    }
    return ReadIdentity(xml, request.info, reason) && ReadAddress(xml, request.info, reason) &&
           (!xml.FindFirstElem("LensList") || ReadLenses(xml, request.lenses, reason));
}

}  // namespace gvx
