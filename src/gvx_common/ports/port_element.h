#pragma once

#include <ace/Recursive_Thread_Mutex.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

enum _PORT_PROCOTOL_TYPE : int {
    NULL_PROCOTOL_PORT = 0,
    UDP_PROCOTOL_PORT = 1,
    TCP_PROCOTOL_PORT = 2,
};
using PORT_PROCOTOL_TYPE = _PORT_PROCOTOL_TYPE;

// Ports in host byte order, both ends included.
struct RangePort {
    std::uint32_t uMaxPort;
    std::uint32_t uMinPort;
};

// One pool of local ports: those that are free, in the order in which they are given out, and those that are in use.
// Any thread.
class CPortElement {
public:
    CPortElement() = default;
    virtual ~CPortElement() = default;
    CPortElement(const CPortElement&) = delete;
    CPortElement& operator=(const CPortElement&) = delete;

    // Whether a range from a range text may be used.
    virtual bool IsPortCfgLegal(std::uint32_t uMaxPort, std::uint32_t uMinPort) = 0;
    // Whether a port may be given back.
    virtual bool IsReleasedPortLegal(std::uint32_t uiPort) = 0;
    // Appends the ports of all parsed ranges to the free ones.
    virtual void StortPortInfo() = 0;

    // Empties both lists.
    void Init();
    // True, and the first free port, which is in use from now on; false, and 0, when none is free.
    bool AssignPort(std::uint32_t& uiPort);
    // Puts a port behind the free ones and sets it to 0. It is not checked: one that is not in use joins them as well.
    bool FreePort(std::uint32_t& uiPort);
    // Merges a list into the free ports, which are sorted and free of duplicates afterwards. bClear drops the former
    // ones first.
    void UpdatePort(const std::list<std::uint32_t>& portList, bool bClear);
    // The free ports, in place of what the list held; they stay free.
    void RecyclePort(std::list<std::uint32_t>& portList);
    std::list<std::uint32_t> GetUsedPortlist();
    std::size_t getPortListSize();
    bool PortIsEmpty();
    // Removes the first occurrence.
    void DeleteValue(std::list<std::uint32_t>& portList, std::uint32_t value);
    // Reads "<from>-<to>" ranges that are separated by commas. A piece that is none, or that is not legal here, is
    // passed over. True when at least one was accepted.
    bool ParsePortRange(const std::string& strPortRange);

protected:
    std::list<std::uint32_t> m_portlist;      // free, taken from the front
    std::list<std::uint32_t> m_usedPortlist;  // handed out
    ACE_Recursive_Thread_Mutex m_Mutex;       // guards both lists and the ranges
    std::vector<RangePort> m_vecRangePort;

private:
    bool ParseOneRange(const std::string& piece, RangePort& range);
};

// RTP goes out by even ports, each with the port above it for RTCP.
class CUDPPortElement : public CPortElement {
public:
    // False for a range of fewer than three ports.
    bool IsPortCfgLegal(std::uint32_t uMaxPort, std::uint32_t uMinPort) override;
    bool IsReleasedPortLegal(std::uint32_t uiPort) override;
    // Every second port of a range, from its lowest on.
    void StortPortInfo() override;
};

class CTCPPortElement : public CPortElement {
public:
    bool IsPortCfgLegal(std::uint32_t uMaxPort, std::uint32_t uMinPort) override;
    bool IsReleasedPortLegal(std::uint32_t uiPort) override;
    void StortPortInfo() override;
};
