// The engine object: the tag patterns, the analysis of a tag text, tag sizes and the limits.

#include "CInductiveDrive.h"

#include "EngineAreas.h"

namespace {

// One to five decimal digits, leading zeros allowed, of value 1 to 32767.
const char kNumberPattern[] =
    "([1-9]|0[1-9]|00[1-9]|000[1-9]|0000[1-9]|[1-9][0-9]|0[1-9][0-9]|00[1-9][0-9]|000[1-9][0-9]|[1-9][0-9][0-9]|"
    "0[1-9][0-9][0-9]|00[1-9][0-9][0-9]|[1-9][0-9][0-9][0-9]|0[1-9][0-9][0-9][0-9]|[1-2][0-9][0-9][0-9][0-9]|"
    "3[0-1][0-9][0-9][0-9]|32[0-6][0-9][0-9]|327[0-5][0-9]|3276[0-7])";

// The text up to the first digit: the only place where an area prefix can
// stand. Empty when it is too long to be one.
QString leadingNonDigits(const QString &tag)
{
    int end = 0;
    while (end < tag.size() && end <= EngineAreas::kLongestPrefix &&
           !(tag.at(end) >= QLatin1Char('0') && tag.at(end) <= QLatin1Char('9')))
        ++end;
    return end <= EngineAreas::kLongestPrefix ? tag.left(end) : QString();
}

// The patterns are compiled once per process: a gateway holds a drive object
// per controller, and compiling them per object cost most of its memory and
// start-up. Each object takes implicitly shared copies, which every thread
// may match against.
struct TagPatterns {
    QMap<int, QRegularExpression> byCode;
    QHash<QString, int> prefixCodes;

    TagPatterns()
    {
        for (int code = 1; code <= EngineAreas::kCount; ++code) {
            const QString upper = QLatin1String(EngineAreas::name(code));
            const QString lower = upper.toLower();
            QRegularExpression pattern(QStringLiteral("^%1%2$").arg(QStringLiteral("(%1|%2)").arg(lower, upper),
                                                                    QLatin1String(kNumberPattern)));
            pattern.optimize();
            byCode.insert(code, pattern);
            prefixCodes.insert(upper, code);
            prefixCodes.insert(lower, code);
        }
    }
};

const TagPatterns &tagPatterns()
{
    static const TagPatterns patterns;
    return patterns;
}

} // namespace

CInductiveDrive::CInductiveDrive() : m_areaPatterns(tagPatterns().byCode), m_prefixCodes(tagPatterns().prefixCodes) {}

STagAddress CInductiveDrive::analyseTag(const QString &tag, int dataType) const
{
    STagAddress address;
    // The patterns are disjoint and each one is its prefix followed by a
    // digit, so the prefix names the only pattern that can match.
    const auto prefix = m_prefixCodes.constFind(leadingNonDigits(tag));
    if (prefix == m_prefixCodes.cend())
        return address;
    const auto pattern = m_areaPatterns.constFind(prefix.value());
    const QRegularExpressionMatch match = pattern.value().match(tag);
    if (!match.hasMatch())
        return address;
    address.area = pattern.key();
    address.areaText = prefix.key(); // equal to capture 1, and shared instead of copied
    address.number = 0;
    for (const QChar digit : match.capturedRef(2)) // ASCII digits only, by the pattern
        address.number = address.number * 10 + (digit.unicode() - '0');
    if (dataType != TYPE_STRING)
        address.length = dataType >= 1 && dataType <= TYPE_NO_ELEMENT ? dataTypeSize(dataType) : -1;
    return address;
}

int CInductiveDrive::tagSize(const Induction::SReadInfo &info) const
{
    return tagSize(info.tag, info.dataType);
}

int CInductiveDrive::tagSize(const Induction::SWriteInfo &info) const
{
    return tagSize(info.tag, info.dataType);
}

int CInductiveDrive::tagSize(const QString &tag, int dataType) const
{
    if (dataType < 1 || dataType > TYPE_NO_ELEMENT)
        return -1;
    if (dataType != TYPE_STRING)
        return dataTypeSize(dataType);
    static const QRegularExpression lengthSuffix(QStringLiteral("\\[(\\d+)\\]"));
    const QRegularExpressionMatch match = lengthSuffix.match(tag);
    if (match.hasMatch()) {
        bool ok = false;
        const int length = match.capturedRef(1).toInt(&ok);
        return ok ? length : -1; // a length beyond 32 bits cannot be told
    }
    if (EngineAreas::startsWithStringArea(tag))
        return EngineAreas::kStringBytes;
    return -1;
}

int CInductiveDrive::tagOffset(const QString &tag, int start, int dataType) const
{
    const STagAddress address = analyseTag(tag, dataType);
    return EngineAreas::offsetInBlock(address.area, address.number, start, dataType);
}

int CInductiveDrive::areaCode(const QString &name) const
{
    for (int code = 1; code <= EngineAreas::kCount; ++code)
        if (name == QLatin1String(EngineAreas::name(code)))
            return code;
    return EngineAreas::kNoArea;
}

QString CInductiveDrive::areaName(int code) const
{
    return EngineAreas::isArea(code) ? QString::fromLatin1(EngineAreas::name(code)) : QStringLiteral("UNKNOW");
}

void CInductiveDrive::SetInductionParam(const Induction::EInductionFun &fun, const Induction::EInductionType &type,
                                        const int &value)
{
    qint32 *limit = nullptr;
    if (fun == Induction::INDUCTION_READ)
        limit = type == Induction::INDUCTION_BYTE_LIMIT    ? &m_readByteLimit
                : type == Induction::INDUCTION_POINT_LIMIT ? &m_readPointLimit
                                                           : nullptr;
    else if (fun == Induction::INDUCTION_WRITE)
        limit = type == Induction::INDUCTION_BYTE_LIMIT    ? &m_writeByteLimit
                : type == Induction::INDUCTION_POINT_LIMIT ? &m_writePointLimit
                                                           : nullptr;
    if (limit)
        *limit = qMax(0, value);
}
