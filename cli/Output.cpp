#include "Output.h"

#include "ValueFormatting.h"
#include "programs/CsvFields.h"

Cell Cells::text(const QString &text)
{
    return {text, ValueFormatting::jsonString(text), text};
}

Cell Cells::number(qlonglong value)
{
    const QString text = QString::number(value);
    return {text, text, text};
}

Cell Cells::number(double value)
{
    const QString text = QString::number(value, 'f', 3);
    return {text, text, text};
}

Cell Cells::null()
{
    return {QString(), QStringLiteral("null"), QStringLiteral("-")};
}

Cell Cells::list(const QStringList &texts, const QStringList &csv, const QStringList &json)
{
    return {csv.join(QLatin1Char(',')), QLatin1Char('[') + json.join(QLatin1Char(',')) + QLatin1Char(']'),
            texts.join(QLatin1Char(','))};
}

Output::Output(OutputFormat format, QTextStream &out, QTextStream &err) : m_format(format), m_out(out), m_err(err) {}

void Output::setColumns(const QStringList &names)
{
    m_columns = names;
    m_headerDone = false;
}

void Output::setStreaming(const QVector<int> &widths)
{
    m_streaming = true;
    m_widths = widths;
}

void Output::printTableLine(const QVector<int> &widths, const QStringList &fields)
{
    QString text;
    for (int i = 0; i < fields.size(); ++i)
        text += i + 1 < fields.size() ? fields.at(i).leftJustified(widths.value(i) + 2) : fields.at(i);
    printLine(text);
}

void Output::addRow(const QVector<Cell> &cells)
{
    switch (m_format) {
    case OutputFormat::Table:
        if (!m_streaming) {
            m_pending.append(cells);
            return;
        }
        if (!m_headerDone) {
            QStringList names;
            for (const QString &name : qAsConst(m_columns))
                names << name.toUpper();
            printTableLine(m_widths, names);
            m_headerDone = true;
        }
        {
            QStringList fields;
            for (int i = 0; i < cells.size() && i < m_columns.size(); ++i)
                fields << cells.at(i).display;
            printTableLine(m_widths, fields);
        }
        m_out.flush();
        return;
    case OutputFormat::Csv: {
        if (!m_headerDone) {
            printLine(m_columns.join(QLatin1Char(',')));
            m_headerDone = true;
        }
        QStringList fields;
        for (const Cell &cell : cells)
            fields << CsvFields::quote(cell.text);
        printLine(fields.join(QLatin1Char(',')));
        if (m_streaming)
            m_out.flush();
        return;
    }
    case OutputFormat::Json: {
        QStringList members;
        for (int i = 0; i < cells.size() && i < m_columns.size(); ++i)
            members << ValueFormatting::jsonString(m_columns.at(i)) + QLatin1Char(':') + cells.at(i).json;
        printLine(QLatin1Char('{') + members.join(QLatin1Char(',')) + QLatin1Char('}'));
        if (m_streaming)
            m_out.flush();
        return;
    }
    }
}

void Output::endTable()
{
    if (m_format == OutputFormat::Table && !m_pending.isEmpty()) {
        QVector<int> widths(m_columns.size());
        for (int i = 0; i < m_columns.size(); ++i)
            widths[i] = m_columns.at(i).size();
        for (const QVector<Cell> &row : qAsConst(m_pending))
            for (int i = 0; i < row.size() && i < widths.size(); ++i)
                widths[i] = qMax(widths[i], row.at(i).display.size());
        QStringList names;
        for (const QString &name : qAsConst(m_columns))
            names << name.toUpper();
        printTableLine(widths, names);
        for (const QVector<Cell> &row : qAsConst(m_pending)) {
            QStringList fields;
            for (int i = 0; i < row.size() && i < m_columns.size(); ++i)
                fields << row.at(i).display;
            printTableLine(widths, fields);
        }
        m_pending.clear();
    }
    m_out.flush();
}

void Output::addNote(const QString &key, const QString &sentence, const Fields &fields)
{
    switch (m_format) {
    case OutputFormat::Table: printLine(sentence); break;
    case OutputFormat::Csv:
        m_err << sentence << '\n';
        m_err.flush();
        break;
    case OutputFormat::Json: {
        QStringList members;
        for (const auto &field : fields)
            members << ValueFormatting::jsonString(field.first) + QLatin1Char(':') + field.second.json;
        printLine(QStringLiteral("{%1:{%2}}").arg(ValueFormatting::jsonString(key), members.join(QLatin1Char(','))));
        break;
    }
    }
    m_out.flush();
}

void Output::rewind()
{
    // Once a line has wrapped, the count of lines no longer says how far up
    // the last drawing began: from then on each drawing goes below the last.
    if (m_terminalColumns > 0 && m_wrapped)
        m_terminalColumns = 0;
    if (m_format == OutputFormat::Table && m_terminalColumns > 0 && m_linesSinceRewind > 0)
        m_out << "\x1b[" << m_linesSinceRewind << "A\x1b[J"; // cursor up, clear to the end of the screen
    else if (m_format == OutputFormat::Table && m_linesSinceRewind > 0)
        m_out << '\n';
    m_linesSinceRewind = 0;
}

void Output::printLine(const QString &line)
{
    m_out << line << '\n';
    ++m_linesSinceRewind;
    if (line.size() >= m_terminalColumns)
        m_wrapped = true;
}
