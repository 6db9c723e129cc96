#pragma once

#include "gvx_common/records/gvx_metadata_records.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace gvxfile {

using Picture = std::shared_ptr<const std::string>;

enum class MetadataKind { Plate, Vehicle, Face, Heartbeat };

// One message of a script. Of the records only that of its kind is filled, without pictures and without time stamp.
struct MetadataMessage {
    std::int64_t timeMicroseconds = 0;    // since the start of the stream, in the medium's own time
    std::int64_t repeatMicroseconds = 0;  // until it is sent again; 0: once
    MetadataKind kind = MetadataKind::Heartbeat;
    bool ex = false;  // in the form whose pictures lie in pool pages
    ITSPlatesTrim plates{};
    stFaceRects faces{};
    // Of a plate or vehicle by ITS_PIC_PLACE; of faces the panorama, then one for each face. Null for none.
    std::vector<Picture> pictures;
};

// What is sent as metadata beside a medium, with its pictures in memory. Read once, then only read, by any thread.
struct MetadataScript {
    static constexpr std::size_t kMaxMessages = 1000;
    static constexpr std::size_t kMaxPictureBytes = 16u * 1024 * 1024;
    static constexpr std::size_t kMaxAllPictureBytes = 64u * 1024 * 1024;

    std::vector<MetadataMessage> messages;  // in the order of the file
};

// Reads a script and the pictures that it names; relative paths start from the script's folder. Null with one sentence
// in error, which names the file and the message at fault.
std::shared_ptr<const MetadataScript> ReadMetadataScript(const std::string& path, std::string& error);

}  // namespace gvxfile
