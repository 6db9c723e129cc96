#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

// What a device is like at the moment, in words: for whoever looks at the gateway's status. A plug-in reports it
// whenever it learns something, from any thread; the gateway keeps it by the code of the device, from the moment before
// CreateDevice until the device is deleted. A report about a device that the gateway does not have is dropped. Nothing
// secret may stand in a text. Nothing here throws or waits for anything but a short lock.

enum GVX_DEVICE_STATE {
    GVX_DEVICE_UNKNOWN = 0,  // not asked yet
    GVX_DEVICE_ONLINE,
    GVX_DEVICE_OFFLINE,         // no connection, or it was lost
    GVX_DEVICE_REFUSED,         // the device answers, and refuses
    GVX_DEVICE_WRONG_PASSWORD,  // it refuses the user or the password
    GVX_DEVICE_NO_PICTURE,      // it can be reached, and delivers no usable stream
};

// The state in words, such as "wrong password"; "unknown" for a number that is none. Static text.
const char* GvxDeviceStateName(GVX_DEVICE_STATE state);

// The state of a device, and why, in one sentence of at most 511 bytes (more is cut, at a character); empty when there is nothing to
// tell. A state that is neither unknown nor online counts as an error of the device, each time that it is reported. A
// plug-in that never calls this shows the login state that it sets with SetLoginStatus.
void GvxReportDeviceState(const std::string& device, GVX_DEVICE_STATE state, const std::string& reason) noexcept;

// Counts a try to log in to the device, whatever becomes of it.
void GvxReportLoginTry(const std::string& device) noexcept;

// What is known of a device. Wall times in seconds since 1970, times by the monotonic clock in milliseconds; 0 for what
// never was.
struct GvxDeviceStatus {
    std::string strDevice;
    GVX_DEVICE_STATE eState = GVX_DEVICE_UNKNOWN;
    std::string strReason;   // of the state; may be empty
    std::time_t tSince = 0;  // when the state began; a new reason alone begins none
    std::int64_t nSinceMs = 0;
    std::string strLastError;  // of the device or of an operation of it; stays when the device is well again
    std::time_t tLastError = 0;
    std::int64_t nLastErrorMs = 0;
    std::uint64_t nErrors = 0;
    std::uint64_t nLoginTries = 0;
};

// The side of the gateway. Any thread.
namespace gvx {

// Keeps the status of a device while it lives. Several of one code share it.
class DeviceStatusKeeper {
public:
    explicit DeviceStatusKeeper(std::string device);
    ~DeviceStatusKeeper();
    DeviceStatusKeeper(const DeviceStatusKeeper&) = delete;
    DeviceStatusKeeper& operator=(const DeviceStatusKeeper&) = delete;

private:
    const std::string m_device;
};

// An operation of the device has failed; text is one sentence. Leaves the state as it is. For plug-ins too, of what
// they do without being asked, or behind the answer.
void NoteDeviceError(const std::string& device, const std::string& text) noexcept;
// The login state of a plug-in that may tell no more: online, or offline when it was online or unknown.
void NoteDeviceLogin(const std::string& device, bool login) noexcept;

// False when there is no such device.
bool FindDeviceStatus(const std::string& device, GvxDeviceStatus& status);
// All devices, by code.
std::vector<GvxDeviceStatus> ListDeviceStatus();

}  // namespace gvx
