#include "WriteCommand.h"

#include "ConfigChecks.h"
#include "host/ValueLists.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QSet>
#include <QVector>

#include <cmath>
#include <limits>

namespace {
Q_LOGGING_CATEGORY(lcWrites, "sorvik.gateway.writes", QtInfoMsg)

// A refusal may quote a stranger's key or topic: nothing of it may forge a
// log line or fill the log.
QString printable(const QString &text)
{
    QString out = text.left(200);
    for (QChar &c : out)
        if (!c.isPrint())
            c = QLatin1Char('?');
    return out;
}

// A JSON number is a double: from 2^53 on it cannot name every integer (the
// text 2^53 + 1 arrives as 2^53), so such values must come as decimal text.
constexpr double kExactInteger = 9007199254740992.0;

// The raw value of one element for an integer type: a whole number (or its
// decimal text), inside the type's range.
template <typename T> bool integer(const QJsonValue &v, T *out, QString *why, WriteCommand::Kind *kind)
{
    if (v.isString()) {
        bool ok = false;
        if constexpr (std::is_signed_v<T>) {
            const qlonglong n = v.toString().toLongLong(&ok);
            if (ok && n >= qlonglong(std::numeric_limits<T>::min()) && n <= qlonglong(std::numeric_limits<T>::max())) {
                *out = T(n);
                return true;
            }
        } else {
            const QString text = v.toString();
            const qulonglong n = text.startsWith(QLatin1Char('-')) ? 0 : text.toULongLong(&ok);
            if (ok && n <= qulonglong(std::numeric_limits<T>::max())) {
                *out = T(n);
                return true;
            }
        }
        *why = ok ? QStringLiteral("out of range") : QStringLiteral("not a whole number");
        *kind = ok ? WriteCommand::Kind::OutOfRange : WriteCommand::Kind::WrongType;
        return false;
    }
    if (!v.isDouble()) {
        *why = QStringLiteral("not a number");
        *kind = WriteCommand::Kind::WrongType;
        return false;
    }
    double d = v.toDouble();
    // Scaled values come back from engineering units with a little rounding
    // noise; anything further from a whole number is refused, not rounded.
    const double whole = std::round(d);
    if (!std::isfinite(d) || std::fabs(d - whole) > 1e-6 * qMax(1.0, std::fabs(whole))) {
        *why = QStringLiteral("not a whole number");
        *kind = WriteCommand::Kind::WrongType;
        return false;
    }
    d = whole;
    if (std::fabs(d) >= kExactInteger) {
        *why = QStringLiteral("beyond 2^53: give it as decimal text");
        *kind = WriteCommand::Kind::OutOfRange;
        return false;
    }
    if (d < double(std::numeric_limits<T>::min()) || d > double(std::numeric_limits<T>::max())) {
        *why = QStringLiteral("out of range");
        *kind = WriteCommand::Kind::OutOfRange;
        return false;
    }
    *out = T(d);
    return true;
}

template <typename T>
bool one(const TagConfig &tag, const QJsonValue &given, T *out, QString *why, WriteCommand::Kind *kind)
{
    if constexpr (std::is_same_v<T, bool>) {
        if (given.isBool()) {
            *out = given.toBool();
            return true;
        }
        *why = QStringLiteral("not true or false");
        *kind = WriteCommand::Kind::WrongType;
        return false;
    } else if constexpr (std::is_same_v<T, QString>) {
        if (!given.isString()) {
            *why = QStringLiteral("not a text");
            *kind = WriteCommand::Kind::WrongType;
            return false;
        }
        const QString text = given.toString();
        // The controller keeps a text as a length byte and one byte per
        // character: printable ASCII only, at most 255 characters.
        for (const QChar c : text)
            if (c.unicode() < 0x20 || c.unicode() > 0x7e) {
                *why = QStringLiteral("text holds a character outside printable ASCII");
                *kind = WriteCommand::Kind::NotAscii;
                return false;
            }
        if (text.size() > 255) {
            *why = QStringLiteral("text longer than 255 characters");
            *kind = WriteCommand::Kind::OutOfRange;
            return false;
        }
        *out = text;
        return true;
    } else {
        QJsonValue v = given;
        // A scaled tag is written in engineering units, as it is published.
        const double scale = tag.scale.value_or(1.0);
        const double offset = tag.offset.value_or(0.0);
        // Decimal text would be taken as raw units, not as the engineering
        // value everything else of the tag is: refused rather than guessed.
        if ((tag.scale || tag.offset) && v.isString()) {
            *why = QStringLiteral("a scaled tag takes a number in engineering units, not text");
            *kind = WriteCommand::Kind::WrongType;
            return false;
        }
        if ((tag.scale || tag.offset) && v.isDouble()) {
            if (scale == 0) {
                *why = QStringLiteral("the tag's scale is 0: no raw value gives it");
                *kind = WriteCommand::Kind::OutOfRange;
                return false;
            }
            v = (v.toDouble() - offset) / scale;
        }
        if constexpr (std::is_floating_point_v<T>) {
            if (!v.isDouble() || !std::isfinite(v.toDouble())) {
                *why = QStringLiteral("not a finite number");
                *kind = WriteCommand::Kind::WrongType;
                return false;
            }
            const double d = v.toDouble();
            if (std::fabs(d) > double(std::numeric_limits<T>::max())) {
                *why = QStringLiteral("out of range");
                *kind = WriteCommand::Kind::OutOfRange;
                return false;
            }
            *out = T(d);
            return true;
        } else {
            return integer<T>(v, out, why, kind);
        }
    }
}

// Qt's JSON parser loses the memory of an array or object whose key comes
// again in the same object: a stranger's commands must not make the gateway
// grow, so a key given twice is found before Qt parses the text. Gives the
// key, or a null string; malformed text is left to Qt's parser.
QString repeatedKey(const QByteArray &json)
{
    QVector<QSet<QString>> keys; // of each open object
    QByteArray open;             // '{' or '[' of each open container
    bool atKey = false;
    for (int i = 0; i < json.size(); ++i) {
        const char c = json.at(i);
        if (c == '"') {
            const int start = i;
            for (++i; i < json.size() && json.at(i) != '"'; ++i)
                if (json.at(i) == '\\')
                    ++i;
            if (!atKey)
                continue;
            atKey = false;
            // Escapes decoded by Qt itself: "\u0061" and "a" are one key.
            const QJsonArray key = QJsonDocument::fromJson('[' + json.mid(start, i - start + 1) + ']').array();
            const QString name =
                key.isEmpty() ? QString::fromUtf8(json.mid(start, i - start + 1)) : key.at(0).toString();
            if (keys.last().contains(name))
                return name;
            keys.last().insert(name);
        } else if (c == '{' || c == '[') {
            open.append(c);
            if (c == '{')
                keys.append(QSet<QString>());
            atKey = c == '{';
        } else if ((c == '}' || c == ']') && !open.isEmpty()) {
            if (open.back() == '{')
                keys.removeLast();
            open.chop(1);
            atKey = false;
        } else if (c == ',') {
            atKey = !open.isEmpty() && open.back() == '{';
        }
    }
    return QString();
}

} // namespace

WriteCommand WriteCommand::parse(const QByteArray &payload, const ControllerConfig &controller, bool readOnly)
{
    WriteCommand command;
    if (payload.size() > kMostBytes) {
        command.refuse(Kind::TooLarge, QStringLiteral("command longer than %1 bytes").arg(kMostBytes));
        return command;
    }
    const QString repeated = repeatedKey(payload);
    if (!repeated.isNull()) {
        command.refuse(Kind::MalformedJson, QStringLiteral("key \"%1\" given twice").arg(repeated));
        return command;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(payload, &error);
    if (error.error != QJsonParseError::NoError) {
        command.refuse(Kind::MalformedJson,
                       QStringLiteral("malformed JSON at byte %1: %2").arg(error.offset).arg(error.errorString()));
        return command;
    }
    if (!document.isObject()) {
        command.refuse(Kind::MalformedJson, QStringLiteral("not a JSON object"));
        return command;
    }
    const QJsonObject object = document.object();
    const QJsonValue id = object.value(QStringLiteral("id"));
    if (id.isString() || id.isDouble())
        command.id = id;
    for (auto it = object.constBegin(); it != object.constEnd(); ++it)
        if (it.key() != QLatin1String("id") && it.key() != QLatin1String("tag") && it.key() != QLatin1String("value")) {
            command.refuse(Kind::MalformedCommand, QStringLiteral("unknown key \"%1\"").arg(it.key()));
            return command;
        }
    if (!id.isString() && !id.isDouble()) {
        command.refuse(Kind::MalformedCommand, QStringLiteral("\"id\" missing or neither number nor text"));
        return command;
    }
    const QJsonValue name = object.value(QStringLiteral("tag"));
    if (!name.isString()) {
        command.refuse(Kind::MalformedCommand, QStringLiteral("\"tag\" missing or not a text"));
        return command;
    }
    command.name = name.toString();
    const TagConfig *found = nullptr;
    for (const ScanGroupConfig &group : controller.groups)
        for (const TagConfig &tag : group.tags)
            if (tag.name == command.name)
                found = &tag;
    if (!found) {
        command.refuse(Kind::UnknownTag, QStringLiteral("unknown tag"));
        return command;
    }
    command.tag = *found;
    if (readOnly) {
        command.refuse(Kind::ReadOnly, QStringLiteral("the gateway is read only"));
        return command;
    }
    if (!found->writable) {
        command.refuse(Kind::NotWritable, QStringLiteral("tag not writable"));
        return command;
    }
    if (!object.contains(QStringLiteral("value"))) {
        command.refuse(Kind::MalformedCommand, QStringLiteral("\"value\" missing"));
        return command;
    }
    const QJsonValue given = object.value(QStringLiteral("value"));
    const int count = qMax(1, found->count);
    QJsonArray elements;
    if (count == 1) {
        if (given.isArray() || given.isObject() || given.isNull()) {
            command.refuse(Kind::WrongType,
                           QStringLiteral("\"value\" must be one %1").arg(ConfigChecks::typeName(found->dataType)));
            return command;
        }
        elements.append(given);
    } else {
        if (!given.isArray() || given.toArray().size() != count) {
            command.refuse(Kind::WrongType, QStringLiteral("\"value\" must be an array of %1 %2")
                                                .arg(count)
                                                .arg(ConfigChecks::typeName(found->dataType)));
            return command;
        }
        elements = given.toArray();
    }
    QString why;
    Kind kind = Kind::WrongType;
    const bool known = SorvikValues::visitElementType(found->dataType, [&](auto e) {
        using T = typename decltype(e)::type;
        QList<T> list;
        for (int i = 0; i < elements.size(); ++i) {
            T v{};
            if (!one<T>(*found, elements.at(i), &v, &why, &kind)) {
                why = QStringLiteral("\"value\"%1 %2 for %3")
                          .arg(count > 1 ? QStringLiteral("[%1]").arg(i) : QString(), why,
                               ConfigChecks::typeName(found->dataType));
                return;
            }
            list.append(v);
        }
        command.value = SorvikValues::toVariant(list);
    });
    if (!known) {
        why = QStringLiteral("the tag's type cannot be written");
        kind = Kind::WrongType;
    }
    if (!why.isEmpty()) {
        command.value = QVariant();
        command.refuse(kind, why);
    }
    return command;
}

QString WriteCommand::kindName(Kind kind)
{
    switch (kind) {
    case Kind::None: break;
    case Kind::TooLarge: return QStringLiteral("too large");
    case Kind::MalformedJson: return QStringLiteral("malformed JSON");
    case Kind::MalformedCommand: return QStringLiteral("malformed command");
    case Kind::UnknownController: return QStringLiteral("unknown controller");
    case Kind::UnknownTag: return QStringLiteral("unknown tag");
    case Kind::ReadOnly: return QStringLiteral("read only");
    case Kind::NotWritable: return QStringLiteral("not writable");
    case Kind::WrongType: return QStringLiteral("wrong type");
    case Kind::OutOfRange: return QStringLiteral("out of range");
    case Kind::NotAscii: return QStringLiteral("non-ASCII text");
    case Kind::NotReady: return QStringLiteral("link not ready");
    case Kind::Stopping: return QStringLiteral("stopping");
    }
    return QString();
}

QByteArray WriteCommand::refusedReply() const
{
    const QJsonObject reply{
        {QStringLiteral("id"), id}, {QStringLiteral("tag"), name}, {QStringLiteral("refused"), refusal}};
    return QJsonDocument(reply).toJson(QJsonDocument::Compact);
}

QByteArray WriteCommand::doneReply(int status, const QString &meaning) const
{
    const QJsonObject reply{{QStringLiteral("id"), id},
                            {QStringLiteral("tag"), name},
                            {QStringLiteral("status"), status},
                            {QStringLiteral("meaning"), meaning}};
    return QJsonDocument(reply).toJson(QJsonDocument::Compact);
}

void WriteCommand::logRefusal(const QString &controller, bool firstOfKind) const
{
    const QString where = printable(controller);
    const QString reason = printable(refusal);
    if (firstOfKind)
        qCWarning(lcWrites, "%s: write refused (%s): %s; further refusals of this kind are only counted",
                  qUtf8Printable(where), qUtf8Printable(kindName(kind)), qUtf8Printable(reason));
    else
        qCDebug(lcWrites, "%s: write refused (%s): %s", qUtf8Printable(where), qUtf8Printable(kindName(kind)),
                qUtf8Printable(reason));
}
