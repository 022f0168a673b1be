#include "SimSelfDescribing.h"

#include "SimMemory.h"
#include "link/SorvikProtocol.h"

#include <QtEndian>

namespace {

namespace P = SorvikProtocol;

constexpr int kSaElements = 320;

// splitmix64's finaliser: every input bit moves about half of the output bits.
quint64 mix(int controller, int area, int element)
{
    quint64 z = (quint64(quint32(controller)) << 40) ^ (quint64(quint32(area)) << 32) ^ quint32(element);
    z += 0x9E3779B97F4A7C15ULL;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

QByteArray littleEndian(quint32 value, int width)
{
    uchar bytes[4];
    qToLittleEndian(value, bytes);
    return QByteArray(reinterpret_cast<const char *>(bytes), width);
}

// The bytes of one element, which starts at byte address (element-1)*width.
QByteArray element(int controller, int area, int index, int *width)
{
    switch (P::groupOf(area)) {
    case P::AreaGroup::Bit: *width = 1; return QByteArray(1, char(SimSelfDescribing::bit(controller, area, index)));
    case P::AreaGroup::Pair: *width = 2; return littleEndian(SimSelfDescribing::pair(controller, area, index), 2);
    case P::AreaGroup::Block: {
        *width = P::kStringBlock;
        const QByteArray latin1 = SimSelfDescribing::text(controller, index).toLatin1();
        QByteArray block(P::kStringBlock, '\0');
        block[0] = char(latin1.size());
        block.replace(1, latin1.size(), latin1);
        return block;
    }
    case P::AreaGroup::Word:
    case P::AreaGroup::None: break;
    }
    *width = 4;
    return littleEndian(quint32(SimSelfDescribing::word(controller, area, index)), 4);
}

} // namespace

qint32 SimSelfDescribing::word(int controller, int area, int element)
{
    // In 64 bits, so that an id out of 0..199 wraps rather than overflows.
    return qint32(quint32(qint64(controller) * 10000000 + qint64(area) * 100000 + element));
}

quint16 SimSelfDescribing::pair(int controller, int area, int element)
{
    if (area == P::AreaCode::SA && element >= 1 && element <= kSaElements)
        return quint16(quint32(controller) * kSaElements + quint32(element));
    return quint16(1 + mix(controller, area, element) % 65535);
}

bool SimSelfDescribing::bit(int controller, int area, int element)
{
    return mix(controller, area, element) & 1;
}

QString SimSelfDescribing::text(int controller, int block)
{
    return QStringLiteral("c%1 SI%2").arg(controller).arg(block);
}

QByteArray SimSelfDescribing::bytes(int controller, int area, int byteAddress, int length)
{
    const int size = SimMemory::regionSizeOf(area);
    if (size == 0 || byteAddress < 0 || length < 0 || qint64(byteAddress) + length > size)
        return QByteArray();
    QByteArray out;
    out.reserve(length);
    int width = 1;
    element(controller, area, 1, &width); // learns the width of the area's elements
    for (int index = byteAddress / width + 1; out.size() < length; ++index) {
        const QByteArray whole = element(controller, area, index, &width);
        const int skip = out.isEmpty() ? byteAddress % width : 0;
        out.append(whole.constData() + skip, qMin(width - skip, length - int(out.size())));
    }
    return out;
}
