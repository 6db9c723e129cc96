#include "gateway/devices/device_table.h"

#include "base/fixed_text.h"
#include "base/log.h"
#include "gvx_common/alarm/gvx_error_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/records/adapter_common_message.h"

#include <ace/Message_Block.h>

#include <cstring>

namespace gvx {

Result DeviceTable::Insert(std::unique_ptr<Device>& device) {
    const auto most = static_cast<std::size_t>(SettingNumber(Setting::MAX_CAPS));
    const auto mostDevices = static_cast<std::size_t>(SettingNumber(Setting::GVX_MAX_DEVICES));
    const std::size_t lenses = device->Lenses().size();
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_closed) {
        return {ZVS_FAIL, "The gateway stops."};
    }
    if (m_devices.count(device->Code()) != 0) {
        return Failure(ZVS_GVX_DEV_EXIST);
    }
    if (mostDevices != 0 && m_devices.size() >= mostDevices) {
        return {ZVS_FAIL, "The gateway has " + std::to_string(m_devices.size()) +
                              " devices, and GVX_MAX_DEVICES allows " + std::to_string(mostDevices) + "."};
    }
    if (mostDevices == 0 && m_lenses + lenses > most) {
        return {ZVS_FAIL, "The gateway has " + std::to_string(m_lenses) + " cameras, this device would add " +
                              std::to_string(lenses) + ", and MAX_CAPS allows " + std::to_string(most) + "."};
    }
    // What takes memory comes first, so that nothing is put in by half. A lens that has an owner keeps it.
    std::map<std::string, std::string> owners;
    for (const Device::Lens& lens : device->Lenses()) {
        owners.emplace(lens.code, device->Code());
    }
    m_devices.try_emplace(device->Code()).first->second = std::move(device);
    m_lenses += lenses;
    m_lensOwners.merge(owners);
    return {};
}

Device* DeviceTable::FindHere(const std::string& code) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_devices.find(code);
    return found != m_devices.end() && found->second->IsHere() ? found->second.get() : nullptr;
}

std::unique_ptr<Device> DeviceTable::TakeHere(const std::string& code) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_devices.find(code);
    if (found == m_devices.end() || !found->second->IsHere()) {
        return nullptr;
    }
    std::unique_ptr<Device> device = std::move(found->second);
    m_devices.erase(found);
    m_lenses -= device->Lenses().size();
    for (const Device::Lens& lens : device->Lenses()) {
        const auto owner = m_lensOwners.find(lens.code);
        if (owner != m_lensOwners.end() && owner->second == code) {
            m_lensOwners.erase(owner);
        }
    }
    m_emptied.notify_all();
    return device;
}

bool DeviceTable::Contains(const std::string& code) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_devices.count(code) != 0;
}

CGvxReactor* DeviceTable::ReactorOf(const std::string& code) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_devices.find(code);
    return found == m_devices.end() ? nullptr : found->second->Reactor();
}

void DeviceTable::NoteAddition(const std::string& code, CGvxReactor* reactor) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (reactor == nullptr) {
        m_additions.erase(code);
    } else {
        m_additions[code] = reactor;
    }
}

CGvxReactor* DeviceTable::ReportReactorOf(const std::string& code) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_devices.find(code);
    const auto added = m_additions.find(code);
    return found != m_devices.end() ? found->second->Reactor() : added != m_additions.end() ? added->second : nullptr;
}

std::vector<std::string> DeviceTable::Codes() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> codes;
    for (const auto& entry : m_devices) {
        codes.push_back(entry.first);
    }
    return codes;
}

std::vector<DeviceTable::Facts> DeviceTable::AllFacts() const {
    constexpr std::size_t kMostAtOnce = 256;
    std::vector<Facts> all;
    while (true) {
        const std::size_t before = all.size();
        const std::lock_guard<std::mutex> lock(m_mutex);
        auto device = before == 0 ? m_devices.begin() : m_devices.upper_bound(all.back().code);
        for (; device != m_devices.end() && all.size() - before < kMostAtOnce; ++device) {
            const Device& known = *device->second;
            all.push_back({known.Code(), known.PluginName(), known.Address(), known.ScuLinkID(), known.Lenses().size(),
                           known.AddedMs()});
        }
        if (device == m_devices.end()) {
            return all;
        }
    }
}

void DeviceTable::Close() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_closed = true;
}

bool DeviceTable::WaitEmpty(std::chrono::milliseconds limit) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_emptied.wait_for(lock, limit, [this] { return m_devices.empty(); });
}

bool DeviceTable::ReserveStream(const std::string& serviceID, const std::string& device) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_streamDevices.emplace(serviceID, device).second;
}

void DeviceTable::ReleaseStream(const std::string& serviceID) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_streamDevices.erase(serviceID);
}

std::string DeviceTable::GetReqDevID(std::uint32_t /*seqID*/) {
    return std::string();
}

int DeviceTable::ProcessSdkException(const ACE_Message_Block* block) {
    ADAPTER_COMMON_MESSAGE message{};
    if (block == nullptr || block->length() < sizeof(message)) {
        GVX_LOG_ERR("Device report", "A report of %zu bytes is none.", block == nullptr ? 0 : block->length());
        return 1;
    }
    std::memcpy(&message, block->rd_ptr(), sizeof(message));
    const std::string device = TextOf(message.chDevId);
    Device* const known = FindHere(device);
    if (known == nullptr) {
        GVX_LOG_WARN("Device report", "type %u of a device that is gone. [dev:%s]", message.ExceptionType,
                     device.c_str());
        return 1;
    }
    if (block->length() > sizeof(message)) {
        return known->SendAlarm(std::string(block->rd_ptr() + sizeof(message), block->length() - sizeof(message)));
    }
    if (known->TakeReport(message)) {
        return 0;
    }
    GVX_LOG_WARN("Device report", "plug-in %s reports an exception of type %u. [dev:%s]", known->PluginName().c_str(),
                 message.ExceptionType, device.c_str());
    if (GVXErrorMgr* const reports = GVXErrorMgr::getInstance()) {
        reports->reportHstError(known->ScuLinkID().c_str(), __func__, device.c_str(),
                                TextOf(message.chSubDevId).c_str(), message.ExceptionType, "serving the device",
                                "plug-in %s reports an exception of type %u", known->PluginName().c_str(),
                                message.ExceptionType);
    }
    return 0;
}

bool DeviceTable::FindMainDevice(const std::string& devCode, std::string& address) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_devices.find(devCode);
    if (found == m_devices.end()) {
        return false;
    }
    address = found->second->Address();
    return true;
}

bool DeviceTable::FindOwner(const std::string& code, std::string& devCode) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_devices.count(code) != 0) {
        devCode = code;
        return true;
    }
    const auto lens = m_lensOwners.find(code);
    if (lens == m_lensOwners.end()) {
        return false;
    }
    devCode = lens->second;
    return true;
}

// This node has the tasks of its own devices alone; they go on while the main service is away.
int DeviceTable::HandleClusterTaskShiftIn(int reason, const std::string& nodeCode) {
    GVX_LOG_INFO("Cluster", "The main service is away, %zu devices go on. reason[%d] node[%s]", Codes().size(), reason,
                 nodeCode.c_str());
    return 0;
}

}  // namespace gvx
