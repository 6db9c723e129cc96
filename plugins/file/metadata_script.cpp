#include "file/metadata_script.h"

#include "base/json_io.h"
#include "gvx_common/codec/input_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <set>

namespace gvxfile {
namespace {

constexpr double kMaxSeconds = 7 * 24 * 3600;
constexpr double kShortestRepeat = 0.01;
constexpr double kMicroseconds = 1000000;

struct KindName {
    const char* name;
    MetadataKind kind;
    std::set<std::string> members;  // beside those that every message may have
};

const KindName* FindKind(const std::string& name) {
    static const std::set<std::string> vehicle = {
        "plate",         "plate_type",      "plate_color",     "vehicle_type",  "vehicle_color",
        "lane",          "speed",           "object_id",       "plate_pos",     "plate_pos_com",
        "plate_pos_abs", "vehicle_pos_com", "vehicle_pos_abs", "plate_picture", "panorama"};
    static const KindName kinds[] = {{"plate", MetadataKind::Plate, vehicle},
                                     {"vehicle", MetadataKind::Vehicle, vehicle},
                                     {"face", MetadataKind::Face, {"panorama", "faces"}},
                                     {"heartbeat", MetadataKind::Heartbeat, {}}};
    const auto* const found =
        std::find_if(std::begin(kinds), std::end(kinds), [&name](const KindName& row) { return name == row.name; });
    return found == std::end(kinds) ? nullptr : found;
}

// Reads one script. Each step gives false with a sentence in m_error.
class Reader {
public:
    explicit Reader(const std::string& path) : m_path(path) {
        const std::size_t slash = path.find_last_of('/');
        m_folder = slash == std::string::npos ? "." : path.substr(0, slash);
    }

    bool Read(MetadataScript& script);
    const std::string& Error() const { return m_error; }

private:
    bool Fail(const std::string& what);
    bool ReadMessages(const Json::Value& list, MetadataScript& script);
    bool ReadMessage(const Json::Value& object, MetadataMessage& message);
    bool ReadTimes(const Json::Value& object, MetadataMessage& message);
    bool ReadForm(const Json::Value& object, MetadataMessage& message);
    bool ReadPlate(const Json::Value& object, MetadataMessage& message);
    bool ReadPlateText(const Json::Value& object, MetadataMessage& message);
    bool ReadPlateRects(const Json::Value& object, ITSPlatesTrim& plates);
    bool ReadFaces(const Json::Value& object, MetadataMessage& message);
    bool ReadFace(const Json::Value& object, FaceRect& face, std::vector<Picture>& pictures);
    bool ReadText(const Json::Value& object, const char* name, std::string& text);
    bool ReadPicture(const Json::Value& object, const char* name, Picture& picture);
    bool LoadPicture(const std::string& path, Picture& picture);
    bool KnowsMembers(const Json::Value& object, const std::set<std::string>& members);
    bool ReadSeconds(const Json::Value& object, const char* name, double least, std::int64_t& microseconds);
    template <typename Number>
    bool ReadNumber(const Json::Value& object, const char* name, long long least, long long most, Number& value);
    bool ReadByte(const Json::Value& object, const char* name, char& value);
    bool ReadRect(const Json::Value& object, const char* name, long long least, long long most, long long (&rect)[4]);

    const std::string m_path;
    std::string m_folder;
    std::string m_where;  // the message in hand
    std::string m_error;
    std::map<std::string, Picture> m_pictures;  // by path: one that is named twice is held once
    std::size_t m_pictureBytes = 0;
};

bool Reader::Fail(const std::string& what) {
    m_error = "Metadata script " + m_path + m_where + ": " + what + ".";
    return false;
}

bool Reader::Read(MetadataScript& script) {
    std::string text;
    std::string reason;
    if (!gvx::ReadWholeFile(m_path, gvx::kMaxJsonBytes, text, m_error)) {
        return false;
    }
    Json::Value root;
    if (!gvx::ParseJson(text.data(), text.size(), root, &reason)) {
        return Fail("it is not valid JSON: " + reason);
    }
    if (!root.isObject() || !root["messages"].isArray()) {
        return Fail("it holds no list \"messages\"");
    }
    return KnowsMembers(root, {"messages"}) && ReadMessages(root["messages"], script);
}

bool Reader::ReadMessages(const Json::Value& list, MetadataScript& script) {
    if (list.size() > MetadataScript::kMaxMessages) {
        return Fail("it has " + std::to_string(list.size()) + " messages, " +
                    std::to_string(MetadataScript::kMaxMessages) + " are the most");
    }
    for (const Json::Value& object : list) {
        m_where = ", message " + std::to_string(script.messages.size() + 1);
        MetadataMessage message;
        if (!object.isObject()) {
            return Fail("it is not an object");
        }
        if (!ReadMessage(object, message)) {
            return false;
        }
        script.messages.push_back(std::move(message));
    }
    return true;
}

bool Reader::ReadMessage(const Json::Value& object, MetadataMessage& message) {
    const std::string name = gvx::JsonText(object, "kind");
    const KindName* const kind = FindKind(name);
    if (kind == nullptr) {
        return Fail("kind '" + name + "' is none of plate, vehicle, face and heartbeat");
    }
    message.kind = kind->kind;
    std::set<std::string> members = kind->members;
    members.insert({"time", "repeat", "kind", "form"});
    if (!KnowsMembers(object, members) || !ReadTimes(object, message) || !ReadForm(object, message)) {
        return false;
    }
    switch (message.kind) {
        case MetadataKind::Heartbeat:
            return true;
        case MetadataKind::Face:
            return ReadFaces(object, message);
        default:
            return ReadPlate(object, message);
    }
}

bool Reader::ReadTimes(const Json::Value& object, MetadataMessage& message) {
    return ReadSeconds(object, "time", 0, message.timeMicroseconds) &&
           ReadSeconds(object, "repeat", kShortestRepeat, message.repeatMicroseconds);
}

bool Reader::ReadForm(const Json::Value& object, MetadataMessage& message) {
    std::string form = "plain";
    if (!ReadText(object, "form", form)) {
        return false;
    }
    message.ex = form == "ex";
    return message.ex || form == "plain" || Fail("form '" + form + "' is neither plain nor ex");
}

bool Reader::ReadPlate(const Json::Value& object, MetadataMessage& message) {
    ITSPlatesTrim& plates = message.plates;
    TV_ITS_VEHICLE_INFO_TRIM& info = plates.vehicleInfo;
    std::int32_t speed = 0;
    std::uint64_t id = 0;
    plates.iPicCnt = GVX_ITS_PIC_NUM;
    message.pictures.resize(GVX_ITS_PIC_NUM);
    const bool read = ReadPlateText(object, message) && ReadByte(object, "lane", info.cLaneChannel) &&
                      ReadByte(object, "plate_type", info.stPlateInfo.cPlateType) &&
                      ReadByte(object, "plate_color", info.stPlateInfo.cPlateColor) &&
                      ReadByte(object, "vehicle_type", info.stVehicleInfo.cVehicleType) &&
                      ReadByte(object, "vehicle_color", info.stVehicleInfo.cVehicleColor) &&
                      ReadNumber(object, "speed", 0, std::numeric_limits<std::int32_t>::max(), speed) &&
                      ReadNumber(object, "object_id", 0, std::numeric_limits<long long>::max(), id) &&
                      ReadPlateRects(object, plates) &&
                      ReadPicture(object, "plate_picture", message.pictures[ITS_PIC_PLATE]) &&
                      ReadPicture(object, "panorama", message.pictures[ITS_PIC_PANORAMA]);
    info.stVehicleInfo.iVehicleSpeed = speed;
    plates.astPicInfos[ITS_PIC_PLATE].ulPicFileID = id;
    return read;
}

bool Reader::ReadPlateText(const Json::Value& object, MetadataMessage& message) {
    auto& room = message.plates.vehicleInfo.stPlateInfo.szPlateNumber;
    std::string text;
    if (!ReadText(object, "plate", text)) {
        return false;
    }
    if (text.empty() && message.kind == MetadataKind::Plate) {
        return Fail("there is no text \"plate\"");
    }
    if (text.size() >= sizeof(room)) {
        return Fail("plate has " + std::to_string(text.size()) + " bytes, " + std::to_string(sizeof(room) - 1) +
                    " are the most");
    }
    std::memcpy(room, text.data(), text.size());
    return true;
}

bool Reader::ReadPlateRects(const Json::Value& object, ITSPlatesTrim& plates) {
    const struct {
        const char* name;
        stObjectRect& rect;
    } rows[] = {{"plate_pos", plates.stPlatePos},
                {"plate_pos_com", plates.platePosCom},
                {"plate_pos_abs", plates.platePosAbs},
                {"vehicle_pos_com", plates.vehiclePosCom},
                {"vehicle_pos_abs", plates.vehiclePosAbs}};
    for (const auto& row : rows) {
        long long rect[4] = {};
        if (!ReadRect(object, row.name, 0, std::numeric_limits<unsigned short>::max(), rect)) {
            return false;
        }
        row.rect.x = static_cast<unsigned short>(rect[0]);
        row.rect.y = static_cast<unsigned short>(rect[1]);
        row.rect.width = static_cast<unsigned short>(rect[2]);
        row.rect.height = static_cast<unsigned short>(rect[3]);
    }
    return true;
}

bool Reader::ReadFaces(const Json::Value& object, MetadataMessage& message) {
    const Json::Value& list = object["faces"];
    if (!list.isArray() || list.empty() || list.size() > static_cast<unsigned int>(GVX_MAX_FACES)) {
        return Fail("\"faces\" is not a list of 1 to " + std::to_string(GVX_MAX_FACES));
    }
    message.pictures.resize(1);
    if (!ReadPicture(object, "panorama", message.pictures[0])) {
        return false;
    }
    for (const Json::Value& face : list) {
        if (!face.isObject()) {
            return Fail("a face is not an object");
        }
        if (!ReadFace(face, message.faces.faces[message.faces.count], message.pictures)) {
            return false;
        }
        message.faces.count = message.faces.count + 1;
    }
    return true;
}

bool Reader::ReadFace(const Json::Value& object, FaceRect& face, std::vector<Picture>& pictures) {
    constexpr long long kLeast = std::numeric_limits<short>::min();
    constexpr long long kMost = std::numeric_limits<short>::max();
    long long rect[4] = {};
    std::uint64_t id = 0;
    short score = 0;
    short angle = 0;
    Picture picture;
    if (!KnowsMembers(object, {"id", "pos", "score", "angle", "picture"}) ||
        !ReadNumber(object, "id", 0, std::numeric_limits<long long>::max(), id) ||
        !ReadNumber(object, "score", kLeast, kMost, score) || !ReadNumber(object, "angle", kLeast, kMost, angle) ||
        !ReadRect(object, "pos", kLeast, kMost, rect) || !ReadPicture(object, "picture", picture)) {
        return false;
    }
    face.x = static_cast<short>(rect[0]);
    face.y = static_cast<short>(rect[1]);
    face.width = static_cast<short>(rect[2]);
    face.height = static_cast<short>(rect[3]);
    face.ulfaceid = id;
    face.neighbors = score;
    face.angle = angle;
    pictures.push_back(std::move(picture));
    return true;
}

bool Reader::ReadText(const Json::Value& object, const char* name, std::string& text) {
    if (!object.isMember(name)) {
        return true;
    }
    if (!object[name].isString()) {
        return Fail(std::string(name) + " is not a text");
    }
    text = object[name].asString();
    return true;
}

bool Reader::ReadPicture(const Json::Value& object, const char* name, Picture& picture) {
    if (!object.isMember(name)) {
        return true;
    }
    const std::string path = object[name].isString() ? object[name].asString() : std::string();
    if (path.empty()) {
        return Fail(std::string(name) + " is not the name of a file");
    }
    return LoadPicture(path.front() == '/' ? path : m_folder + "/" + path, picture);
}

bool Reader::LoadPicture(const std::string& path, Picture& picture) {
    Picture& held = m_pictures[path];
    if (held == nullptr) {
        std::string bytes;
        std::string reason;
        if (!gvx::ReadWholeFile(path, MetadataScript::kMaxPictureBytes, bytes, reason)) {
            reason.pop_back();
            return Fail(reason);
        }
        if (bytes.size() < 2 || bytes.compare(0, 2, "\xFF\xD8") != 0) {
            return Fail(path + " is not a JPEG file");
        }
        m_pictureBytes += bytes.size();
        if (m_pictureBytes > MetadataScript::kMaxAllPictureBytes) {
            return Fail("the pictures of a script have " + std::to_string(MetadataScript::kMaxAllPictureBytes) +
                        " bytes at most");
        }
        held = std::make_shared<const std::string>(std::move(bytes));
    }
    picture = held;
    return true;
}

// A member that is misspelt would otherwise be sent as if it were absent.
bool Reader::KnowsMembers(const Json::Value& object, const std::set<std::string>& members) {
    for (const std::string& member : object.getMemberNames()) {
        if (members.count(member) == 0) {
            return Fail("member '" + member + "' is not known");
        }
    }
    return true;
}

bool Reader::ReadSeconds(const Json::Value& object, const char* name, double least, std::int64_t& microseconds) {
    if (!object.isMember(name)) {
        return true;
    }
    const double seconds = object[name].isNumeric() ? object[name].asDouble() : -1;
    if (!(seconds >= least && seconds <= kMaxSeconds)) {
        return Fail(std::string(name) + " is not a number of seconds from " + (least > 0 ? "0.01" : "0") + " to " +
                    std::to_string(static_cast<long>(kMaxSeconds)));
    }
    microseconds = std::llround(seconds * kMicroseconds);
    return true;
}

template <typename Number>
bool Reader::ReadNumber(const Json::Value& object, const char* name, long long least, long long most, Number& value) {
    if (!object.isMember(name)) {
        return true;
    }
    if (!object[name].isInt64() || object[name].asInt64() < least || object[name].asInt64() > most) {
        return Fail(std::string(name) + " is not a whole number from " + std::to_string(least) + " to " +
                    std::to_string(most));
    }
    value = static_cast<Number>(object[name].asInt64());
    return true;
}

bool Reader::ReadByte(const Json::Value& object, const char* name, char& value) {
    return ReadNumber(object, name, 0, std::numeric_limits<unsigned char>::max(), value);
}

bool Reader::ReadRect(const Json::Value& object, const char* name, long long least, long long most,
                      long long (&rect)[4]) {
    if (!object.isMember(name)) {
        return true;
    }
    const Json::Value& list = object[name];
    bool good = list.isArray() && list.size() == 4;
    for (unsigned int i = 0; good && i < 4; ++i) {
        good = list[i].isInt64() && list[i].asInt64() >= least && list[i].asInt64() <= most;
        rect[i] = good ? list[i].asInt64() : 0;
    }
    return good || Fail(std::string(name) + " is not [x, y, width, height] of whole numbers from " +
                        std::to_string(least) + " to " + std::to_string(most));
}

}  // namespace

std::shared_ptr<const MetadataScript> ReadMetadataScript(const std::string& path, std::string& error) {
    auto script = std::make_shared<MetadataScript>();
    Reader reader(path);
    if (!reader.Read(*script)) {
        error = reader.Error();
        return nullptr;
    }
    return script;
}

}  // namespace gvxfile
