#pragma once

#include "file/media_entry.h"

#include <json/forwards.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace gvxfile {

using MediaPtr = std::shared_ptr<const MediaEntry>;

// The media that the plug-in can play: those that its configuration file names, and those that a device brings along.
// Filled once, then only read, by any thread.
class MediaList {
public:
    // Reads the configuration file and looks into every file that it names. A configuration file that does not exist is
    // an empty list. False with one sentence in error, which names the file at fault.
    bool Load(const std::string& configFile, std::string& error);

    // The media of a device, one for each lens, from its extend text. False with one sentence in error.
    bool Resolve(const std::string& extendText, std::vector<MediaPtr>& lenses, std::string& error) const;

    std::size_t Size() const { return m_media.size(); }

    // The medium that a search finds at that address; null when there is none.
    MediaPtr At(const std::string& address) const;

private:
    MediaPtr Find(const std::string& name, std::string& error) const;
    bool ResolveNames(const Json::Value& names, std::vector<MediaPtr>& lenses, std::string& error) const;
    bool ResolveFiles(const Json::Value& list, std::vector<MediaPtr>& lenses, std::string& error) const;

    MediaFolder m_folder;        // of the configuration file
    MediaFolder m_deviceFolder;  // of what devices bring along
    bool ReadDiscovery(const Json::Value& object, std::string& error);

    std::map<std::string, MediaPtr> m_media;
    // Addresses at which media are found, in the order of their names and over and over; host order.
    std::uint32_t m_firstAddress = 0;
    std::uint32_t m_addresses = 0;
};

}  // namespace gvxfile
