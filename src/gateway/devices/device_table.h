#pragma once

#include "bp/service.h"
#include "gateway/devices/device.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace gvx {

// The devices of this process and the identifiers of their streams. Any thread; a device itself is given out on its
// own thread alone.
class DeviceTable : public BP::IDeviceMgr {
public:
    // A failure when there is such a device, the table is closed, or there would be more lenses than MAX_CAPS allows,
    // or more devices than GVX_MAX_DEVICES does where that is set; device then stays the caller's.
    Result Insert(std::unique_ptr<Device>& device);
    // The device of that code when it lives on this thread; null otherwise. Valid until this thread takes it out.
    Device* FindHere(const std::string& code) const;
    // The same, taken out of the table. The identifiers of its streams stay reserved.
    std::unique_ptr<Device> TakeHere(const std::string& code);
    bool Contains(const std::string& code) const;
    // The reactor of a device; null when there is no such device.
    CGvxReactor* ReactorOf(const std::string& code) const;
    // A device is being made on that reactor, whose plug-in may report of it already; null: that is over. What is
    // reported of it is served behind its addition.
    void NoteAddition(const std::string& code, CGvxReactor* reactor);
    // The reactor that serves what is reported of a device: of one that is being made too.
    CGvxReactor* ReportReactorOf(const std::string& code) const;
    std::vector<std::string> Codes() const;

    // What never changes of a device in the table.
    struct Facts {
        std::string code;
        std::string plugin;
        std::string address;
        std::string scuLinkID;
        std::size_t lenses = 0;
        std::int64_t addedMs = 0;  // monotonic
    };
    // Of all devices, by code. The lock is taken anew for each few of them: who comes or goes meanwhile may be missing.
    std::vector<Facts> AllFacts() const;

    // Refuses further devices, for the stop.
    void Close();
    // Waits until no device is left, for limit at most; true when that is so.
    bool WaitEmpty(std::chrono::milliseconds limit) const;

    // Stream identifiers are unique in the gateway. False when the identifier is taken.
    bool ReserveStream(const std::string& serviceID, const std::string& device);
    void ReleaseStream(const std::string& serviceID);

    int ProcessSdkException(const ACE_Message_Block* block) override;
    // Empty: no request of the gateway waits in a device's name, so that an answer belongs to whom its body names.
    std::string GetReqDevID(std::uint32_t seqID) override;
    int HandleClusterTaskShiftIn(int reason, const std::string& nodeCode) override;
    bool FindMainDevice(const std::string& devCode, std::string& address) override;
    // Knows the codes of lenses, which are what a plug-in makes them.
    bool FindOwner(const std::string& code, std::string& devCode) override;

private:
    mutable std::mutex m_mutex;  // Guards all below; nothing is called while it is held.
    mutable std::condition_variable m_emptied;
    std::map<std::string, std::unique_ptr<Device>> m_devices;
    std::map<std::string, CGvxReactor*> m_additions;  // devices that are being made
    std::size_t m_lenses = 0;                         // of all devices
    std::map<std::string, std::string> m_lensOwners;  // the devices by the codes of their lenses; the first keeps one
    std::map<std::string, std::string> m_streamDevices;  // by stream identifier
    bool m_closed = false;
};

}  // namespace gvx
