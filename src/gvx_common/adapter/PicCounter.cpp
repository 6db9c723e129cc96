#include "gvx_common/adapter/PicCounter.h"

#include "base/log.h"

void PicCounter::AddLen(unsigned int len, float& average, unsigned int& count) {
    const auto before = static_cast<float>(count);
    const float now = before + 1.0f;
    average = average / now * before + static_cast<float>(len) / now;
    ++count;
}

void PicCbkCounter::AddPic(int kind, unsigned int len) {
    switch (kind) {
        case FACEPIC:
            return AddLen(len, m_facePicLen, m_facePicNum);
        case PANORAMAPIC:
            return AddLen(len, m_panoramaPicLen, m_panoramaPicNum);
        case PLATEPIC:
            return AddLen(len, m_platePicLen, m_platePicNum);
        case SCENEPIC:
            return AddLen(len, m_scenePicLen, m_scenePicNum);
        case MIXEDFACEPIC:
            return AddLen(len, m_mixFacePicLen, m_mixFacePicNum);
        case MIXEDPANORAMAPIC:
            return AddLen(len, m_mixPanoramaPicLen, m_mixPanoramaPicNum);
        default:
            return;
    }
}

void PicCbkCounter::Print() {
    GVX_LOG_INFO("PicCbkCounter", "FaceNum=%u,FaceLen=%f,panoramaPicNum=%u,panoramaPicLen=%f", m_facePicNum,
                 static_cast<double>(m_facePicLen), m_panoramaPicNum, static_cast<double>(m_panoramaPicLen));
    // The scene pictures stand under the words of the plates.
    GVX_LOG_INFO("PicCbkCounter", "plateNum=%u,plateLen=%f,plateNum=%u,plateLen=%f", m_platePicNum,
                 static_cast<double>(m_platePicLen), m_scenePicNum, static_cast<double>(m_scenePicLen));
    GVX_LOG_INFO("PicCbkCounter", "mixFaceNum=%u,mixFaceLen=%f,mixPanoramaPicNum=%u,mixPanoramaPicLen=%f",
                 m_mixFacePicNum, static_cast<double>(m_mixFacePicLen), m_mixPanoramaPicNum,
                 static_cast<double>(m_mixPanoramaPicLen));
}

void PicCbkCounter::Reset() {
    *this = PicCbkCounter();
}

void TlvCounter::AddPic(int kind, unsigned int len) {
    switch (kind) {
        case FACE:
            return AddLen(len, m_faceTlvLen, m_faceTlvNum);
        case PLATE:
            return AddLen(len, m_plateTlvLen, m_plateTlvNum);
        case HEARTBEAT:
            return AddLen(len, m_heartBeatTlvLen, m_heartBeatTlvNum);
        default:
            return;
    }
}

void TlvCounter::Print() {
    GVX_LOG_INFO("TlvCounter", "m_faceTlvNum=%u,m_faceTlvLen=%f", m_faceTlvNum, static_cast<double>(m_faceTlvLen));
    GVX_LOG_INFO("TlvCounter", "m_plateTlvNum=%u,m_plateTlvLen=%f", m_plateTlvNum, static_cast<double>(m_plateTlvLen));
    GVX_LOG_INFO("TlvCounter", "m_heartBeatTlvNum=%u,m_heartBeatTlvLen=%f", m_heartBeatTlvNum,
                 static_cast<double>(m_heartBeatTlvLen));
}

void TlvCounter::Reset() {
    *this = TlvCounter();
}

void CommonAlarmCounter::Print() {
    GVX_LOG_INFO("CommonAlarmCounter", "m_alarmNum=%u", m_alarmNum);
}
