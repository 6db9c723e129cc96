#include "gvx_common/forms/record_forms.h"

#include <iterator>
#include <utility>

namespace gvx {
namespace {

constexpr NumberName kStreamTypes[] = {
    {STREAM_TYPE_REAL_MAIN, "main"}, {STREAM_TYPE_REAL_SUB1, "sub1"}, {STREAM_TYPE_REAL_SUB2, "sub2"}};
constexpr NumberName kVideoFormats[] = {
    {VIDEO_DEC_H264, "h264"}, {VIDEO_DEC_MJPEG, "mjpeg"}, {VIDEO_DEC_MPEG4, "mpeg4"}, {VIDEO_DEC_MPEG2, "mpeg2"},
    {VIDEO_DEC_AVS, "avs"},   {VIDEO_DEC_H265, "h265"},   {VIDEO_DEC_SVAC, "svac"}};
constexpr NumberName kAudioFormats[] = {{GVX_AUDIO_FORMAT_G711A, "g711a"},
                                        {GVX_AUDIO_FORMAT_G711U, "g711u"},
                                        {AUDIO_FORMAT_G726, "g726"},
                                        {GVX_AUDIO_FORMAT_AAC, "aac"}};
constexpr NumberName kControlTypes[] = {{PU_STREAM_CBR, "cbr"}, {PU_STREAM_VBR, "vbr"}};
constexpr NumberName kInputTypes[] = {{0, "microphone"}, {1, "line"}};
constexpr NumberName kAutoModes[] = {{PU_MODE_AUTO, "auto"}, {PU_MODE_MANUAL, "manual"}, {PU_MODE_OFF, "off"}};
constexpr NumberName kDayNightModes[] = {
    {PU_DAY_NIGHT_AUTO, "auto"}, {PU_DAY_NIGHT_DAY, "day"}, {PU_DAY_NIGHT_NIGHT, "night"}};
constexpr NumberName kMirrors[] = {{0, "none"}, {1, "horizontal"}, {2, "vertical"}, {3, "both"}};
constexpr NumberName kPowerFrequencies[] = {{0, "off"}, {50, "50hz"}, {60, "60hz"}};
constexpr NumberName kTimeFormats[] = {{0, "ymd"}, {1, "mdy"}, {2, "dmy"}};
constexpr NumberName kInstallModes[] = {{0, "ceiling"}, {1, "wall"}, {2, "desk"}};
constexpr NumberName kDisplayModes[] = {{0, "circle"}, {1, "panorama"}, {2, "panorama-180"}, {3, "four"}};

struct StreamItem {
    _DEVICE_CONFIG_INDEX main;
    _DEVICE_CONFIG_INDEX sub;
};
constexpr StreamItem kStreamItems[] = {
    {VIDEO_COMPRESSION_DATA_FORMAT_INDEX, VIDEO_SUB_STREAM_VIDEO_FORMAT_INDEX},
    {VIDEO_STREAM_CONTROL_TYPE_INDEX, VIDEO_SUB_STREAM_CONTROL_TYPE_INDEX},
    {VIDEO_COMPRESSION_FRAME_RATE_INDEX, VIDEO_SUB_STREAM_FRAME_RATE_INDEX},
    {VIDEO_COMPRESSION_IFRAME_INTERVAL_INDEX, VIDEO_SUB_STREAM_IFRAME_INTERVAL_INDEX},
    {VIDEO_COMPRESSION_BIT_RATE_INDEX, VIDEO_SUB_STREAM_BIT_RATE_INDEX},
    {VIDEO_COMPRESSION_QUALITY_INDEX, VIDEO_SUB_STREAM_QUALITY_INDEX},
    {VIDEO_MAIN_STREAM_VIDEO_PROFILE_INDEX, VIDEO_SUB_STREAM_VIDEO_PROFILE_INDEX},
    {VIDEO_MAIN_STREAM_VIDEO_LEVEL_INDEX, VIDEO_SUB_STREAM_VIDEO_LEVEL_INDEX},
    {VIDEO_MAIN_STREAM_VIDEO_WIDTH_INDEX, VIDEO_SUB_STREAM_VIDEO_WIDTH_INDEX},
    {VIDEO_MAIN_STREAM_VIDEO_HEIGHT_INDEX, VIDEO_SUB_STREAM_VIDEO_HEIGHT_INDEX},
};

// The same members are other items in a sub stream.
void NameItemsOfSubStream(void* record) {
    auto& stream = *static_cast<PU_STREAM_ATTRIBUTE*>(record);
    if (stream.nStreamType == STREAM_TYPE_REAL_MAIN) {
        return;
    }
    for (const StreamItem& item : kStreamItems) {
        std::swap(stream.stMask.Mask[item.main], stream.stMask.Mask[item.sub]);
    }
}

}  // namespace

template <>
const RecordForm& FormOf<PU_POINT_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_POINT_INFO::uiX>("X", "ten-thousandths of the picture's width").Range(0, 10000).Required(),
        Field<&PU_POINT_INFO::uiY>("Y", "ten-thousandths of its height").Range(0, 10000).Required(),
    };
    static constexpr RecordForm kForm{"PU_POINT_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<_AREA_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&_AREA_INFO::uiAreaID>("AreaID", "from 0").Range(0, 255),
        Field<&_AREA_INFO::uiX>("X", "left side, ten-thousandths of the picture").Range(0, 10000),
        Field<&_AREA_INFO::uiY>("Y", "upper side").Range(0, 10000),
        Field<&_AREA_INFO::uiWidth>("Width", "ten-thousandths").Range(0, 10000),
        Field<&_AREA_INFO::uiHeight>("Height", "ten-thousandths").Range(0, 10000),
    };
    static constexpr RecordForm kForm{"_AREA_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<_AREA_INFO_EX>() {
    static constexpr FieldForm kFields[] = {
        Field<&_AREA_INFO_EX::uiAreaID>("AreaID", "from 0").Range(0, 255),
        Field<&_AREA_INFO_EX::points>("Points", "the four corners, in order around it").Required(),
    };
    static constexpr RecordForm kForm{"_AREA_INFO_EX", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_STREAM_ATTRIBUTE>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_STREAM_ATTRIBUTE::nStreamType>("StreamType", "which stream").Names(kStreamTypes),
        Field<&PU_STREAM_ATTRIBUTE::bEnable>("Enable", "the stream can be asked for"),
        Field<&PU_STREAM_ATTRIBUTE::uiVideoFormat>("VideoFormat", "codec")
            .Names(kVideoFormats)
            .Item(VIDEO_COMPRESSION_DATA_FORMAT_INDEX),
        Field<&PU_STREAM_ATTRIBUTE::strProfile>("Profile", "such as baseline, main, high")
            .Range(0, 31)
            .Item(VIDEO_MAIN_STREAM_VIDEO_PROFILE_INDEX),
        Field<&PU_STREAM_ATTRIBUTE::strLevel>("Level", "such as 4.1")
            .Range(0, 7)
            .Item(VIDEO_MAIN_STREAM_VIDEO_LEVEL_INDEX),
        Field<&PU_STREAM_ATTRIBUTE::uiWidth>("Width", "pixels")
            .Range(16, 16384)
            .Item(VIDEO_MAIN_STREAM_VIDEO_WIDTH_INDEX),
        Field<&PU_STREAM_ATTRIBUTE::uiHeight>("Height", "pixels")
            .Range(16, 16384)
            .Item(VIDEO_MAIN_STREAM_VIDEO_HEIGHT_INDEX),
        Field<&PU_STREAM_ATTRIBUTE::dFrameRate>("FrameRate", "frames a second")
            .Real(0.1, 240)
            .Item(VIDEO_COMPRESSION_FRAME_RATE_INDEX),
        Field<&PU_STREAM_ATTRIBUTE::uiIFrameInterval>("IFrameInterval", "frames from one key frame to the next")
            .Range(1, 1000)
            .Item(VIDEO_COMPRESSION_IFRAME_INTERVAL_INDEX),
        Field<&PU_STREAM_ATTRIBUTE::eControlType>("ControlType", "constant or variable bit rate")
            .Names(kControlTypes)
            .Item(VIDEO_STREAM_CONTROL_TYPE_INDEX),
        Field<&PU_STREAM_ATTRIBUTE::uiBitRate>("BitRate", "kbit/s")
            .Range(8, 200000)
            .Item(VIDEO_COMPRESSION_BIT_RATE_INDEX),
        Field<&PU_STREAM_ATTRIBUTE::uiQuality>("Quality", "1 worst, 100 best")
            .Range(1, 100)
            .Item(VIDEO_COMPRESSION_QUALITY_INDEX),
    };
    static constexpr RecordForm kForm{"PU_STREAM_ATTRIBUTE", kFields, std::size(kFields),
                                      &MaskAt<&PU_STREAM_ATTRIBUTE::stMask>, &NameItemsOfSubStream};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_CAMERA_STREAM_CONFIG>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_CAMERA_STREAM_CONFIG::streams>("Streams", "those that are to change").Required(),
    };
    static constexpr RecordForm kForm{"PU_CAMERA_STREAM_CONFIG", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_RESOLUTION>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_RESOLUTION::uiWidth>("Width", "pixels"),
        Field<&PU_RESOLUTION::uiHeight>("Height", "pixels"),
    };
    static constexpr RecordForm kForm{"PU_RESOLUTION", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<VIDEO_ENCODE_OPTION>() {
    static constexpr FieldForm kFields[] = {
        Field<&VIDEO_ENCODE_OPTION::nStreamType>("StreamType", "which stream").Names(kStreamTypes),
        Field<&VIDEO_ENCODE_OPTION::uiVideoFormat>("VideoFormat", "codec").Names(kVideoFormats),
        Field<&VIDEO_ENCODE_OPTION::profiles>("Profiles", "of the codec"),
        Field<&VIDEO_ENCODE_OPTION::resolutions>("Resolutions", "sizes of the picture"),
        Field<&VIDEO_ENCODE_OPTION::dFrameRateMin>("FrameRateMin", "frames a second"),
        Field<&VIDEO_ENCODE_OPTION::dFrameRateMax>("FrameRateMax", "frames a second"),
        Field<&VIDEO_ENCODE_OPTION::uiBitRateMin>("BitRateMin", "kbit/s"),
        Field<&VIDEO_ENCODE_OPTION::uiBitRateMax>("BitRateMax", "kbit/s"),
        Field<&VIDEO_ENCODE_OPTION::uiIFrameIntervalMin>("IFrameIntervalMin", "frames"),
        Field<&VIDEO_ENCODE_OPTION::uiIFrameIntervalMax>("IFrameIntervalMax", "frames"),
    };
    static constexpr RecordForm kForm{"VIDEO_ENCODE_OPTION", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<VIDEO_ENCODE_OPTIONS>() {
    static constexpr FieldForm kFields[] = {
        Field<&VIDEO_ENCODE_OPTIONS::options>("Options", "one for each stream and codec"),
    };
    static constexpr RecordForm kForm{"VIDEO_ENCODE_OPTIONS", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<GVX_PU_AUDIO_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&GVX_PU_AUDIO_INFO::bEnable>("Enable", "the lens sends sound"),
        Field<&GVX_PU_AUDIO_INFO::nInputType>("InputType", "where the sound comes from")
            .Names(kInputTypes)
            .Item(AUDIO_COMPRESSION_INPUT_TYPE_INDEX),
        Field<&GVX_PU_AUDIO_INFO::uiAudioFormat>("AudioFormat", "codec")
            .Names(kAudioFormats)
            .Item(AUDIO_COMPRESSION_DATA_FORMAT_INDEX),
        Field<&GVX_PU_AUDIO_INFO::uiSamplingRate>("SamplingRate", "Hz")
            .Range(8000, 96000)
            .Item(AUDIO_COMPRESSION_SAMPLING_RATE_INDEX),
        Field<&GVX_PU_AUDIO_INFO::uiSampleBits>("SampleBits", "of a sample")
            .Range(8, 32)
            .Item(AUDIO_COMPRESSION_SAMPLE_BITS_INDEX),
        Field<&GVX_PU_AUDIO_INFO::uiChannels>("Channels", "1 mono, 2 stereo")
            .Range(1, 2)
            .Item(AUDIO_COMPRESSION_CHANNEL_INDEX),
        Field<&GVX_PU_AUDIO_INFO::uiGain>("Gain", "of the input").Range(0, 100).Item(AUDIO_COMPRESSION_GAIN_INDEX),
        Field<&GVX_PU_AUDIO_INFO::uiVolume>("Volume", "of the loudspeaker")
            .Range(0, 100)
            .Item(AUDIO_ATTRIBUT_VOLUME_INDEX),
        Field<&GVX_PU_AUDIO_INFO::uiPitch>("Pitch", "of the loudspeaker")
            .Range(0, 100)
            .Item(AUDIO_ATTRIBUT_PITCH_INDEX),
        Field<&GVX_PU_AUDIO_INFO::supportedFormats>("SupportedFormats", "codecs that the lens knows")
            .Names(kAudioFormats)
            .AnswerOnly(),
    };
    static constexpr RecordForm kForm{"GVX_PU_AUDIO_INFO", kFields, std::size(kFields),
                                      &MaskAt<&GVX_PU_AUDIO_INFO::stMask>};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_IMAGE_PARAM_CONFIG>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_IMAGE_PARAM_CONFIG::uiBrightness>("Brightness", "50 is neutral")
            .Range(0, 100)
            .Item(VIDEO_ATTRIBUT_BRIGHTNESS_INDEX),
        Field<&PU_IMAGE_PARAM_CONFIG::uiContrast>("Contrast", "50 is neutral")
            .Range(0, 100)
            .Item(VIDEO_ATTRIBUT_CONTRAST_INDEX),
        Field<&PU_IMAGE_PARAM_CONFIG::uiHue>("Hue", "50 is neutral").Range(0, 100).Item(VIDEO_ATTRIBUT_HUE_INDEX),
        Field<&PU_IMAGE_PARAM_CONFIG::uiSaturation>("Saturation", "50 is neutral")
            .Range(0, 100)
            .Item(VIDEO_ATTRIBUT_SATURATION_INDEX),
        Field<&PU_IMAGE_PARAM_CONFIG::uiSharpness>("Sharpness", "50 is neutral").Range(0, 100),
    };
    static constexpr RecordForm kForm{"PU_IMAGE_PARAM_CONFIG", kFields, std::size(kFields),
                                      &MaskAt<&PU_IMAGE_PARAM_CONFIG::stMask>};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_EXTENDED_IMAGE_PARAM_CONFIG>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::eExposureMode>("ExposureMode", "who sets the exposure")
            .Names(kAutoModes),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::uiExposureTime>("ExposureTime", "microseconds, for manual exposure")
            .Range(1, 1000000),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::uiGain>("Gain", "for manual exposure").Range(0, 100),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::uiIris>("Iris", "0 closed, 100 open, for manual exposure").Range(0, 100),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::eWhiteBalanceMode>("WhiteBalanceMode", "who sets the white balance")
            .Names(kAutoModes),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::uiRedGain>("RedGain", "for manual white balance").Range(0, 100),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::uiBlueGain>("BlueGain", "for manual white balance").Range(0, 100),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::eDayNightMode>("DayNightMode", "colour by day, none at night")
            .Names(kDayNightModes),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::bWideDynamicRange>("WideDynamicRange",
                                                                  "bright and dark parts are both seen"),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::uiWideDynamicLevel>("WideDynamicLevel", "how strongly").Range(0, 100),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::bBacklightCompensation>("BacklightCompensation",
                                                                       "what stands before light is seen"),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::bDefog>("Defog", "fog is taken out"),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::uiNoiseReduction>("NoiseReduction", "how strongly").Range(0, 100),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::nMirror>("Mirror", "which sides change").Names(kMirrors),
        Field<&PU_EXTENDED_IMAGE_PARAM_CONFIG::nPowerFrequency>("PowerFrequency", "of the lamps")
            .Names(kPowerFrequencies),
    };
    static constexpr RecordForm kForm{"PU_EXTENDED_IMAGE_PARAM_CONFIG", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_OSD_TEXT>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_OSD_TEXT::uiIndex>("Index", "from 0").Range(0, 255),
        Field<&PU_OSD_TEXT::bEnable>("Enable", "the words are shown"),
        Field<&PU_OSD_TEXT::strText>("Text", "the words").Range(0, 255),
        Field<&PU_OSD_TEXT::uiX>("X", "left side, ten-thousandths of the picture").Range(0, 10000),
        Field<&PU_OSD_TEXT::uiY>("Y", "upper side").Range(0, 10000),
    };
    static constexpr RecordForm kForm{"PU_OSD_TEXT", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_OSD_CONF_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_OSD_CONF_STRU::bTimeEnable>("TimeEnable", "the time is shown"),
        Field<&PU_OSD_CONF_STRU::nTimeFormat>("TimeFormat", "order of year, month and day").Names(kTimeFormats),
        Field<&PU_OSD_CONF_STRU::uiTimeX>("TimeX", "left side, ten-thousandths of the picture").Range(0, 10000),
        Field<&PU_OSD_CONF_STRU::uiTimeY>("TimeY", "upper side").Range(0, 10000),
        Field<&PU_OSD_CONF_STRU::uiFontSize>("FontSize", "pixels").Range(8, 128),
        Field<&PU_OSD_CONF_STRU::uiFontColor>("FontColor", "red times 65536, green times 256, blue").Range(0, 16777215),
        Field<&PU_OSD_CONF_STRU::texts>("Texts", "further words"),
    };
    static constexpr RecordForm kForm{"PU_OSD_CONF_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_SET_VIDEO_MASK_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_SET_VIDEO_MASK_STRU::bEnable>("Enable", "the areas are hidden").Required(),
        Field<&PU_SET_VIDEO_MASK_STRU::uiColor>("Color", "red times 65536, green times 256, blue").Range(0, 16777215),
    };
    static constexpr RecordForm kForm{"PU_SET_VIDEO_MASK_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_GET_VIDEO_MASK_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_GET_VIDEO_MASK_STRU::bEnable>("Enable", "the areas are hidden"),
        Field<&PU_GET_VIDEO_MASK_STRU::uiColor>("Color", "red times 65536, green times 256, blue").Range(0, 16777215),
        Field<&PU_GET_VIDEO_MASK_STRU::uiMaxAreas>("MaxAreas", "how many areas the lens can hide"),
    };
    static constexpr RecordForm kForm{"PU_GET_VIDEO_MASK_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MaskArguments>() {
    static constexpr FieldForm kFields[] = {
        Part<&MaskArguments::mask>(),
        Field<&MaskArguments::areas>("Areas", "rectangles"),
    };
    static constexpr RecordForm kForm{"MaskArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MaskAnswer>() {
    static constexpr FieldForm kFields[] = {
        Part<&MaskAnswer::mask>(),
        Field<&MaskAnswer::areas>("Areas", "rectangles"),
    };
    static constexpr RecordForm kForm{"MaskAnswer", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MaskExArguments>() {
    static constexpr FieldForm kFields[] = {
        Part<&MaskExArguments::mask>(),
        Field<&MaskExArguments::areas>("Areas", "quadrangles"),
    };
    static constexpr RecordForm kForm{"MaskExArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MaskExAnswer>() {
    static constexpr FieldForm kFields[] = {
        Part<&MaskExAnswer::mask>(),
        Field<&MaskExAnswer::areas>("Areas", "quadrangles"),
    };
    static constexpr RecordForm kForm{"MaskExAnswer", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_Fec_CONF_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_Fec_CONF_INFO::bEnable>("Enable", "the picture is corrected").Required(),
        Field<&PU_Fec_CONF_INFO::nInstallMode>("InstallMode", "where the camera hangs").Names(kInstallModes),
        Field<&PU_Fec_CONF_INFO::nDisplayMode>("DisplayMode", "what is shown").Names(kDisplayModes),
    };
    static constexpr RecordForm kForm{"PU_Fec_CONF_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<VisualAreaInfo>() {
    static constexpr FieldForm kFields[] = {
        Field<&VisualAreaInfo::dLongitude>("Longitude", "degrees, east positive").Real(-180, 180),
        Field<&VisualAreaInfo::dLatitude>("Latitude", "degrees, north positive").Real(-90, 90),
        Field<&VisualAreaInfo::dHeight>("Height", "metres above the ground").Real(-1000, 10000),
        Field<&VisualAreaInfo::dAzimuth>("Azimuth", "degrees from north, clockwise").Real(0, 360),
        Field<&VisualAreaInfo::dTilt>("Tilt", "degrees, down positive").Real(-90, 90),
        Field<&VisualAreaInfo::dViewAngle>("ViewAngle", "degrees from side to side").Real(0, 360),
        Field<&VisualAreaInfo::dDistance>("Distance", "metres that can be seen").Real(0, 100000),
    };
    static constexpr RecordForm kForm{"VisualAreaInfo", kFields, std::size(kFields)};
    return kForm;
}

}  // namespace gvx
