#pragma once

#include "file/metadata_script.h"
#include "file/recording.h"
#include "file/still_picture.h"
#include "gvx_common/codec/codec.h"
#include "gvx_common/records/media_types.h"

#include <json/forwards.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>

namespace gvxfile {

// How fast a medium plays: a factor of its own frame rate, or without waiting at all.
struct Speed {
    bool unlimited = false;
    double factor = 1;
};

// A medium as it was configured, and what was found in its files.
struct MediaEntry {
    std::string name;
    std::string videoPath;
    gvx::Codec codec = gvx::Codec::H264;
    std::string audioPath;  // empty: no audio
    AUDIO_FORMAT_TYPE audioFormat = GVX_AUDIO_FORMAT_G711A;
    std::string metadataPath;  // empty: no metadata
    std::shared_ptr<const MetadataScript> metadata;
    std::string talkPath;  // what is said to the lens is written there; empty: it takes no sound
    std::shared_ptr<StillPicture> still;
    std::shared_ptr<Recording> recording;  // the same pictures as something recorded
    gvx::Rational frameRate;               // as configured, else from the file, else 25
    bool loop = true;
    Speed speed;
    std::uint32_t width = 0;
    std::uint32_t height = 0;

    bool HasAudio() const { return !audioPath.empty(); }
};

// The readers below may be called by any thread.

// Where relative paths start from; confined: nothing outside of it may be named.
struct MediaFolder {
    std::string path;
    bool confined = false;
};

// A member that is misspelt would otherwise count as absent. False with "member 'x' is not known." in error.
bool KnowsAllMembers(const Json::Value& object, std::initializer_list<const char*> known, std::string& error);

// Reads the members of one medium. False with one sentence in error.
bool ReadMediaEntry(const std::string& name, const Json::Value& object, const MediaFolder& folder, MediaEntry& entry,
                    std::string& error);

// Reads "speed" and "loop" where they stand, and leaves the entry as it is where they do not.
bool ReadPlayOptions(const Json::Value& object, MediaEntry& entry, std::string& error);

// Opens the files of an entry and reads on to the first picture: fills in size and, where none was configured, the
// frame rate; reads the metadata script. False with one sentence in error, when a file is unreadable or holds nothing
// that can be played.
bool ProbeMedia(MediaEntry& entry, std::string& error);

}  // namespace gvxfile
