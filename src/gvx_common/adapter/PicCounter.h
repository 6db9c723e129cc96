#pragma once

// Counts of what passes, with running means of the sizes, for maintenance. No lock: one thread counts, and a reader may
// see values that do not belong together.
class PicCounter {
public:
    virtual ~PicCounter() = default;
    // Writes the counts to the log.
    virtual void Print() = 0;
    virtual void Reset() = 0;

protected:
    // Takes a size into the running mean, and counts it.
    static void AddLen(unsigned int len, float& average, unsigned int& count);
};

// Pictures as devices deliver them.
class PicCbkCounter : public PicCounter {
public:
    enum PIC_KIND : int {
        FACEPIC = 0,
        PANORAMAPIC = 1,
        PLATEPIC = 2,
        SCENEPIC = 3,
        MIXEDFACEPIC = 4,
        MIXEDPANORAMAPIC = 5,
    };

    // A picture of len bytes; a kind that is none changes nothing.
    void AddPic(int kind, unsigned int len);
    void Print() override;
    void Reset() override;

    unsigned int m_facePicNum = 0;
    float m_facePicLen = 0;
    unsigned int m_panoramaPicNum = 0;
    float m_panoramaPicLen = 0;
    unsigned int m_platePicNum = 0;
    float m_platePicLen = 0;
    unsigned int m_scenePicNum = 0;
    float m_scenePicLen = 0;
    unsigned int m_mixFacePicNum = 0;
    float m_mixFacePicLen = 0;
    unsigned int m_mixPanoramaPicNum = 0;
    float m_mixPanoramaPicLen = 0;
};

// Metadata messages.
class TlvCounter : public PicCounter {
public:
    enum TLV_KIND : int {
        FACE = 0,
        PLATE = 1,
        HEARTBEAT = 2,
    };

    // A message of len bytes; a kind that is none changes nothing.
    void AddPic(int kind, unsigned int len);
    void Print() override;
    void Reset() override;

    unsigned int m_faceTlvNum = 0;
    float m_faceTlvLen = 0;
    unsigned int m_plateTlvNum = 0;
    float m_plateTlvLen = 0;
    unsigned int m_heartBeatTlvNum = 0;
    float m_heartBeatTlvLen = 0;
};

class CommonAlarmCounter : public PicCounter {
public:
    void AddAlarm() { ++m_alarmNum; }
    void Print() override;
    void Reset() override { m_alarmNum = 0; }

    unsigned int m_alarmNum = 0;
};
