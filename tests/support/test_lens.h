#pragma once

#include "gvx_common/adapter/gvx_adapter_defaults.h"

#include <ace/Message_Block.h>

#include <cstddef>
#include <string>

// A device and a lens that supply nothing, with reach into the channels, for tests of the code around a plug-in.
class TestDevice : public CAdapterDevDefaults {
public:
    TestDevice() = default;
    explicit TestDevice(const std::string& devID, const std::string& ip = "127.0.0.1") {
        SetMainDevID(devID);
        SetIP(ip);
    }
};

class TestLens : public CAdapterLensDefaults {
public:
    // A lens of `device`, which must outlive it.
    explicit TestLens(CAdapterDevBase& device, const char* lensId = "LENS001", short channel = 0)
        : CAdapterLensDefaults(lensId, channel, device) {}

    // Gives a channel its send function and a packet buffer of that many bytes (owned by the channel).
    void Prepare(int channelID, SEND_STREAM_FUNC* func, std::size_t bufferBytes = GVX_MEDIA_BUF_MIN_SIZE) {
        DropBuffer(channelID);
        SetSendFunc(channelID, func);
        Channel(channelID).m_pMediaBufWithRTP = new ACE_Message_Block(bufferBytes);
    }
    void SetSendFunc(int channelID, SEND_STREAM_FUNC* func) { Channel(channelID).m_pSendStreamFunc = func; }
    // Takes the packet buffer away again.
    void DropBuffer(int channelID) {
        CMediaChannel& channel = Channel(channelID);
        if (channel.m_pMediaBufWithRTP != nullptr) {
            channel.m_pMediaBufWithRTP->release();
            channel.m_pMediaBufWithRTP = nullptr;
        }
    }
    CMediaChannel& Channel(int channelID) { return *getMidiaChannel(channelID); }

    unsigned short MetaDataSeqNo() const { return m_usMetaDataSeqNo; }
    void SetMetaDataSeqNo(unsigned short number) { m_usMetaDataSeqNo = number; }
};

// A device with one lens, for tests that need no more.
struct TestLensOnDevice {
    explicit TestLensOnDevice(const char* lensId = "LENS001") : device("DEV001"), lens(device, lensId) {}
    TestDevice device;
    TestLens lens;
};
