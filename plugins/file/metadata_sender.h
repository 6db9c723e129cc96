#pragma once

#include "file/metadata_script.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"

#include <cstdint>

namespace gvxfile {

// Sends the messages of a script into the metadata channel of a lens. One thread, and one sender at a time for a lens:
// all metadata of a lens shares one numbering.
class MetadataSender {
public:
    // The metadata channel of that transport.
    static int Channel(bool overTcp) { return STREAM_TYPE_METADATA + (overTcp ? GVX_MEDIA_CHANNEL_TCP_OFFSET : 0); }

    // The channel must have its packet buffer and send function.
    MetadataSender(CAdapterLensBase& lens, bool overTcp, void* userInfo)
        : m_lens(lens), m_overTcp(overTcp), m_userInfo(userInfo) {}

    // Sends one message. pts is the RTP timestamp of the picture that it belongs to. The result of the lens; 1 when the
    // pool has no room for the record.
    int Send(const MetadataMessage& message, std::uint64_t pts);

private:
    int SendPlain(const MetadataMessage& message, std::uint64_t pts);
    int SendEx(const MetadataMessage& message, std::uint64_t pts);

    CAdapterLensBase& m_lens;
    const bool m_overTcp;
    void* const m_userInfo;
};

}  // namespace gvxfile
