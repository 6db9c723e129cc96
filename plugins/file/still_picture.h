#pragma once

#include "gvx_common/codec/codec.h"
#include "plugin_support/picture_desk.h"

#include <mutex>
#include <string>

namespace gvxfile {

// A snapshot of a medium, as JPEG: a file that was named, else the clip's first picture, which ffmpeg decodes once,
// when it is first asked for. Any thread.
class StillPicture {
public:
    // picturePath is empty where no file was named.
    StillPicture(std::string videoPath, gvx::Codec codec, std::string picturePath)
        : m_videoPath(std::move(videoPath)), m_codec(codec), m_picturePath(std::move(picturePath)) {}

    // Null with one sentence in error, when there is none. Waits for ffmpeg, 20 s at most.
    gvxplugin::PictureBytes Get(std::string& error);

private:
    const std::string m_videoPath;
    const gvx::Codec m_codec;
    const std::string m_picturePath;
    std::mutex m_mutex;
    gvxplugin::PictureBytes m_bytes;  // Guarded by m_mutex; null until it was asked for.
};

}  // namespace gvxfile
