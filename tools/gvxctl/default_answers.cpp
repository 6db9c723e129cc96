#include "gvxctl/default_answers.h"

#include "base/cbb_xml.h"
#include "nss/nss_msg_type.h"

namespace gvxctl {
namespace {

std::string MuPortBody(const std::string& scuId, std::uint16_t port) {
    CBB::CXml xml;
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content");
    xml.IntoElem();
    xml.AddElem("LinkID", scuId.c_str());
    xml.AddElem("MUPort", std::to_string(port).c_str());
    return xml.ToString();
}

}  // namespace

DefaultAnswers::DefaultAnswers(const PortRanges& ranges, MuPortOf muPortOf)
    : m_ports(ranges), m_muPortOf(std::move(muPortOf)) {}

bool DefaultAnswers::Answer(const Frame& request, FrameSpec& answer) {
    if (PortService::Serves(request.Type())) {
        answer = m_ports.Answer(request);
        return true;
    }
    answer = ResponseTo(request, 0);
    if (request.Type() == NSS_NOTIFY_LINK_PORT_TO_GVX_REQ) {
        std::string scuId;
        std::uint16_t port = 0;
        if (!m_muPortOf(scuId, port)) {
            return false;
        }
        answer.tag = NSS_TAG_XML_CONTENT;
        answer.body = MuPortBody(scuId, port);
        return true;
    }
    return request.Type() == NSS_PROTOCOL_PLUGIN_INSTALL_NOTIFY_REQ;
}

}  // namespace gvxctl
