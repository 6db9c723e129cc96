#include "gvx_common/link/gvx_connection_mgr.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "gvx_common/config/gvx_config_mgr.h"

// The fixed requests that the gateway sends on its own account.

namespace {

constexpr std::size_t kOwnPrefixLength = 4;  // "GVX#"

void BeginContent(CBB::CXml& xml) {
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content");
    xml.IntoElem();
}

}  // namespace

void CGvxConnectionMgr::SendQueryLinkPortToScu(const std::string& linkId) {
    CBB::CXml xml;
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content", "query");
    SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_NOTIFY_LINK_PORT_TO_GVX_REQ, xml, linkId, std::string());
    GVX_LOG_INFO("Query link port", "msg type[0x02D4][NSS_NOTIFY_LINK_PORT_TO_GVX_REQ]. linkID=%s", linkId.c_str());
}

bool CGvxConnectionMgr::OwnNodeText(std::string& ownId, std::string& nodeText) {
    ownId = GvxConfigMgr()->GetGvxNetElementID();
    if (ownId.size() < kOwnPrefixLength) {
        GVX_LOG_ERR_CODE("Own network element identifier", ZVS_BP_ERROR,
                         "substr start index[%d] > strGvxNetElementID.length[%d]",
                         static_cast<int>(kOwnPrefixLength), static_cast<int>(ownId.size()));
        return false;
    }
    nodeText = ownId.substr(kOwnPrefixLength);
    return true;
}

void CGvxConnectionMgr::SendQueryCGInfoToScu() {
    std::string id;
    std::string node;
    CBB::CXml xml;
    if (!OwnNodeText(id, node)) {
        return;
    }
    BeginContent(xml);
    xml.AddElem("ClusterHeader");
    xml.IntoElem();
    xml.AddElem("MsyType", "");
    xml.AddElem("SrcNodeID", node.c_str());
    xml.AddElem("SrcContainerType", "");
    xml.AddElem("DstNodeID", node.c_str());
    xml.AddElem("DstContainerType", "");
    SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_QUERY_GVX_TYPE_REQ, xml, id.replace(0, 3, "SCU"),
                      std::string());
}

void CGvxConnectionMgr::SendGet35114SevCfgParamReqToOMU() {
    std::string id;
    std::string node;
    CBB::CXml xml;
    if (!OwnNodeText(id, node)) {
        return;
    }
    BeginContent(xml);
    xml.AddElem("NodeCode", node.c_str());
    xml.AddElem("ConfigType", "GB35114_CFG");
    SendReqMsgWithXml(BP::SUBSYS_OMU, kElementOMU, NSS_GET_GB35114_CONF_REQ, xml, GetOmuLinkId(), std::string());
}
