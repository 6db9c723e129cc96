#pragma once

#include "gvx_common/records/gvx_adapter_records.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace gvxfile {

// What other threads than their own may know of the devices of this plug-in: that they exist, their form, and the
// identifiers of their lenses. Any thread.
class DeviceDirectory {
public:
    void Add(const std::string& device, enPuDevFormType form);
    void AddLens(const std::string& device, unsigned int channel, const std::string& lens);
    void Remove(const std::string& device);

    // False when there is no such device.
    bool FindForm(const std::string& device, enPuDevFormType& form) const;
    // The identifier of the lens of a channel; empty when there is none.
    std::string LensOf(const std::string& device, unsigned int channel) const;

private:
    struct Entry {
        enPuDevFormType form = PU_IPC;
        std::map<unsigned int, std::string> lenses;  // by channel
    };

    mutable std::mutex m_mutex;
    std::map<std::string, Entry> m_devices;  // Guarded by m_mutex.
};

// A device stands in the directory for as long as it lives.
class DirectoryEntry {
public:
    DirectoryEntry(std::shared_ptr<DeviceDirectory> directory, std::string device, enPuDevFormType form);
    ~DirectoryEntry();
    DirectoryEntry(const DirectoryEntry&) = delete;
    DirectoryEntry& operator=(const DirectoryEntry&) = delete;

    void AddLens(unsigned int channel, const std::string& lens) { m_directory->AddLens(m_device, channel, lens); }

private:
    const std::shared_ptr<DeviceDirectory> m_directory;
    const std::string m_device;
};

}  // namespace gvxfile
