#pragma once

// Element types of a tag value. 1 to 12 travel on the one-tag path; 13 to 40
// are byte-order forms of a base element that the engine sizes and decodes
// like their base; 41 has no element at all. The type is an int underneath,
// so any number a host passes travels unchanged and is refused where it fails.
enum DataType : int {
    TYPE_NONE = 0,
    TYPE_BOOL = 1,
    TYPE_INT8 = 2,
    TYPE_UINT8 = 3,
    TYPE_INT16 = 4,
    TYPE_UINT16 = 5,
    TYPE_INT32 = 6,
    TYPE_UINT32 = 7,
    TYPE_FLOAT = 8,
    TYPE_INT64 = 9,
    TYPE_UINT64 = 10,
    TYPE_DOUBLE = 11,
    TYPE_STRING = 12,
    TYPE_INT16_F1 = 13,
    TYPE_INT16_F2 = 14,
    TYPE_UINT16_F1 = 15,
    TYPE_UINT16_F2 = 16,
    TYPE_INT32_F1 = 17,
    TYPE_INT32_F2 = 18,
    TYPE_INT32_F3 = 19,
    TYPE_INT32_F4 = 20,
    TYPE_UINT32_F1 = 21,
    TYPE_UINT32_F2 = 22,
    TYPE_UINT32_F3 = 23,
    TYPE_UINT32_F4 = 24,
    TYPE_INT64_F1 = 25,
    TYPE_INT64_F2 = 26,
    TYPE_INT64_F3 = 27,
    TYPE_INT64_F4 = 28,
    TYPE_UINT64_F1 = 29,
    TYPE_UINT64_F2 = 30,
    TYPE_UINT64_F3 = 31,
    TYPE_UINT64_F4 = 32,
    TYPE_FLOAT_F1 = 33,
    TYPE_FLOAT_F2 = 34,
    TYPE_FLOAT_F3 = 35,
    TYPE_FLOAT_F4 = 36,
    TYPE_DOUBLE_F1 = 37,
    TYPE_DOUBLE_F2 = 38,
    TYPE_DOUBLE_F3 = 39,
    TYPE_DOUBLE_F4 = 40,
    TYPE_NO_ELEMENT = 41
};

// Commands of CDriveBaseClass::DebugCmd.
enum EDebugCmdType : int {
    DEBUG_START = 0,
    DEBUG_STOP = 1,
    DEBUG_VERSION = 2,
    DEBUG_DRIVE_NAME = 3
};

// Byte size of one element of a DataType, 0 for none and string, -1 outside 0..41.
inline int dataTypeSize(int dataType)
{
    if (dataType < 0 || dataType > TYPE_NO_ELEMENT)
        return -1;
    static const signed char sizes[] = {
        0, 1, 1, 1, 2, 2, 4, 4, 4, 8, 8, 8, 0, // 0..12
        2, 2, 2, 2,                            // 13..16
        4, 4, 4, 4, 4, 4, 4, 4,                // 17..24
        8, 8, 8, 8, 8, 8, 8, 8,                // 25..32
        4, 4, 4, 4,                            // 33..36
        8, 8, 8, 8,                            // 37..40
        1                                      // 41
    };
    return sizes[dataType];
}
