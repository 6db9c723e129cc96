#pragma once

#include "gvx_common/records/conf_item_mask.h"
#include "gvx_common/records/gvx_adapter_records.h"

#include <cstdint>
#include <string>
#include <vector>

// Argument records about what a lens sees and sends: streams, sound, image, words in the picture, masks. Places in the
// picture are in ten-thousandths of its width and height, from the upper left corner, so that they fit every size.

// A rectangle of the picture.
struct _AREA_INFO {
    std::uint32_t uiAreaID = 0;  // from 0
    std::uint32_t uiX = 0;       // upper left corner, 0 to 10000
    std::uint32_t uiY = 0;
    std::uint32_t uiWidth = 0;  // 0 to 10000
    std::uint32_t uiHeight = 0;
};

// A place in the picture, 0 to 10000 each way.
struct PU_POINT_INFO {
    std::uint32_t uiX = 0;
    std::uint32_t uiY = 0;
};

// A quadrangle of the picture: its four corners, in order around it.
struct _AREA_INFO_EX {
    std::uint32_t uiAreaID = 0;  // from 0
    std::vector<PU_POINT_INFO> points;
};

// One stream of a lens.
enum PU_STREAM_CONTROL_TYPE : std::int32_t {
    PU_STREAM_CBR = 0,  // constant bit rate
    PU_STREAM_VBR = 1,  // variable bit rate, uiBitRate at most
};
struct PU_STREAM_ATTRIBUTE {
    CONF_ITEM_MASK_STRU stMask{};  // VIDEO_COMPRESSION_* and VIDEO_MAIN_STREAM_*, or VIDEO_SUB_STREAM_*
    std::int32_t nStreamType = 0;  // STREAM_TYPE_REAL_MAIN, _SUB1 or _SUB2
    bool bEnable = true;
    std::uint32_t uiVideoFormat = VIDEO_DEC_H264;  // a ZVS_VIDEO_DEC_TYPE
    std::string strProfile;                        // such as "baseline", "main", "high"; at most 31
    std::string strLevel;                          // such as "4.1"; at most 7
    std::uint32_t uiWidth = 0;                     // pixels, 16 to 16384
    std::uint32_t uiHeight = 0;
    double dFrameRate = 25;               // frames a second, 0.1 to 240
    std::uint32_t uiIFrameInterval = 50;  // frames between two key frames, 1 to 1000
    PU_STREAM_CONTROL_TYPE eControlType = PU_STREAM_VBR;
    std::uint32_t uiBitRate = 4096;  // kbit/s, 8 to 200000
    std::uint32_t uiQuality = 60;    // 1 worst to 100 best
};
struct PU_CAMERA_STREAM_CONFIG {
    std::vector<PU_STREAM_ATTRIBUTE> streams;
};

// What a lens could send in a stream.
struct PU_RESOLUTION {
    std::uint32_t uiWidth = 0;  // pixels
    std::uint32_t uiHeight = 0;
};
struct VIDEO_ENCODE_OPTION {
    std::int32_t nStreamType = 0;
    std::uint32_t uiVideoFormat = VIDEO_DEC_H264;  // a ZVS_VIDEO_DEC_TYPE
    std::vector<std::string> profiles;
    std::vector<PU_RESOLUTION> resolutions;
    double dFrameRateMin = 1;  // frames a second
    double dFrameRateMax = 25;
    std::uint32_t uiBitRateMin = 0;  // kbit/s
    std::uint32_t uiBitRateMax = 0;
    std::uint32_t uiIFrameIntervalMin = 1;  // frames
    std::uint32_t uiIFrameIntervalMax = 0;
};
struct VIDEO_ENCODE_OPTIONS {
    std::vector<VIDEO_ENCODE_OPTION> options;
};

// The sound of a lens.
struct GVX_PU_AUDIO_INFO {
    CONF_ITEM_MASK_STRU stMask{};  // AUDIO_*
    bool bEnable = true;
    std::int32_t nInputType = 0;                           // 0 microphone, 1 line
    std::uint32_t uiAudioFormat = GVX_AUDIO_FORMAT_G711A;  // an AUDIO_FORMAT_TYPE
    std::uint32_t uiSamplingRate = 8000;                   // Hz, 8000 to 96000
    std::uint32_t uiSampleBits = 16;                       // 8 to 32
    std::uint32_t uiChannels = 1;                          // 1 or 2
    std::uint32_t uiGain = 50;                             // 0 to 100
    std::uint32_t uiVolume = 50;                           // of the loudspeaker, 0 to 100
    std::uint32_t uiPitch = 50;                            // 0 to 100
    std::vector<std::uint32_t> supportedFormats;           // of an answer, AUDIO_FORMAT_TYPE values
};

// The picture as such: each 0 to 100, 50 is neutral.
struct PU_IMAGE_PARAM_CONFIG {
    CONF_ITEM_MASK_STRU stMask{};  // VIDEO_ATTRIBUT_*
    std::uint32_t uiBrightness = 50;
    std::uint32_t uiContrast = 50;
    std::uint32_t uiHue = 50;
    std::uint32_t uiSaturation = 50;
    std::uint32_t uiSharpness = 50;
};

// What the optics and the sensor do.
enum PU_AUTO_MODE : std::int32_t {
    PU_MODE_AUTO = 0,
    PU_MODE_MANUAL = 1,
    PU_MODE_OFF = 2,
};
enum PU_DAY_NIGHT_MODE : std::int32_t {
    PU_DAY_NIGHT_AUTO = 0,
    PU_DAY_NIGHT_DAY = 1,
    PU_DAY_NIGHT_NIGHT = 2,
};
struct PU_EXTENDED_IMAGE_PARAM_CONFIG {
    PU_AUTO_MODE eExposureMode = PU_MODE_AUTO;
    std::uint32_t uiExposureTime = 10000;  // microseconds, 1 to 1000000; for PU_MODE_MANUAL
    std::uint32_t uiGain = 50;             // 0 to 100; for PU_MODE_MANUAL
    std::uint32_t uiIris = 50;             // 0 closed to 100 open; for PU_MODE_MANUAL
    PU_AUTO_MODE eWhiteBalanceMode = PU_MODE_AUTO;
    std::uint32_t uiRedGain = 50;  // 0 to 100; for PU_MODE_MANUAL
    std::uint32_t uiBlueGain = 50;
    PU_DAY_NIGHT_MODE eDayNightMode = PU_DAY_NIGHT_AUTO;
    bool bWideDynamicRange = false;
    std::uint32_t uiWideDynamicLevel = 50;  // 0 to 100
    bool bBacklightCompensation = false;
    bool bDefog = false;
    std::uint32_t uiNoiseReduction = 50;  // 0 to 100
    std::int32_t nMirror = 0;             // 0 none, 1 left to right, 2 top to bottom, 3 both
    std::int32_t nPowerFrequency = 50;    // Hz: 0, 50 or 60
};

// Words in the picture.
struct PU_OSD_TEXT {
    std::uint32_t uiIndex = 0;  // from 0
    bool bEnable = true;
    std::string strText;    // at most 255
    std::uint32_t uiX = 0;  // upper left corner, 0 to 10000
    std::uint32_t uiY = 0;
};
struct PU_OSD_CONF_STRU {
    bool bTimeEnable = true;
    std::int32_t nTimeFormat = 0;  // 0 "YYYY-MM-DD hh:mm:ss", 1 "MM-DD-YYYY hh:mm:ss", 2 "DD-MM-YYYY hh:mm:ss"
    std::uint32_t uiTimeX = 0;     // 0 to 10000
    std::uint32_t uiTimeY = 0;
    std::uint32_t uiFontSize = 32;         // pixels, 8 to 128
    std::uint32_t uiFontColor = 0xFFFFFF;  // 0xRRGGBB
    std::vector<PU_OSD_TEXT> texts;
};

// Masks that hide a part of the picture. The areas go beside the record.
struct PU_SET_VIDEO_MASK_STRU {
    bool bEnable = false;
    std::uint32_t uiColor = 0;  // 0xRRGGBB
};
struct PU_GET_VIDEO_MASK_STRU {
    bool bEnable = false;
    std::uint32_t uiColor = 0;
    std::uint32_t uiMaxAreas = 0;  // how many areas the lens can hide
};

// How the picture of a fisheye is corrected.
struct PU_Fec_CONF_INFO {
    bool bEnable = false;
    std::int32_t nInstallMode = 0;  // 0 ceiling, 1 wall, 2 desk
    std::int32_t nDisplayMode = 0;  // 0 the circle, 1 panorama, 2 panorama of 180 degrees, 3 four pictures
};

// What a lens on a map sees: the sector in which it looks.
struct VisualAreaInfo {
    double dLongitude = 0;  // degrees, east positive, -180 to 180
    double dLatitude = 0;   // degrees, north positive, -90 to 90
    double dHeight = 0;     // metres above the ground
    double dAzimuth = 0;    // degrees from north, clockwise, 0 to 360
    double dTilt = 0;       // degrees, down positive, -90 to 90
    double dViewAngle = 0;  // degrees from side to side, 0 to 360
    double dDistance = 0;   // metres that can be seen, 0 to 100000
};
