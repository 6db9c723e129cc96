#include "gateway/devices/device_request.h"

#include "base/cbb_xml.h"
#include "gateway/messages/request_body.h"
#include "gateway/plugins/plugin_host.h"

#include <algorithm>

namespace gvx {

namespace {

constexpr std::size_t kMaxTextLength = 256;     // address, user, password, model, parent
constexpr std::size_t kMaxExtendLength = 2047;  // for the plug-in alone
constexpr std::size_t kMaxLenses = 1024;
constexpr long long kMaxChannel = 32767;

Result Invalid(const char* reason) {
    return {ZVS_PARA_INVALID, reason};
}

Result ReadIdentity(CBB::CXml& xml, MainDeviceInfo& info) {
    info.strDevCode = XmlText(xml, "DevCode");
    info.strPluginName = XmlText(xml, "PluginName");
    if (!IsCode(info.strDevCode)) {
        return Invalid("DevCode is missing or no identifier of 1 to 32 characters.");
    }
    if (!IsCode(info.strPluginName)) {
        return Invalid("PluginName is missing or no name of 1 to 32 characters.");
    }
    const std::string form = XmlText(xml, "FormType");
    long long formType = PU_IPC;
    if (!form.empty() && !ReadNumber(form, PU_IPC, PU_EXT_DEV, formType)) {
        return Invalid("FormType is not one of 1 to 6.");
    }
    info.eDevFormType = static_cast<enPuDevFormType>(formType);
    return {};
}

Result ReadAddress(CBB::CXml& xml, MainDeviceInfo& info) {
    info.strParentCode = XmlText(xml, "ParentCode");
    info.strIP = XmlText(xml, "IP");
    info.strUserName = XmlText(xml, "UserName");
    info.strPassword = XmlText(xml, "Password");
    info.strModel = XmlText(xml, "Model");
    info.strExtend = XmlText(xml, "Extend");
    for (const std::string* text :
         {&info.strParentCode, &info.strIP, &info.strUserName, &info.strPassword, &info.strModel}) {
        if (text->size() > kMaxTextLength) {
            return Invalid("ParentCode, IP, UserName, Password or Model is too long.");
        }
    }
    if (info.strExtend.size() > kMaxExtendLength) {
        return Invalid("Extend is longer than 2047 bytes.");
    }
    const std::string portText = XmlText(xml, "Port");
    long long port = 0;
    if (!portText.empty() && !ReadNumber(portText, 0, 65535, port)) {
        return Invalid("Port is not one of 0 to 65535.");
    }
    info.nPort = static_cast<std::uint16_t>(port);
    return {};
}

// The cursor stands on LensList and comes back there.
Result ReadLenses(CBB::CXml& xml, std::vector<LensRequest>& lenses) {
    if (!xml.IntoElem()) {
        return {};  // an empty list
    }
    while (xml.FindElem("Lens")) {
        if (!xml.IntoElem()) {
            return Invalid("A Lens is empty.");
        }
        LensRequest lens;
        long long channel = 0;
        lens.code = XmlText(xml, "LensCode");
        if (!IsCode(lens.code) || !ReadNumber(XmlText(xml, "Channel"), 0, kMaxChannel, channel)) {
            return Invalid("A Lens has no LensCode of 1 to 32 characters or no Channel.");
        }
        lens.channel = static_cast<short>(channel);
        const bool known = std::any_of(lenses.begin(), lenses.end(), [&lens](const LensRequest& other) {
            return other.code == lens.code || other.channel == lens.channel;
        });
        if (known || lenses.size() == kMaxLenses) {
            return Invalid("LensList names a lens or a channel twice, or has more than 1024 lenses.");
        }
        lenses.push_back(lens);
        xml.OutOfElem();
    }
    xml.OutOfElem();
    return {};
}

}  // namespace

Result ReadDeviceRequest(const PluginHost& plugins, const BP::CCmd& cmd, DeviceRequest& request) {
    const std::unique_ptr<CBB::CXml> xml = ReadXmlContent(cmd);
    if (xml == nullptr) {
        return Invalid("There is no XML body with Content.");
    }
    Result result = ReadIdentity(*xml, request.info);
    if (!result.Failed()) {
        result = ReadAddress(*xml, request.info);
    }
    if (!result.Failed() && xml->FindFirstElem("LensList")) {
        result = ReadLenses(*xml, request.lenses);
    }
    if (!result.Failed()) {
        request.plugin = plugins.Find(request.info.strPluginName);
        result = request.plugin == nullptr ? Failure(ZVS_GVX_PLUGIN_NOT_EXIST) : Result{};
    }
    return result;
}

}  // namespace gvx
