#pragma once

#include "gvx_common/ports/port_element.h"
#include "gvx_common/ports/port_list_json.h"
#include "gvx_common/records/pool_port.h"

#include <ace/Recursive_Thread_Mutex.h>

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>

class ACE_Message_Block;
namespace BP {
struct LinkProgress;
}

// Names of the pools, and of the protocols.
constexpr char GVX_MEDIA_SEND_UDP[] = "GVX_MEDIA_SEND_UDP";
constexpr char GVX_MEDIA_SEND_TCP[] = "GVX_MEDIA_SEND_TCP";
constexpr char UDP_PROCOTOL[] = "UDP";
constexpr char TCP_PROCOTOL[] = "TCP";

// The local ports for media sending, one pool for each protocol. A pool that has run empty is filled by the main
// service, ten ports at a time; which ports are in use is reported to it whenever its link opens, and ahead of the
// first application on that link: it would give ports that are held already.
//
// Any thread may call any operation; the link I/O thread may call TakeLateReply alone. MakePort keeps the lock while
// it waits for the main service, so that a slow one holds up all port work. Lock order: m_portElementMapMutex, then
// m_mutexLate or an element's m_Mutex.
class CGvxPortMgr {
public:
    static CGvxPortMgr* Instance();

    CGvxPortMgr() = default;
    virtual ~CGvxPortMgr();
    CGvxPortMgr(const CGvxPortMgr&) = delete;
    CGvxPortMgr& operator=(const CGvxPortMgr&) = delete;

    // Makes the two pools, empty. True when they are there, also from an earlier call; false without memory for them.
    bool Init();
    // Deletes the pools with all that is known of their ports.
    void UnInit();

    // Takes a port out of a pool and proves it free by binding to it for a moment. The result is 1, with the port in
    // host byte order, or 0 with 0. A port that proves taken goes back behind the free ones at the end of the call. May
    // wait for the main service for 5 s, and as long again when that has not been told of the used ports yet.
    int MakePort(const std::string& strPortElement, unsigned int& uiAssginedPort, const std::string& strProtocol);
    // The same as a record that gives the port back when it ends; without a port when there is none. Keep it in the
    // parameters of the stream (CStreamParam::KeepPort).
    gvx::PoolPort TakePort(const std::string& strPortElement, const std::string& strProtocol);
    // Puts a port back into a pool and sets it to 0. 1 when there is such a pool, else 0. The port is not checked.
    int FreePort(const std::string& strPortElement, unsigned int& uiAssginedPort);
    // Whether that pool has handed the port out.
    bool IsPortUsed(const std::string& strPortElement, unsigned int uiPort);

    // Asks the main service for ports of a protocol ("UDP", "TCP"). 0 and the ports, or 1.
    int ApplyPortList(unsigned int applyPortNumber, const std::string& portType, std::list<std::uint32_t>& portList);
    // Tells the main service which ports are in use. 0 when it has answered, else 1.
    int SendUsedPortlist();
    // The same for the one of that link, which may not be the last opened any more; it is told once for each opening.
    int SendUsedPortlist(const std::string& link);

    // A whole frame of NSS_PLUGIN_APPLY_PORTLIST_DATA_RSP that came when nobody waited for it any more: its ports join
    // the pool of their protocol when that runs empty, since the main service counts them as given. Waits for nobody;
    // the block stays the caller's.
    void TakeLateReply(const ACE_Message_Block* block);

private:
    void ClearPortElement();
    bool BindElements(CPortElement* udp, CPortElement* tcp);
    CPortElement* FindElement(const std::string& strPortElement);
    std::list<std::uint32_t> UsedPorts(const std::string& strPortElement);
    int ReportUsedPorts(const std::string& link);
    bool IsTold(const std::shared_ptr<const BP::LinkProgress>& link);
    void NoteTold(std::shared_ptr<const BP::LinkProgress> link);
    void ReportAheadOfAsking();
    void FillPool(CPortElement& element, const std::string& strProtocol);
    std::list<std::uint32_t> TakeLatePorts(PORT_PROCOTOL_TYPE type);

    static CGvxPortMgr m_Instance;

    ACE_Recursive_Thread_Mutex m_portElementMapMutex;  // guards the map, m_bIsInited, and each MakePort and FreePort
    std::unordered_map<std::string, CPortElement*> m_portElementMap;  // owned pools, by name
    bool m_bIsInited = false;
    std::mutex m_mutexLate;
    std::set<std::uint32_t> m_lateUdpPorts;  // Guarded by m_mutexLate.
    std::set<std::uint32_t> m_lateTcpPorts;  // Guarded by m_mutexLate.
    // The connection whose main service has heard of the used ports last. Guarded by m_mutexLate.
    std::shared_ptr<const BP::LinkProgress> m_told;
};

CGvxPortMgr* GvxPortMgr();
