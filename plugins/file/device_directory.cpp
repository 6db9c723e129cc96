#include "file/device_directory.h"

#include <utility>

namespace gvxfile {

void DeviceDirectory::Add(const std::string& device, enPuDevFormType form) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_devices[device] = Entry{form, {}};
}

void DeviceDirectory::AddLens(const std::string& device, unsigned int channel, const std::string& lens) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_devices[device].lenses[channel] = lens;
}

void DeviceDirectory::Remove(const std::string& device) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_devices.erase(device);
}

bool DeviceDirectory::FindForm(const std::string& device, enPuDevFormType& form) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_devices.find(device);
    if (found == m_devices.end()) {
        return false;
    }
    form = found->second.form;
    return true;
}

std::string DeviceDirectory::LensOf(const std::string& device, unsigned int channel) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_devices.find(device);
    if (found == m_devices.end()) {
        return std::string();
    }
    const auto lens = found->second.lenses.find(channel);
    return lens == found->second.lenses.end() ? std::string() : lens->second;
}

DirectoryEntry::DirectoryEntry(std::shared_ptr<DeviceDirectory> directory, std::string device, enPuDevFormType form)
    : m_directory(std::move(directory)), m_device(std::move(device)) {
    m_directory->Add(m_device, form);
}

DirectoryEntry::~DirectoryEntry() {
    m_directory->Remove(m_device);
}

}  // namespace gvxfile
