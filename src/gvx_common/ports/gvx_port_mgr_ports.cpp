#include "gvx_common/ports/gvx_port_mgr.h"

#include "base/log.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <cerrno>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Guard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

int MakeProofSocket(const std::string& protocol) {
    return protocol == UDP_PROCOTOL ? ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)
                                    : ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
}

// Binds to the port for a moment, which proves that it is free at this instant.
bool ProveFree(std::uint32_t port, const std::string& protocol) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    const int fd = MakeProofSocket(protocol);
    if (fd < 0) {
        GVX_LOG_ERR("Make port. create socket failed.", "errorno is %d.", errno);
        return false;
    }
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        GVX_LOG_ERR("Make port. bind socket failed.", "errorno is %d.", errno);
        if (::close(fd) != 0) {
            GVX_LOG_ERR("Make port. bind failed and close socket failed.", "errorno is %d.", errno);
        }
        return false;
    }
    if (::close(fd) != 0) {
        GVX_LOG_ERR("Make port. bind success. but close socket failed.", "errorno is %d.", errno);
        return false;
    }
    return true;
}

}  // namespace

int CGvxPortMgr::MakePort(const std::string& strPortElement, unsigned int& uiAssginedPort,
                          const std::string& strProtocol) {
    const Guard guard(m_portElementMapMutex);
    uiAssginedPort = 0;
    CPortElement* const element = FindElement(strPortElement);
    if (element == nullptr) {
        GVX_LOG_ERR("Gvx port find port error.", "PortElement[%s] Protocol[%s]", strPortElement.c_str(),
                    strProtocol.c_str());
        return 0;
    }
    if (element->PortIsEmpty()) {
        FillPool(*element, strProtocol);
    }
    std::list<std::uint32_t> listFreePort;
    while (element->AssignPort(uiAssginedPort) && !ProveFree(uiAssginedPort, strProtocol)) {
        listFreePort.push_back(uiAssginedPort);
        uiAssginedPort = 0;
    }
    // Not before the end: a port that proved taken would be tried for ever.
    for (std::uint32_t taken : listFreePort) {
        FreePort(strPortElement, taken);
    }
    GVX_LOG_INFO("Make port", "CPortElement::AssignPort[%s],[%u] ports left.", strPortElement.c_str(),
                 static_cast<unsigned int>(element->getPortListSize()));
    if (uiAssginedPort == 0) {
        GVX_LOG_ERR("Make port", "Failed to assign port [%d].", static_cast<int>(uiAssginedPort));
        return 0;
    }
    return 1;
}

int CGvxPortMgr::FreePort(const std::string& strPortElement, unsigned int& uiAssginedPort) {
    const Guard guard(m_portElementMapMutex);
    const unsigned int port = uiAssginedPort;
    CPortElement* const element = FindElement(strPortElement);
    if (element == nullptr) {
        GVX_LOG_ERR("Gvx port mgr try to free port.", "Release port[%u]", port);
        return 0;
    }
    const bool released = element->FreePort(uiAssginedPort);
    GVX_LOG_INFO("Free port", "CPortElement::FreePort[%s],[%u] ports left.", strPortElement.c_str(),
                 static_cast<unsigned int>(element->getPortListSize()));
    if (!released) {
        GVX_LOG_ERR("Free port", "Failed to release port[%u]", port);
        return 0;
    }
    GVX_LOG_INFO("Free port", "Success to release port[%u]", port);
    return 1;
}

bool CGvxPortMgr::IsPortUsed(const std::string& strPortElement, unsigned int uiPort) {
    const Guard guard(m_portElementMapMutex);
    const std::list<std::uint32_t> used = UsedPorts(strPortElement);
    return std::find(used.begin(), used.end(), uiPort) != used.end();
}
