#pragma once

#include <QByteArray>

#include <array>

// The controller's memory: one zero-filled region per area code that has a
// prefix, addressed byte by byte as the frames address it. A bit area holds
// one byte per point, so its region is eight times the area's size.
class SimMemory
{
public:
    SimMemory();

    // Bytes of the region of `area`; 0 for a code without a region.
    static int regionSizeOf(int area);
    int regionSize(int area) const;
    // Whether [address, address + length) lies inside the region of `area`.
    bool contains(int area, qint64 address, qint64 length) const;

    // Both refuse (empty result, false) what does not lie inside a region.
    QByteArray read(int area, int address, int length) const;
    bool write(int area, int address, const char *data, int size);
    // Appends [address, address + length) to `out`; the range must lie inside.
    void appendTo(QByteArray *out, int area, int address, int length) const;

    void clear();

private:
    static constexpr int kCodeCount = 32;
    std::array<QByteArray, kCodeCount> m_regions;
};
