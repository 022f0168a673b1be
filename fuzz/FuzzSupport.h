#pragma once

// Shared by the fuzz programs: fuzz bytes turned into the drive's inputs, and rule checks.

#include "host/ValueLists.h"
#include "protocol/SorvikAreas.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdio>
#include <cstdlib>

namespace FuzzSupport {

// A broken rule is a finding like a crash: libFuzzer keeps the input.
inline void check(bool holds, const char *rule)
{
    if (holds)
        return;
    std::fprintf(stderr, "rule broken: %s\n", rule);
    std::abort();
}

// One object for all runs, kept to the end as a host keeps its drive.
template <typename T> T &kept()
{
    static T *instance = new T;
    return *instance;
}

inline QByteArray bytes(FuzzedDataProvider &input, size_t most)
{
    return QByteArray::fromStdString(input.ConsumeBytesAsString(input.ConsumeIntegralInRange<size_t>(0, most)));
}

inline QByteArray remainingBytes(FuzzedDataProvider &input)
{
    return QByteArray::fromStdString(input.ConsumeRemainingBytesAsString());
}

// Any UTF-16 text, unpaired surrogates included.
inline QString anyText(FuzzedDataProvider &input, size_t most)
{
    const QByteArray raw = bytes(input, 2 * most);
    return QString(reinterpret_cast<const QChar *>(raw.constData()), raw.size() / 2);
}

// A text close to a tag, so that most inputs get past the first test.
inline QString tagLike(FuzzedDataProvider &input)
{
    // Every prefix of the area table, then spellings that must be refused or read as another area.
    static const QStringList kPrefixes = [] {
        QStringList prefixes;
        for (const SorvikProtocol::Area &area : SorvikProtocol::kAreaTable)
            prefixes << QLatin1String(area.prefix);
        return prefixes + QStringList{"di", "ai", "si", "Di", "custom", "AIR", "", "ai_f", "lw"};
    }();
    QString tag = kPrefixes[input.ConsumeIntegralInRange<int>(0, kPrefixes.size() - 1)];
    switch (input.ConsumeIntegralInRange(0, 7)) {
    case 0: tag += anyText(input, 8); break;
    case 1: tag += QStringLiteral("0") + QString::number(input.ConsumeIntegralInRange(0, 40000)); break;
    default: tag += QString::number(input.ConsumeIntegralInRange(0, 40)); break;
    }
    if (input.ConsumeBool())
        tag += QStringLiteral("[%1]").arg(input.ConsumeIntegralInRange(-1, 2000));
    return tag;
}

// A DataType as a host might pass it: mostly 0 to 41, sometimes anything.
inline int dataType(FuzzedDataProvider &input)
{
    return input.ConsumeBool() ? input.ConsumeIntegralInRange(0, 42) : input.ConsumeIntegral<int>();
}

template <typename T> T element(FuzzedDataProvider &input)
{
    if constexpr (std::is_same_v<T, bool>)
        return input.ConsumeBool();
    else if constexpr (std::is_same_v<T, QString>)
        return anyText(input, 300);
    else if constexpr (std::is_floating_point_v<T>)
        return input.ConsumeFloatingPoint<T>();
    else
        return input.ConsumeIntegral<T>();
}

// A list of any of the twelve types, up to `most` long, or no list at all.
inline QVariant value(FuzzedDataProvider &input, int most = 64)
{
    const int type = input.ConsumeIntegralInRange(0, 14);
    if (type == 13)
        return QVariant(input.ConsumeIntegral<int>());
    if (type == 14)
        return QVariant(anyText(input, 8));
    QVariant result;
    SorvikValues::visitElementType(type, [&](auto kind) {
        using T = typename decltype(kind)::type;
        QList<T> list;
        for (int i = input.ConsumeIntegralInRange(0, most); i > 0 && input.remaining_bytes() > 0; --i)
            list.append(element<T>(input));
        result = SorvikValues::toVariant(list);
    });
    return result; // type 0 leaves it invalid
}

} // namespace FuzzSupport

// The drive warns about every bad reply; millions of lines would only slow the run.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    return 0;
}
