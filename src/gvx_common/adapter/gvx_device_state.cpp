#include "gvx_common/adapter/gvx_device_state.h"

#include "base/clock.h"
#include "base/utf8.h"
#include "gvx_common/utility/gvx_device_trace.h"

#include <exception>
#include <iterator>
#include <map>
#include <mutex>
#include <utility>

namespace {

constexpr const char* kStateNames[] = {"unknown", "online", "offline", "refused", "wrong password", "no picture"};
constexpr std::size_t kReasonBytes = 511;

struct Entry {
    GvxDeviceStatus status;
    int keepers = 0;
};

class DeviceStatusTable {
public:
    // Never destroyed: a thread of a plug-in may report after the static objects are gone.
    static DeviceStatusTable& Instance() {
        static DeviceStatusTable* const table = new DeviceStatusTable;
        return *table;
    }

    // Calls use with the entries by code.
    template <typename Use>
    void With(const Use& use) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        use(m_devices);
    }

private:
    std::mutex m_mutex;                      // nothing is called while it is held
    std::map<std::string, Entry> m_devices;  // Guarded by m_mutex.
};

// Calls change with the status of a device that is kept. Without memory for a text the report is lost, and no more.
template <typename Change>
void ChangeStatus(const std::string& device, const Change& change) noexcept {
    try {
        DeviceStatusTable::Instance().With([&](auto& devices) {
            const auto found = devices.find(device);
            if (found != devices.end()) {
                change(found->second.status);
            }
        });
    } catch (const std::exception&) {
    }
}

void SetState(GvxDeviceStatus& status, GVX_DEVICE_STATE state, std::string reason) {
    if (status.eState != state) {
        status.tSince = gvx::WallSeconds();
        status.nSinceMs = gvx::MonotonicMilliseconds();
    }
    status.eState = state;
    status.strReason = std::move(reason);
}

void SetError(GvxDeviceStatus& status, std::string text) {
    status.strLastError = std::move(text);
    status.tLastError = gvx::WallSeconds();
    status.nLastErrorMs = gvx::MonotonicMilliseconds();
    ++status.nErrors;
}

bool IsFailing(GVX_DEVICE_STATE state) {
    return state != GVX_DEVICE_UNKNOWN && state != GVX_DEVICE_ONLINE;
}

// The dialogue with the device says when what it was like.
void TellTrace(const std::string& device, GVX_DEVICE_STATE state, const std::string& reason) noexcept {
    try {
        const std::string name = GvxDeviceStateName(state);
        gvx::NoteDialogueState(device, IsFailing(state),
                               reason.empty() ? name
                                              : name + ". " + std::string(gvx::CutAtCharacter(reason, kReasonBytes)));
    } catch (const std::exception&) {
    }
}

}  // namespace

const char* GvxDeviceStateName(GVX_DEVICE_STATE state) {
    const auto index = static_cast<std::size_t>(state);
    return kStateNames[index < std::size(kStateNames) ? index : 0];
}

void GvxReportDeviceState(const std::string& device, GVX_DEVICE_STATE state, const std::string& reason) noexcept {
    const bool failing = IsFailing(state);
    bool changed = failing;  // each failure is told
    ChangeStatus(device, [&](GvxDeviceStatus& status) {
        const std::string text(gvx::CutAtCharacter(reason, kReasonBytes));
        if (failing) {
            SetError(status, text.empty() ? GvxDeviceStateName(state) : text);
        }
        changed = changed || status.eState != state;
        SetState(status, state, text);
    });
    if (changed) {
        TellTrace(device, state, reason);
    }
}

void GvxReportLoginTry(const std::string& device) noexcept {
    ChangeStatus(device, [](GvxDeviceStatus& status) { ++status.nLoginTries; });
}

namespace gvx {

DeviceStatusKeeper::DeviceStatusKeeper(std::string device) : m_device(std::move(device)) {
    DeviceStatusTable::Instance().With([this](auto& devices) {
        Entry& entry = devices[m_device];
        if (entry.keepers++ == 0) {
            entry.status.strDevice = m_device;
            entry.status.tSince = WallSeconds();
            entry.status.nSinceMs = MonotonicMilliseconds();
        }
    });
}

DeviceStatusKeeper::~DeviceStatusKeeper() {
    DeviceStatusTable::Instance().With([this](auto& devices) {
        const auto found = devices.find(m_device);
        if (--found->second.keepers == 0) {
            devices.erase(found);
        }
    });
}

void NoteDeviceError(const std::string& device, const std::string& text) noexcept {
    ChangeStatus(device, [&](GvxDeviceStatus& status) { SetError(status, text); });
    NoteDialogueError(device, text);
}

void NoteDeviceLogin(const std::string& device, bool login) noexcept {
    const GVX_DEVICE_STATE state = login ? GVX_DEVICE_ONLINE : GVX_DEVICE_OFFLINE;
    bool changed = false;
    ChangeStatus(device, [&](GvxDeviceStatus& status) {
        changed = login ? status.eState != GVX_DEVICE_ONLINE : !IsFailing(status.eState);
        if (changed) {
            SetState(status, state, "");
        }
    });
    if (changed) {
        TellTrace(device, state, "");
    }
}

bool FindDeviceStatus(const std::string& device, GvxDeviceStatus& status) {
    bool isThere = false;
    DeviceStatusTable::Instance().With([&](const auto& devices) {
        const auto found = devices.find(device);
        isThere = found != devices.end();
        if (isThere) {
            status = found->second.status;
        }
    });
    return isThere;
}

std::vector<GvxDeviceStatus> ListDeviceStatus() {
    std::vector<GvxDeviceStatus> list;
    DeviceStatusTable::Instance().With([&](const auto& devices) {
        list.reserve(devices.size());
        for (const auto& [device, entry] : devices) {
            list.push_back(entry.status);
        }
    });
    return list;
}

}  // namespace gvx
