#pragma once

#include <QPair>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <QVector>

enum class OutputFormat { Table, Csv, Json };

// One field of a row: its text for CSV, its JSON rendering, and what an
// aligned table shows (usually the text).
struct Cell {
    QString text;
    QString json;
    QString display;
};

namespace Cells {
Cell text(const QString &text);
Cell number(qlonglong value);
Cell number(double value);
Cell null();
// A list: elements joined by commas as text (`csv` for CSV, `texts` for a
// table), a JSON array.
Cell list(const QStringList &texts, const QStringList &csv, const QStringList &json);
} // namespace Cells

using Fields = QVector<QPair<QString, Cell>>;

// Rows of one kind go out as an aligned table, CSV with a header line, or one
// JSON object per line. Notes are what is not a row (summaries, what was left
// over): a line after the table, a line on stderr beside CSV so that stdout
// stays one clean table, or a JSON object {"key": {...}}.
class Output
{
public:
    Output(OutputFormat format, QTextStream &out, QTextStream &err);

    void setColumns(const QStringList &names);
    void addRow(const QVector<Cell> &cells);
    // Ends a table: prints the aligned rows; CSV and JSON rows are out already.
    void endTable();
    void addNote(const QString &key, const QString &sentence, const Fields &fields = {});
    // On a terminal: the next output replaces what was printed since the last call.
    void rewind();

    OutputFormat format() const { return m_format; }

private:
    void printLine(const QString &line);

    OutputFormat m_format;
    QTextStream &m_out;
    QTextStream &m_err;
    QStringList m_columns;
    QVector<QVector<Cell>> m_pending; // table rows waiting for their widths
    bool m_headerDone = false;
    int m_linesSinceRewind = 0;
};
