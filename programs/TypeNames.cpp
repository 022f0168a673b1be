#include "TypeNames.h"

#include "host/DataType.h"

namespace {

const char *const kNames[] = {"bool",   "int8",  "uint8", "int16",  "uint16", "int32",
                              "uint32", "float", "int64", "uint64", "double", "string"};

} // namespace

int TypeNames::fromName(const QString &name)
{
    for (int type = TYPE_BOOL; type <= TYPE_STRING; ++type)
        if (name.compare(QLatin1String(kNames[type - 1]), Qt::CaseInsensitive) == 0)
            return type;
    return TYPE_NONE;
}

QString TypeNames::name(int dataType)
{
    if (dataType >= TYPE_BOOL && dataType <= TYPE_STRING)
        return QLatin1String(kNames[dataType - 1]);
    return QString::number(dataType);
}

QStringList TypeNames::all()
{
    QStringList names;
    for (const char *name : kNames)
        names << QLatin1String(name);
    return names;
}
