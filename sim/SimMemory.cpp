#include "SimMemory.h"

#include "link/SorvikProtocol.h"

#include <cstring>

SimMemory::SimMemory()
{
    for (const SorvikProtocol::Area &area : SorvikProtocol::kAreas)
        m_regions[area.code] = QByteArray(regionSizeOf(area.code), '\0');
}

int SimMemory::regionSizeOf(int area)
{
    // One byte per bit on the bit areas.
    const SorvikProtocol::Area *known = SorvikProtocol::areaOfCode(area);
    return !known ? 0 : SorvikProtocol::isBitArea(area) ? known->size * 8 : known->size;
}

int SimMemory::regionSize(int area) const
{
    return area >= 0 && area < kCodeCount ? m_regions[area].size() : 0;
}

bool SimMemory::contains(int area, qint64 address, qint64 length) const
{
    const int size = regionSize(area);
    return size > 0 && address >= 0 && length >= 0 && address + length <= size;
}

QByteArray SimMemory::read(int area, int address, int length) const
{
    if (!contains(area, address, length))
        return QByteArray();
    return m_regions[area].mid(address, length);
}

bool SimMemory::write(int area, int address, const char *data, int size)
{
    if (!contains(area, address, size))
        return false;
    if (size > 0)
        std::memcpy(m_regions[area].data() + address, data, static_cast<size_t>(size));
    return true;
}

void SimMemory::appendTo(QByteArray *out, int area, int address, int length) const
{
    out->append(m_regions[area].constData() + address, length);
}

void SimMemory::clear()
{
    for (QByteArray &region : m_regions)
        region.fill('\0');
}
