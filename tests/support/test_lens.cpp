#include "support/test_lens.h"

#include <ace/Message_Block.h>

TestDevice::TestDevice(const std::string& devID, const std::string& ip) {
    SetMainDevID(devID);
    SetIP(ip);
}

TestLens::TestLens(CAdapterDevBase& device, const char* lensId, short channel)
    : CAdapterLensDefaults(lensId, channel, device) {}

void TestLens::Prepare(int channelID, SEND_STREAM_FUNC* func, std::size_t bufferBytes) {
    DropBuffer(channelID);
    SetSendFunc(channelID, func);
    Channel(channelID).m_pMediaBufWithRTP = new ACE_Message_Block(bufferBytes);
}

void TestLens::SetSendFunc(int channelID, SEND_STREAM_FUNC* func) { Channel(channelID).m_pSendStreamFunc = func; }

void TestLens::DropBuffer(int channelID) {
    CMediaChannel& channel = Channel(channelID);
    if (channel.m_pMediaBufWithRTP != nullptr) {
        channel.m_pMediaBufWithRTP->release();
        channel.m_pMediaBufWithRTP = nullptr;
    }
}

CMediaChannel& TestLens::Channel(int channelID) { return *getMidiaChannel(channelID); }
