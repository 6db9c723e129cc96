#include "media_path_clip.h"

#include "gvx_common/adapter/gvx_adapter_defaults.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace bench {

namespace {

class Device : public CAdapterDevDefaults {};

Device& TheDevice() {
    static Device device;
    return device;
}

struct Unit {
    std::size_t begin;  // behind the start code
    std::size_t end;
};

std::vector<Unit> FindUnits(const Bytes& file) {
    std::vector<Unit> units;
    std::size_t zeros = 0;
    for (std::size_t i = 0; i < file.size(); ++i) {
        if (file[i] == 1 && zeros >= 2) {
            if (!units.empty()) {
                units.back().end = i - std::min<std::size_t>(zeros, 3);
            }
            units.push_back({i + 1, file.size()});
        }
        zeros = file[i] == 0 ? zeros + 1 : 0;
    }
    return units;
}

struct UnitKind {
    bool slice;
    bool firstOfPicture;  // first_mb_in_slice is 0, or first_slice_segment_in_pic_flag is set
};

UnitKind KindOf(const unsigned char* unit, Codec codec) {
    if (codec == Codec::H264) {
        const int type = unit[0] & 0x1F;
        return {type == 1 || type == 5, (unit[1] & 0x80) != 0};
    }
    return {((unit[0] >> 1) & 0x3F) < 32, (unit[2] & 0x80) != 0};
}

// A frame ends before the first unit that follows its slices and is no slice, or is the first slice of a picture.
std::vector<Bytes> SplitFrames(const Bytes& file, Codec codec) {
    std::vector<Bytes> frames(1);
    bool slices = false;
    for (const Unit& unit : FindUnits(file)) {
        if (unit.end <= unit.begin + 2) {
            continue;
        }
        const UnitKind kind = KindOf(file.data() + unit.begin, codec);
        if (slices && (!kind.slice || kind.firstOfPicture)) {
            frames.emplace_back();
            slices = false;
        }
        slices = slices || kind.slice;
        const unsigned char startCode[] = {0, 0, 0, 1};
        frames.back().insert(frames.back().end(), startCode, startCode + 4);
        frames.back().insert(frames.back().end(), file.begin() + static_cast<std::ptrdiff_t>(unit.begin),
                             file.begin() + static_cast<std::ptrdiff_t>(unit.end));
    }
    return frames;
}

int NoteSize(MEDIA_DATA* data, STREAM_TYPE_EX*) {
    static_cast<std::vector<std::size_t>*>(data->pUserInfo)->push_back(data->nVideoSize);
    return 0;
}

}  // namespace

class ClipSender::Lens : public CAdapterLensDefaults {
public:
    Lens() : CAdapterLensDefaults("BENCH", 0, TheDevice()) {}
};

Clip ReadClip(const std::string& path) {
    Clip clip;
    clip.path = path;
    clip.name = path.substr(path.find_last_of('/') + 1);
    clip.codec = path.size() > 5 && path.substr(path.size() - 5) == ".h265" ? Codec::H265 : Codec::H264;
    std::ifstream input(path, std::ios::binary);
    const Bytes file((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
    clip.fileBytes = file.size();
    clip.frames = SplitFrames(file, clip.codec);
    if (clip.frames.size() < 2) {
        std::fprintf(stderr, "%s: no coded stream\n", path.c_str());
        std::exit(2);
    }
    return clip;
}

ClipSender::ClipSender(SEND_STREAM_FUNC* func, void* user, bool overTcp)
    : m_lens(new Lens), m_user(user), m_overTcp(overTcp) {
    CMediaChannel* channel = m_lens->getMidiaChannel(overTcp ? GVX_MEDIA_CHANNEL_TCP_OFFSET : 0);
    channel->m_pSendStreamFunc = func;
    channel->m_pMediaBufWithRTP = new ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
}

void ClipSender::Send(Bytes& frame, Codec codec) {
    MEDIA_DATA media{};
    media.pUserInfo = m_user;
    media.nVideoSize = static_cast<std::uint32_t>(frame.size());
    media.eVideoFormatType = codec == Codec::H264 ? VIDEO_DEC_H264 : VIDEO_DEC_H265;
    media.nTimeTick = 3600;
    m_lens->H264ToRtp(frame.data(), static_cast<int>(frame.size()), media, m_overTcp ? GVX_MEDIA_CHANNEL_TCP_OFFSET : 0,
                      m_overTcp, false, 0, 0, false);
}

std::vector<std::size_t> PacketSizes(Clip& clip, bool overTcp) {
    std::vector<std::size_t> sizes;
    ClipSender sender(&NoteSize, &sizes, overTcp);
    for (Bytes& frame : clip.frames) {
        sender.Send(frame, clip.codec);
    }
    return sizes;
}

}  // namespace bench
