#include "Commands.h"
#include "Output.h"
#include "Plural.h"
#include "ReadPlan.h"
#include "engine/BlockKind.h"
#include "programs/ExitCode.h"
#include "programs/TypeNames.h"

namespace {

QString kindName(int kind)
{
    switch (kind) {
    case BlockKind::Bytes: return QStringLiteral("bytes");
    case BlockKind::Points: return QStringLiteral("points");
    default: return QStringLiteral("none");
    }
}

} // namespace

// Shows the blocks without reading them: planning needs no controller.
int Commands::plan(const CommandContext &context)
{
    const ReadPlan plan = ReadPlan::make(context.drive, context.connectPar, context.items);
    Output &output = context.output;
    output.setColumns({QStringLiteral("block"), QStringLiteral("area"), QStringLiteral("start"),
                       QStringLiteral("length"), QStringLiteral("kind"), QStringLiteral("tag"), QStringLiteral("type"),
                       QStringLiteral("offset")});
    const bool table = output.format() == OutputFormat::Table;
    for (int b = 0; b < plan.groups.size(); ++b) {
        const SReadGroup &group = plan.groups.at(b);
        bool first = true;
        for (auto place = group.tags.cbegin(); place != group.tags.cend(); ++place) {
            // A table names the block on its first tag only, so blocks stand out.
            const bool named = first || !table;
            auto blockCell = [named](const Cell &cell) { return named ? cell : Cell{cell.text, cell.json, {}}; };
            output.addRow(
                {blockCell(Cells::number(qlonglong(b + 1))), blockCell(Cells::text(group.areaText)),
                 blockCell(Cells::text(group.start.toString())), blockCell(Cells::number(qlonglong(group.length))),
                 blockCell(Cells::text(kindName(group.kind))), Cells::text(place.key().tag),
                 Cells::text(TypeNames::name(place.key().dataType)), Cells::number(qlonglong(place.value().offset))});
            first = false;
        }
    }
    for (const Induction::SReadInfo &info : plan.pointTags)
        output.addRow({Cells::null(), Cells::null(), Cells::null(), Cells::null(),
                       Cells::text(QStringLiteral("refused")), Cells::text(info.tag),
                       Cells::text(TypeNames::name(info.dataType)), Cells::null()});
    output.endTable();

    const int tags = plan.tags.size();
    QString sentence = QStringLiteral("%1 in %2: %3 per cycle instead of %4")
                           .arg(plural(tags, "tag", "tags"), plural(plan.groups.size(), "block", "blocks"),
                                plural(plan.requestsPerCycle(), "request", "requests"))
                           .arg(tags);
    if (!plan.pointTags.isEmpty())
        sentence += QStringLiteral("; %1 refused by the planner, read one at a time")
                        .arg(plural(plan.pointTags.size(), "tag", "tags"));
    output.addNote(QStringLiteral("summary"), sentence,
                   {{QStringLiteral("tags"), Cells::number(qlonglong(tags))},
                    {QStringLiteral("blocks"), Cells::number(qlonglong(plan.groups.size()))},
                    {QStringLiteral("refused"), Cells::number(qlonglong(plan.pointTags.size()))},
                    {QStringLiteral("requests"), Cells::number(qlonglong(plan.requestsPerCycle()))}});
    return ExitOk;
}
