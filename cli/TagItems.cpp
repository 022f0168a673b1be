#include "TagItems.h"

#include "TagAddress.h"
#include "ValueParsing.h"
#include "host/DataType.h"
#include "programs/CsvFields.h"
#include "programs/NumberText.h"
#include "programs/TagText.h"
#include "programs/TypeNames.h"

namespace {

bool writes(TagSyntax syntax)
{
    return syntax == TagSyntax::Write || syntax == TagSyntax::WritePlan;
}

// "int32", or with a count "int32x4": reads take any count, writes a count
// that matches their values; the planning commands take one element a tag.
bool parseType(const QString &text, TagSyntax syntax, TagItem *item, QString *why)
{
    // No type name holds an x, so the last one starts the count.
    const int x = text.lastIndexOf(QLatin1Char('x'), -1, Qt::CaseInsensitive);
    QString name = text;
    if (x > 0 && TypeNames::fromName(text.left(x)) != TYPE_NONE) {
        name = text.left(x);
        const QString countText = text.mid(x + 1);
        if (syntax == TagSyntax::Plan || syntax == TagSyntax::WritePlan) {
            *why = QStringLiteral("a count (\"x%1\") is taken by read and write only: the planner lays one "
                                  "element per tag")
                       .arg(countText);
            return false;
        }
        qlonglong count = 0;
        if (!NumberText::parseWhole(countText, 1, TagItems::kMostElements, &count)) {
            *why = QStringLiteral("bad count \"%1\": a count runs from 1 to %2")
                       .arg(countText)
                       .arg(TagItems::kMostElements);
            return false;
        }
        item->count = int(count);
    }
    item->dataType = TypeNames::fromName(name);
    if (item->dataType == TYPE_NONE) {
        *why = QStringLiteral("unknown type \"%1\" (types: %2)").arg(name, TypeNames::all().join(QLatin1Char(' ')));
        return false;
    }
    // Each string travels in a block of 256 bytes and one reply holds at
    // most 1467 bytes: a sixth string would never be answered.
    if (item->dataType == TYPE_STRING && item->count > TagItems::kMostStrings) {
        *why = QStringLiteral("bad count: at most %1 strings fit one reply").arg(TagItems::kMostStrings);
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
    if (syntax == TagSyntax::WritePlan && texts.size() > 1) {
        *why = QStringLiteral("write-plan takes one value per tag");
        return false;
    }
    if (item->dataType == TYPE_STRING && (texts.size() > 1 || item->count > 1)) {
        *why = QStringLiteral("a string tag takes one text per write");
        return false;
    }
    // Several values only with a count that says so: a stray comma would
    // otherwise write the next element too.
    if (texts.size() != item->count) {
        *why = item->count == 1 ? QStringLiteral("%1 values for one element: to write %1 elements give the count, "
                                                 "as %2:%3x%1=...")
                                      .arg(texts.size())
                                      .arg(item->tag, TypeNames::name(item->dataType))
                                : QStringLiteral("the count says %1 elements but %2 values are given")
                                      .arg(item->count)
                                      .arg(texts.size());
        return false;
    }
    if (!ValueParsing::parse(item->dataType, texts, &item->value, why))
        return false;
    return TagAddress::carriesAll(item->tag, item->dataType, item->count, why);
}

// SO counts as an area here: the planning commands take it.
bool checkTag(const QString &tag, QString *why)
{
    TagText::Parts parts;
    if (!TagText::split(tag, TagText::Areas::AlsoPlannerOnly, &parts, why))
        return false;
    if (!parts.area) {
        *why = QStringLiteral("\"%1\" is no area (DI, DO, AI, AO, SD, SA, NDI, NDO, NAI, NAO, HDS, HDP, HAI, LD, LA, "
                              "LW, SI, SO, Custom and their _F/_S forms)")
                   .arg(parts.prefix);
        return false;
    }
    bool ok = false;
    const qulonglong number = parts.number.toULongLong(&ok);
    if (!ok || number < 1 || number > 2147483647ULL) {
        *why = QStringLiteral("element numbers count from 1 to 2147483647");
        return false;
    }
    return true;
}

bool build(const QString &tag, const QString &type, const QStringList *values, TagSyntax syntax, TagItem *item,
           QString *why)
{
    item->tag = tag;
    if (!checkTag(tag, why)) {
        *why = QStringLiteral("bad tag \"%1\": %2").arg(tag, *why);
        return false;
    }
    if (!parseType(type, syntax, item, why))
        return false;
    if (!TagAddress::check(tag, item->dataType, item->count, writes(syntax), why)) {
        *why = QStringLiteral("bad tag \"%1\": %2").arg(tag, *why);
        return false;
    }
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
