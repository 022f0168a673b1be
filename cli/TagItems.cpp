#include "TagItems.h"

#include "CsvFields.h"
#include "TagText.h"
#include "TypeNames.h"
#include "ValueParsing.h"
#include "host/DataType.h"

#include <QRegularExpression>

namespace {

bool writes(TagSyntax syntax)
{
    return syntax == TagSyntax::Write || syntax == TagSyntax::WritePlan;
}

// "int32" or, for reads, "int32x4".
bool parseType(const QString &text, TagSyntax syntax, TagItem *item, QString *why)
{
    static const QRegularExpression counted(QStringLiteral("^([A-Za-z0-9]+?)x([0-9]+)$"));
    QString name = text;
    const QRegularExpressionMatch match = counted.match(text);
    if (match.hasMatch() && TypeNames::fromName(match.captured(1)) != TYPE_NONE) {
        if (syntax != TagSyntax::Read) {
            *why = QStringLiteral("a count (\"x%1\") is taken by read only").arg(match.captured(2));
            return false;
        }
        bool ok = false;
        const int count = match.captured(2).toInt(&ok);
        if (!ok || count < 1 || count > TagItems::kMostElements) {
            *why = QStringLiteral("a count runs from 1 to %1").arg(TagItems::kMostElements);
            return false;
        }
        name = match.captured(1);
        item->count = count;
    }
    item->dataType = TypeNames::fromName(name);
    if (item->dataType == TYPE_NONE) {
        *why = QStringLiteral("unknown type \"%1\" (types: %2)").arg(name, TypeNames::all().join(QLatin1Char(' ')));
        return false;
    }
    return true;
}

bool parseValues(const QStringList &texts, TagSyntax syntax, TagItem *item, QString *why)
{
    if (texts.isEmpty()) {
        *why = QStringLiteral("a value is missing: write takes TAG:TYPE=VALUE");
        return false;
    }
    // The planner lays one element per tag, and a string write carries one
    // text per request: further values would be dropped or shifted.
    if ((syntax == TagSyntax::WritePlan || item->dataType == TYPE_STRING) && texts.size() > 1) {
        *why = syntax == TagSyntax::WritePlan ? QStringLiteral("write-plan takes one value per tag")
                                              : QStringLiteral("a string tag takes one text per write");
        return false;
    }
    if (texts.size() > TagItems::kMostElements) {
        *why = QStringLiteral("at most %1 values fit one write").arg(TagItems::kMostElements);
        return false;
    }
    if (!ValueParsing::parse(item->dataType, texts, &item->value, why))
        return false;
    item->count = texts.size();
    return true;
}

bool build(const QString &tag, const QString &type, const QStringList *values, TagSyntax syntax, TagItem *item,
           QString *why)
{
    item->tag = tag;
    if (!TagText::check(tag, why)) {
        *why = QStringLiteral("bad tag \"%1\": %2").arg(tag, *why);
        return false;
    }
    if (!parseType(type, syntax, item, why))
        return false;
    if (!writes(syntax))
        return true;
    if (!values) {
        *why = QStringLiteral("a value is missing: %1 takes TAG:TYPE=VALUE")
                   .arg(syntax == TagSyntax::Write ? QStringLiteral("write") : QStringLiteral("write-plan"));
        return false;
    }
    return parseValues(*values, syntax, item, why);
}

} // namespace

bool TagItems::fromArgument(const QString &argument, TagSyntax syntax, TagItem *item, QString *why)
{
    item->origin = argument;
    const int colon = argument.indexOf(QLatin1Char(':'));
    if (colon < 0) {
        *why = writes(syntax) ? QStringLiteral("expected TAG:TYPE=VALUE, such as AO1:float=1.5")
                              : QStringLiteral("expected TAG:TYPE, such as AI1:int32");
        return false;
    }
    const int equals = argument.indexOf(QLatin1Char('='), colon + 1);
    if (equals >= 0 && !writes(syntax)) {
        *why = QStringLiteral("a value is given, but this command only reads");
        return false;
    }
    const QString type = argument.mid(colon + 1, equals < 0 ? -1 : equals - colon - 1);
    QStringList values;
    if (equals >= 0 && !CsvFields::split(argument.mid(equals + 1), &values, why))
        return false;
    return build(argument.left(colon), type, equals < 0 ? nullptr : &values, syntax, item, why);
}

bool TagItems::fromFields(const QStringList &fields, TagSyntax syntax, TagItem *item, QString *why)
{
    if (fields.size() < 2) {
        *why = writes(syntax) ? QStringLiteral("expected tag,type,value") : QStringLiteral("expected tag,type");
        return false;
    }
    const QStringList values = fields.mid(2);
    return build(fields.at(0), fields.at(1), values.isEmpty() ? nullptr : &values, syntax, item, why);
}
