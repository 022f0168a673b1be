#include "Table.h"

#include <QTextStream>

namespace {

QString formatRatio(double ratio)
{
    return std::isnan(ratio) ? QStringLiteral("-") : QString::number(ratio, 'f', ratio < 10 ? 3 : 1);
}

QString goalText(const Line &line, const Goal &goal)
{
    const QString sign = goal.compare == Goal::Compare::Equal   ? QStringLiteral("=")
                         : goal.compare == Goal::Compare::Below ? QStringLiteral("<")
                                                                : QStringLiteral("≤");
    const QString limit =
        goal.on == Goal::On::Ratio ? QString::number(goal.limit, 'f', 2) : formatFigure(goal.limit, line.unit);
    QString text = QStringLiteral("%1 %2 ").arg(sign, limit);
    if (goalMet(line, goal))
        return text + QStringLiteral("met");
    if (goal.compare == Goal::Compare::Equal)
        return text + QStringLiteral("MISSED");
    return text + QStringLiteral("MISSED by %1 %").arg(QString::number((goalMargin(line, goal) - 1) * 100, 'f', 1));
}

} // namespace

void printRows(QTextStream &out, const QList<QStringList> &rows)
{
    QList<int> widths;
    for (const QStringList &row : rows)
        for (int i = 0; i < row.size(); ++i) {
            if (widths.size() <= i)
                widths.append(0);
            widths[i] = qMax(widths[i], int(row.at(i).size()));
        }
    for (const QStringList &row : rows) {
        QString text;
        for (int i = 0; i < row.size(); ++i)
            text += i + 1 < row.size() ? row.at(i).leftJustified(widths.at(i) + 2) : row.at(i);
        out << text.trimmed() << '\n';
    }
}

QString formatFigure(double value, Unit unit)
{
    switch (unit) {
    case Unit::Count: return QString::number(value, 'f', 0);
    case Unit::Rate:
        return value >= 1000 ? QStringLiteral("%1 k/s").arg(value / 1000, 0, 'f', 1)
                             : QStringLiteral("%1 /s").arg(value, 0, 'f', 0);
    case Unit::Bytes:
        // KB and MB of 1024 and 1024 × 1024 bytes.
        if (std::fabs(value) < 1024)
            return QStringLiteral("%1 B").arg(value, 0, 'f', 0);
        if (std::fabs(value) < 1024 * 1024)
            return QStringLiteral("%1 KB").arg(value / 1024, 0, 'f', 2);
        return QStringLiteral("%1 MB").arg(value / (1024 * 1024), 0, 'f', 2);
    case Unit::Time: break;
    }
    const double magnitude = std::fabs(value);
    if (magnitude < 1e3)
        return QStringLiteral("%1 ns").arg(value, 0, 'f', 0);
    if (magnitude < 1e6)
        return QStringLiteral("%1 µs").arg(value / 1e3, 0, 'f', magnitude < 1e5 ? 2 : 1);
    if (magnitude < 1e9)
        return QStringLiteral("%1 ms").arg(value / 1e6, 0, 'f', magnitude < 1e8 ? 2 : 1);
    return QStringLiteral("%1 s").arg(value / 1e9, 0, 'f', 3);
}

double goalMargin(const Line &line, const Goal &goal)
{
    const double measured = goal.on == Goal::On::Ratio ? line.ratio : line.value.median;
    if (std::isnan(measured) || goal.limit <= 0)
        return std::numeric_limits<double>::infinity();
    if (goal.compare == Goal::Compare::Equal)
        return std::fabs(measured - goal.limit) < 1e-9 ? 1.0 : std::numeric_limits<double>::infinity();
    return measured / goal.limit;
}

bool goalMet(const Line &line, const Goal &goal)
{
    const double margin = goalMargin(line, goal);
    return goal.compare == Goal::Compare::Below ? margin < 1.0 : margin <= 1.0;
}

void Table::add(Line line)
{
    if (!line.hasRatio() && !line.floorName.isEmpty() && line.floor.median > 0)
        line.ratio = line.value.median / line.floor.median;
    m_lines.append(line);
}

void Table::skip(int row, const QString &what, const QString &reason)
{
    m_skipped.append(QStringLiteral("row %1 (%2) skipped: %3").arg(row).arg(what, reason));
}

void Table::print(QTextStream &out) const
{
    for (const QString &line : m_header)
        out << line << '\n';
    QList<QStringList> rows;
    rows.append({QStringLiteral("ROW"), QStringLiteral("MEASUREMENT"), QStringLiteral("MEDIAN"), QStringLiteral("P99"),
                 QStringLiteral("FLOOR"), QStringLiteral("MEDIAN"), QStringLiteral("P99"), QStringLiteral("RATIO"),
                 QStringLiteral("GOAL"), QStringLiteral("NOTE")});
    for (const Line &line : m_lines) {
        QStringList goals;
        for (const Goal &goal : line.goals)
            goals.append(goalText(line, goal));
        const bool floor = !line.floorName.isEmpty();
        rows.append({QString::number(line.row), line.measurement, formatFigure(line.value.median, line.unit),
                     formatFigure(line.value.p99, line.unit), floor ? line.floorName : QStringLiteral("-"),
                     floor ? formatFigure(line.floor.median, line.unit) : QStringLiteral("-"),
                     floor ? formatFigure(line.floor.p99, line.unit) : QStringLiteral("-"), formatRatio(line.ratio),
                     goals.isEmpty() ? QStringLiteral("-") : goals.join(QStringLiteral("; ")), line.note});
    }
    printRows(out, rows);
    for (const QString &skipped : m_skipped)
        out << skipped << '\n';
    out << summaryLine() << '\n';
    out.flush();
}

QString Table::summaryLine() const
{
    int goals = 0;
    int met = 0;
    const Line *worstLine = nullptr;
    const Goal *worstGoal = nullptr;
    double worst = -1;
    for (const Line &line : m_lines)
        for (const Goal &goal : line.goals) {
            ++goals;
            met += goalMet(line, goal) ? 1 : 0;
            const double margin = goalMargin(line, goal);
            if (margin > worst) {
                worst = margin;
                worstLine = &line;
                worstGoal = &goal;
            }
        }
    QString text = QStringLiteral("goals met %1 of %2").arg(met).arg(goals);
    if (worstLine) {
        const QString measured = worstGoal->on == Goal::On::Ratio
                                     ? formatRatio(worstLine->ratio)
                                     : formatFigure(worstLine->value.median, worstLine->unit);
        text += QStringLiteral(", worst ratio %1 against %2 (row %3, %4%5)")
                    .arg(measured, goalText(*worstLine, *worstGoal).section(QLatin1Char(' '), 0, 1))
                    .arg(worstLine->row)
                    .arg(worstLine->measurement,
                         worstGoal->on == Goal::On::Ratio ? QStringLiteral(" / ") + worstLine->floorName : QString());
    }
    if (!m_skipped.isEmpty())
        text += m_skipped.size() == 1 ? QStringLiteral(", 1 row skipped")
                                      : QStringLiteral(", %1 rows skipped").arg(m_skipped.size());
    return text;
}
