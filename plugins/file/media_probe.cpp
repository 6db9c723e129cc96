#include "file/media_json.h"

#include "gvx_common/codec/access_unit_reader.h"
#include "gvx_common/codec/input_file.h"

#include <cerrno>
#include <system_error>

namespace gvxfile {
namespace {

// How much of a file is looked through for its first picture with a parameter set.
constexpr std::size_t kProbeBytes = 4u * 1024 * 1024;
constexpr gvx::Rational kUsualFrameRate{25, 1};

std::string Fault(const MediaEntry& entry, const std::string& path, const std::string& what) {
    return "Medium '" + entry.name + "': " + path + " " + what + ".";
}

bool ProbeVideo(MediaEntry& entry, std::string& error) {
    gvx::AccessUnitReader reader(entry.codec);
    std::string reason;
    if (!reader.Open(entry.videoPath, reason)) {
        error = Fault(entry, entry.videoPath, "cannot be opened: " + reason);
        return false;
    }
    gvx::AccessUnit unit;
    std::size_t seen = 0;
    while (reader.Sequence().width == 0 && seen < kProbeBytes) {
        const gvx::ReadResult result = reader.Next(unit);
        if (result == gvx::ReadResult::Failed) {
            error = Fault(entry, entry.videoPath, "cannot be read: " + reader.Error());
            return false;
        }
        if (result == gvx::ReadResult::End) {
            break;
        }
        seen += unit.bytes.size();
    }
    const gvx::SequenceInfo& sequence = reader.Sequence();
    if (sequence.width == 0) {
        const char* codec = entry.codec == gvx::Codec::H264 ? "H.264" : "H.265";
        error = Fault(entry, entry.videoPath,
                      std::string("begins with no ") + codec + " sequence parameter set and picture");
        return false;
    }
    entry.width = sequence.width;
    entry.height = sequence.height;
    if (!entry.frameRate.Known()) {
        entry.frameRate = sequence.frameRate.Known() ? sequence.frameRate : kUsualFrameRate;
    }
    return true;
}

bool ProbeAudio(const MediaEntry& entry, std::string& error) {
    gvx::InputFile file;
    std::string reason;
    if (!file.Open(entry.audioPath, reason)) {
        error = Fault(entry, entry.audioPath, "cannot be opened: " + reason);
        return false;
    }
    std::uint8_t byte = 0;
    const ssize_t count = file.Read(&byte, 1);
    if (count <= 0) {
        error = Fault(entry, entry.audioPath,
                      count == 0 ? "is empty" : "cannot be read: " + std::generic_category().message(errno));
        return false;
    }
    return true;
}

bool LoadMetadata(MediaEntry& entry, std::string& error) {
    std::string reason;
    entry.metadata = ReadMetadataScript(entry.metadataPath, reason);
    if (entry.metadata == nullptr) {
        error = "Medium '" + entry.name + "': " + reason;
        return false;
    }
    return true;
}

}  // namespace

bool ProbeMedia(MediaEntry& entry, std::string& error) {
    return ProbeVideo(entry, error) && (!entry.HasAudio() || ProbeAudio(entry, error)) &&
           (entry.metadataPath.empty() || LoadMetadata(entry, error));
}

}  // namespace gvxfile
