#pragma once

#include "file/media_entry.h"

#include <json/forwards.h>

#include <string>

namespace gvxfile {

// Reads the members of one medium. Relative paths start from folder. False with one sentence in error.
bool ReadMediaEntry(const std::string& name, const Json::Value& object, const std::string& folder, MediaEntry& entry,
                    std::string& error);

// Reads "speed" and "loop" where they stand, and leaves the entry as it is where they do not.
bool ReadPlayOptions(const Json::Value& object, MediaEntry& entry, std::string& error);

// Opens the files of an entry and reads on to the first picture: fills in size and, where none was configured, the
// frame rate; reads the metadata script. False with one sentence in error, when a file is unreadable or holds nothing
// that can be played.
bool ProbeMedia(MediaEntry& entry, std::string& error);

}  // namespace gvxfile
