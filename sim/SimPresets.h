#pragma once

#include <QByteArray>
#include <QString>

// One parsed assignment: the bytes to store at an address of an area.
struct SimPreset {
    int area = 0;
    int address = 0;
    QByteArray bytes;
};

// Parses "TAG=TYPE:VALUE[,VALUE...]" into the bytes that the drive reads back
// as those values. TAG is an area prefix and an element number from 1; TYPE is
// bool, int8, uint8, int16, uint16, int32, uint32, float, int64, uint64, double,
// string, or int64be/uint64be (most significant byte first). Values are split
// at commas as sorvik-cli splits them: SI4=string:"a, b" is one string, ""
// inside quotes one quote. On failure gives false and a one-line reason in `*error`.
namespace SimPresets {
bool parse(const QString &assignment, SimPreset *out, QString *error);
}
