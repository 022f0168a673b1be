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
    // Rows go out as they come, also in a table, whose columns then take
    // these widths (a wider cell pushes the rest of its row along).
    void setStreaming(const QVector<int> &widths);
    // On a terminal of this many columns, a redraw that would wrap a line
    // falls back to appending (the cursor cannot climb wrapped lines).
    void setTerminalColumns(int columns) { m_terminalColumns = columns; }
    void addRow(const QVector<Cell> &cells);
    // Ends a table: prints the aligned rows; CSV and JSON rows are out already.
    void endTable();
    void addNote(const QString &key, const QString &sentence, const Fields &fields = {});
    // On a terminal: the next output replaces what was printed since the last call.
    void rewind();

    OutputFormat format() const { return m_format; }

private:
    void printLine(const QString &line);
    void printTableLine(const QVector<int> &widths, const QStringList &fields);

    OutputFormat m_format;
    QTextStream &m_out;
    QTextStream &m_err;
    QStringList m_columns;
    QVector<QVector<Cell>> m_pending; // table rows waiting for their widths
    bool m_headerDone = false;
    int m_linesSinceRewind = 0;
    bool m_streaming = false;
    QVector<int> m_widths; // of a streamed table
    int m_terminalColumns = 0;
    bool m_wrapped = false; // a line since the last rewind was too wide for the terminal
};
