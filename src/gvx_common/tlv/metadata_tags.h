#pragma once

// Types of the items of a metadata message, layer by layer. A message is one item of layer one, whose value is items of
// layer two, whose values are items of layer three.

// Read as text when the four little-endian bytes are dumped.
enum LAYER_ONE_TYPE : int {
    METADATA_TYPE = 0x4154454D,     // "META"
    HEART_BEART_TYPE = 0x54425448,  // "HTBT"
};

enum LAYER_TWO_TYPE : int {
    COMMON = 1,
    TARGET = 2,
    RULE = 3,
};

// The top byte tells the kind of the value, the low bytes are a running number.
enum LAYER_THREE_TYPE : int {
    // 0x04: 16-bit
    FACE_SCORE = 0x04000013,
    FACE_ANGLE = 0x04000014,

    // 0x06: 8-bit status
    OBJ_STATUS = 0x06000030,
    OBJ_TYPE = 0x06000031,

    // 0x07: integer
    LANE_ID = 0x07000002,
    VEHICLE_TYPE_TV = 0x07000003,
    VEHICLE_COLOR = 0x07000004,
    PLATE_TYPE = 0x07000006,
    FACE_ID = 0x07000016,
    FACE_PANOPIC_SIZE = 0x07000018,
    FACE_FACEPIC_SIZE = 0x07000019,
    OBJ_ID = 0x07000032,
    RULE_TYPE = 0x07000040,
    RULE_LINE_DIR = 0x07000041,
    PLATE_CONFIDENCE = 0x07000061,
    PLATE_COLOR = 0x07000062,
    PLATE_MOVE_DIR = 0x07000063,
    PLATE_SNAPSHOT_TYPE = 0x07000067,
    PIC_SNAPSHOT_TIME = 0x07000068,
    VEHICLE_SPEED = 0x07000075,

    // 0x08: time
    FACE_PIC_TIME = 0x08000015,

    // 0x09: 64-bit
    PTS = 0x09000001,
    GLOBAL_OBJID = 0x09000082,

    // 0x0A: bytes
    PLATE_CHAR = 0x0A000008,
    PLATE_PIC = 0x0A000009,
    PANORAMA_PIC = 0x0A00000A,
    FACE_PIC = 0x0A000012,
    FACE_PANORAMA = 0x0A000017,
    VEHICLE_PIC = 0x0A000069,

    // 0x0B: rectangle
    VEHICLE_POS = 0x0B000005,
    PLATE_POS = 0x0B000007,
    FACE_POS = 0x0B000011,
    VEHICLE_POS_ABS = 0x0B000020,
    VEHICLE_POS_COM = 0x0B000021,
    PLATE_POS_ABS = 0x0B000026,
    PLATE_POS_COM = 0x0B000027,
    OBJ_POS = 0x0B000033,
    PLATE_CHAR_POS = 0x0B000064,
    PLATE_FACE_POS = 0x0B000065,

    // 0x0C to 0x0F: speed, line, area, colour
    OBJ_SPEED = 0x0C000034,
    RULE_LINE_POS = 0x0D000042,
    RULE_AREA_POS = 0x0E000043,
    OBJ_UPHALF_COLOR = 0x0F000035,
    OBJ_DOWNHALF_COLOR = 0x0F000036,
};
