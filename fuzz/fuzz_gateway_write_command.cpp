// Any payload as a write command against a fixed set of tags: refused with a
// reason and no value, or a value of exactly the tag's type and count that
// says what the command asked for.

#include "FuzzSupport.h"

#include "gateway/WriteCommand.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

using FuzzSupport::check;

namespace {

TagConfig tag(const char *name, int type, int count = 1, bool writable = true)
{
    TagConfig t;
    t.name = QLatin1String(name);
    t.tag = QStringLiteral("AO1");
    t.dataType = type;
    t.count = count;
    t.writable = writable;
    return t;
}

const ControllerConfig &plc()
{
    static const ControllerConfig controller = [] {
        ControllerConfig c;
        c.name = QStringLiteral("plc");
        ScanGroupConfig group;
        group.tags = {tag("on", TYPE_BOOL),        tag("tiny", TYPE_INT8),
                      tag("byte", TYPE_UINT8),     tag("small", TYPE_UINT16),
                      tag("setpoint", TYPE_INT32), tag("count", TYPE_UINT32),
                      tag("gain", TYPE_FLOAT),     tag("total", TYPE_INT64),
                      tag("big", TYPE_UINT64),     tag("exact", TYPE_DOUBLE),
                      tag("label", TYPE_STRING),   tag("trio", TYPE_INT32, 3),
                      tag("speed", TYPE_INT16),    tag("measured", TYPE_INT32, 1, false)};
        group.tags[12].scale = 0.1;
        group.tags[12].offset = 5;
        c.groups = {group};
        return c;
    }();
    return controller;
}

// Each element given as a JSON number came through unrounded (beyond the
// noise that a scaled value brings back), text exactly.
template <typename T> void checkElement(const T &raw, const QJsonValue &given, const TagConfig &tag)
{
    if constexpr (std::is_same_v<T, QString>) {
        check(raw == given.toString() && raw.size() <= 255, "a text goes as given, at most 255 characters");
        for (const QChar c : raw)
            check(c.unicode() >= 0x20 && c.unicode() <= 0x7e, "a text holds printable ASCII only");
    } else if constexpr (std::is_same_v<T, bool>) {
        check(given.isBool() && raw == given.toBool(), "a bool goes as given");
    } else {
        if constexpr (std::is_floating_point_v<T>)
            check(std::isfinite(raw), "a floating value is finite");
        if (given.isString()) {
            bool ok = false;
            const bool same = std::is_signed_v<T> ? given.toString().toLongLong(&ok) == qlonglong(raw)
                                                  : given.toString().toULongLong(&ok) == qulonglong(raw);
            check(ok && same && !tag.scale && !tag.offset, "decimal text goes exactly, in raw units of a raw tag");
            return;
        }
        const double asked = (given.toDouble() - tag.offset.value_or(0)) / tag.scale.value_or(1);
        check(std::fabs(double(raw) - asked) <= 1e-6 * qMax(1.0, std::fabs(asked)), "a number goes unrounded");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const bool readOnly = size > 0 && data[0] == 'R';
    const QByteArray payload(reinterpret_cast<const char *>(data), int(size));
    const WriteCommand command = WriteCommand::parse(payload, plc(), readOnly);
    check(command.id.isNull() || command.id.isString() || command.id.isDouble(), "an id is a number, a text or none");
    if (!command.accepted()) {
        check(!command.value.isValid(), "a refused command carries no value");
        const QJsonObject reply = QJsonDocument::fromJson(command.refusedReply()).object();
        check(reply.value(QLatin1String("refused")).toString() == command.refusal, "the reply says why");
        return 0;
    }
    check(!readOnly && command.tag.writable, "only a writable tag of a gateway that writes");
    const QJsonValue value = QJsonDocument::fromJson(payload).object().value(QLatin1String("value"));
    const QJsonArray given = command.tag.count > 1 ? value.toArray() : QJsonArray{value};
    const bool known = SorvikValues::visitElementType(command.tag.dataType, [&](auto e) {
        using T = typename decltype(e)::type;
        check(command.value.userType() == qMetaTypeId<QList<T>>(), "the value is a list of the tag's type");
        const QList<T> list = SorvikValues::listFrom<T>(command.value);
        check(list.size() == command.tag.count && given.size() == list.size(), "as many elements as the tag counts");
        for (int i = 0; i < list.size(); ++i)
            checkElement(list.at(i), given.at(i), command.tag);
    });
    check(known, "an accepted command has a type");
    check(!QJsonDocument::fromJson(command.doneReply(0, QStringLiteral("ok"))).isNull(), "the reply is JSON");
    return 0;
}
