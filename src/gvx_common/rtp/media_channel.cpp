#include "gvx_common/rtp/media_channel.h"

#include "base/log.h"

#include <ace/Message_Block.h>

void CMediaChannel::init() {
    m_ulVideoTimestamp = 0;
    m_ulAudioTimestamp = 0;
    m_pMediaBufWithRTP = nullptr;
    m_usVideoSeqNo = 0;
    m_usAudioSeqNo = 0;
    m_NaluList.clear();
    m_pSendStreamFunc = nullptr;
    m_pHstPESParse = nullptr;
    m_PSheaderNew = HstPSHeader();
}

void CMediaChannel::destroy() {
    clearNaluList();
    if (m_pMediaBufWithRTP != nullptr) {
        m_pMediaBufWithRTP->release();
        m_pMediaBufWithRTP = nullptr;
    }
    if (m_pHstPESParse != nullptr) {
        delete m_pHstPESParse;
        m_pHstPESParse = nullptr;
        --g_bp_memstat;
    }
}

void CMediaChannel::clearNaluList() {
    for (ACE_Message_Block* unit : m_NaluList) {
        unit->release();
    }
    m_NaluList.clear();
}
