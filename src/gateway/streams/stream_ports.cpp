#include "gateway/streams/stream_ports.h"

#include "base/unique_fd.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/media/socket_info.h"
#include "gvx_common/ports/gvx_port_mgr.h"
#include "gvx_common/records/stream_param.h"

#include <chrono>
#include <mutex>
#include <set>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>

namespace gvx {

namespace {

bool IsExchanged() {
    return SettingNumber(Setting::GVX_MEDIA_PORT_EXCHANGE) == 1;
}

// The ports of GVX_MEDIA_SEND_UDP that streams have. Any thread.
class RangePorts {
public:
    static RangePorts& Instance() {
        // Never destroyed: what was left behind may give its port back late.
        static RangePorts& instance = *new RangePorts;
        return instance;
    }

    // RTP goes out by every second port of a range, so that the one above is left for RTCP. Without a port when all
    // are taken, by streams or by others.
    PoolPort Take() {
        std::vector<PortRange> ranges;
        ReadPortRanges(SettingText(Setting::GVX_MEDIA_SEND_UDP), ranges);
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const PortRange& range : ranges) {
            for (unsigned int port = range.from; port <= range.to; port += 2) {
                if (m_taken.count(port) == 0 && IsFree(port)) {
                    m_taken.insert(port);
                    return {port, [this](unsigned int number) { GiveBack(number); }};
                }
            }
        }
        return {};
    }

private:
    // Others of this host may have it.
    static bool IsFree(unsigned int port) {
        const UniqueFd probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        return probe.Valid() && bind(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    }

    void GiveBack(unsigned int port) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_taken.erase(port);
    }

    std::mutex m_mutex;              // no other lock is taken under it
    std::set<unsigned int> m_taken;  // Guarded by m_mutex.
};

// How long a start waits for the ports of streams that have just ended, when there are no others.
constexpr std::chrono::milliseconds kClosingLimit(500);

PoolPort TakeFromPool() {
    return IsExchanged() ? CGvxPortMgr::Instance()->TakePort(GVX_MEDIA_SEND_UDP, UDP_PROCOTOL)
                         : RangePorts::Instance().Take();
}

PoolPort TakeOrWait() {
    PoolPort port = TakeFromPool();
    if (port.Number() != 0 || !CSocketInfoMgr::Instance()->WaitForClosing(kClosingLimit)) {
        return port;
    }
    return TakeFromPool();
}

bool TakeOne(CStreamParam& keeper, std::uint16_t& number) {
    PoolPort port = TakeOrWait();
    number = static_cast<std::uint16_t>(port.Number());
    keeper.KeepPort(std::move(port));
    return number != 0;
}

}  // namespace

bool StreamPorts::AreManaged() {
    return IsExchanged() || !SettingText(Setting::GVX_MEDIA_SEND_UDP).empty();
}

bool StreamPorts::Take(bool audio, bool metadata, CStreamParam& keeper) {
    return TakeOne(keeper, m_video) && (!audio || TakeOne(keeper, m_audio)) &&
           (!metadata || TakeOne(keeper, m_metadata));
}

}  // namespace gvx
