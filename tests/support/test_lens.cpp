#include "support/test_lens.h"

#include <ace/Message_Block.h>

void TestLens::Prepare(int channelID, SEND_STREAM_FUNC* func, std::size_t bufferBytes) {
    DropBuffer(channelID);
    SetSendFunc(channelID, func);
    Channel(channelID).m_pMediaBufWithRTP = new ACE_Message_Block(bufferBytes);
}

void TestLens::DropBuffer(int channelID) {
    CMediaChannel& channel = Channel(channelID);
    if (channel.m_pMediaBufWithRTP != nullptr) {
        channel.m_pMediaBufWithRTP->release();
        channel.m_pMediaBufWithRTP = nullptr;
    }
}
