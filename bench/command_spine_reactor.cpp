#include "command_spine.h"

#include "bp/cmd.h"
#include "bp/session.h"
#include "gvx_common/event/gvx_dev_reactor_mgr.h"
#include "nss/nss_msg_header.h"
#include "nss/nss_msg_type.h"

#include <ace/Message_Block.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kBodyBytes = 128;

// A command as the dispatcher hands it over: a frame, a link, a transaction text.
struct Device {
    BP::CCmd cmd;
    BP::CGvxNssCmd_ entry;
    CGvxReactor* reactor = nullptr;
};

std::string DeviceID(int device) {
    char text[32];
    std::snprintf(text, sizeof(text), "340200000013200%05d", device);
    return text;
}

class ReactorPath : public CommandPath {
public:
    ReactorPath(int devices, ServedListener& listener) : m_devices(static_cast<std::size_t>(devices)) {
        BP::RegisterSessionWork(NSS_PTZ_CONTROL_REQ, [&listener](BP::CGvxSessionBase&, const BP::CCmd& cmd) {
            listener.OnServed(static_cast<int>(cmd.GetServiceID()));
            return 0;
        });
        if (m_mgr.ReactorPoolInit(8) != 0) {
            std::abort();
        }
        for (int device = 0; device < devices; ++device) {
            Prepare(m_devices[static_cast<std::size_t>(device)], device);
        }
    }
    ~ReactorPath() override { BP::ClearSessionWork(); }

    void Push(int device) override {
        const Device& target = m_devices[static_cast<std::size_t>(device)];
        if (target.reactor->PushMessage(target.entry) != 0) {
            std::abort();  // the driver stays below the queue's limit
        }
    }

private:
    void Prepare(Device& device, int number) {
        const std::string frame(sizeof(NssMsgHeader) + kBodyBytes, '\0');
        auto* block = new ACE_Message_Block(frame.size());
        block->copy(frame.data(), frame.size());
        device.cmd.SetReqID(NSS_PTZ_CONTROL_REQ);
        device.cmd.SetServiceID(static_cast<std::uint32_t>(number));
        device.cmd.SetTimestamp(BP::OSTime::Time() + 100000);
        device.cmd.SetNetLinkID("SCU#001");
        device.cmd.SetTransID(BP::CMKTransID::GenerateTransID());
        device.cmd.SetMsgBlock(block);
        device.entry.m_pCmd = &device.cmd;
        device.entry.m_devID = DeviceID(number);
        device.reactor = m_mgr.ScheduleReactor(device.entry.m_devID);
    }

    std::vector<Device> m_devices;
    CGvxDevReactorMgr m_mgr;
};

}  // namespace

std::unique_ptr<CommandPath> MakeReactorPath(int devices, ServedListener& listener) {
    return std::make_unique<ReactorPath>(devices, listener);
}
