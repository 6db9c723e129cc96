#include "gvx_common/ports/port_element.h"

#include "base/log.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <utility>

namespace {

using Guard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

constexpr std::uint32_t kLeastUdpSpan = 2;
constexpr std::uint32_t kUdpStep = 2;
constexpr long kBeyondPorts = 65536;

// Any number beyond the ports is as good as the first of them, and fits.
int PortNumber(const std::string& digits) {
    return static_cast<int>(std::min(std::strtol(digits.c_str(), nullptr, 10), kBeyondPorts));
}

}  // namespace

void CPortElement::Init() {
    const Guard guard(m_Mutex);
    m_portlist.clear();
    m_usedPortlist.clear();
}

bool CPortElement::AssignPort(std::uint32_t& uiPort) {
    Guard guard(m_Mutex);
    if (!guard.locked()) {
        return false;
    }
    if (m_portlist.empty()) {
        GVX_LOG_INFO("Assign port", "m_portlist is empty.");
        uiPort = 0;
        return false;
    }
    uiPort = m_portlist.front();
    m_usedPortlist.splice(m_usedPortlist.end(), m_portlist, m_portlist.begin());
    return true;
}

bool CPortElement::FreePort(std::uint32_t& uiPort) {
    const Guard guard(m_Mutex);
    m_portlist.push_back(uiPort);
    DeleteValue(m_usedPortlist, uiPort);
    uiPort = 0;
    return true;
}

void CPortElement::UpdatePort(const std::list<std::uint32_t>& portList, bool bClear) {
    const Guard guard(m_Mutex);
    if (bClear) {
        m_portlist.clear();
    }
    std::list<std::uint32_t> added(portList);
    added.sort();
    m_portlist.sort();
    std::list<std::uint32_t> merged;
    std::set_union(added.begin(), added.end(), m_portlist.begin(), m_portlist.end(), std::back_inserter(merged));
    merged.unique();  // a port that stood twice in one of the lists
    m_portlist.swap(merged);
}

void CPortElement::RecyclePort(std::list<std::uint32_t>& portList) {
    const Guard guard(m_Mutex);
    portList = m_portlist;
}

std::list<std::uint32_t> CPortElement::GetUsedPortlist() {
    const Guard guard(m_Mutex);
    return m_usedPortlist;
}

std::size_t CPortElement::getPortListSize() {
    const Guard guard(m_Mutex);
    return m_portlist.size();
}

bool CPortElement::PortIsEmpty() {
    const Guard guard(m_Mutex);
    return m_portlist.empty();
}

void CPortElement::DeleteValue(std::list<std::uint32_t>& portList, std::uint32_t value) {
    const auto found = std::find(portList.begin(), portList.end(), value);
    if (found != portList.end()) {
        portList.erase(found);
    }
}

bool CPortElement::ParsePortRange(const std::string& strPortRange) {
    const Guard guard(m_Mutex);
    bool accepted = false;
    std::istringstream pieces(strPortRange);
    for (std::string piece; std::getline(pieces, piece, ',');) {
        RangePort range{};
        if (ParseOneRange(piece, range)) {
            m_vecRangePort.push_back(range);
            accepted = true;
        }
    }
    return accepted;
}

bool CPortElement::ParseOneRange(const std::string& piece, RangePort& range) {
    const std::size_t dash = piece.find('-');
    if (dash == std::string::npos || dash == 0 || dash + 1 == piece.size() || piece.rfind('-') != dash) {
        return false;
    }
    const std::string first = CGvxUtility::trim(piece.substr(0, dash));
    const std::string second = CGvxUtility::trim(piece.substr(dash + 1));
    if (!CGvxUtility::isNum(first) || !CGvxUtility::isNum(second)) {
        return false;
    }
    int min = PortNumber(first);
    int max = PortNumber(second);
    if (max < min) {
        std::swap(min, max);
    }
    if (!CGvxUtility::IsPort(min) || !CGvxUtility::IsPort(max)) {
        return false;
    }
    range.uMaxPort = static_cast<std::uint32_t>(max);
    range.uMinPort = static_cast<std::uint32_t>(min);
    return IsPortCfgLegal(range.uMaxPort, range.uMinPort);
}

bool CUDPPortElement::IsPortCfgLegal(std::uint32_t uMaxPort, std::uint32_t uMinPort) {
    if (uMaxPort - uMinPort < kLeastUdpSpan) {
        GVX_LOG_ERR("Port range", "fail to get legal port range maxPort[%u],minPort[%u]", uMaxPort, uMinPort);
        return false;
    }
    return true;
}

bool CUDPPortElement::IsReleasedPortLegal(std::uint32_t /*uiPort*/) {
    return true;
}

void CUDPPortElement::StortPortInfo() {
    const Guard guard(m_Mutex);
    for (const RangePort& range : m_vecRangePort) {
        const std::uint32_t count = range.uMaxPort - range.uMinPort + 1;
        GVX_LOG_INFO("Port range", "get legal port range[%d]  maxPort[%u],minPort[%u]", static_cast<int>(count),
                     range.uMaxPort, range.uMinPort);
        for (std::uint32_t i = 0; i < count / kUdpStep; ++i) {
            m_portlist.push_back(range.uMinPort + kUdpStep * i);
        }
    }
}

bool CTCPPortElement::IsPortCfgLegal(std::uint32_t /*uMaxPort*/, std::uint32_t /*uMinPort*/) {
    return true;
}

bool CTCPPortElement::IsReleasedPortLegal(std::uint32_t /*uiPort*/) {
    return true;
}

void CTCPPortElement::StortPortInfo() {
    const Guard guard(m_Mutex);
    for (const RangePort& range : m_vecRangePort) {
        for (std::uint32_t port = range.uMinPort; port <= range.uMaxPort; ++port) {
            m_portlist.push_back(port);
        }
    }
}
