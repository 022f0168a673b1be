#pragma once

// The one table the benchmark prints: each measurement with its median and
// 99th percentile, beside the floor it is held against, their ratio and the
// goals it has to meet. The last line sums up the goals.

#include "Samples.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <cmath>
#include <limits>
#include <utility>

class QTextStream;

enum class Unit { Time, Rate, Count, Bytes }; // Time in nanoseconds, Rate per second

struct Goal {
    enum class On { Ratio, Value }; // the ratio to the floor, or the median itself
    enum class Compare { AtMost, Below, Equal };
    On on = On::Ratio;
    Compare compare = Compare::AtMost;
    double limit = 1;

    static Goal ratioAtMost(double limit) { return {On::Ratio, Compare::AtMost, limit}; }
    static Goal ratioBelow(double limit) { return {On::Ratio, Compare::Below, limit}; }
    static Goal ratioEquals(double limit) { return {On::Ratio, Compare::Equal, limit}; }
    static Goal valueAtMost(double limit) { return {On::Value, Compare::AtMost, limit}; }
};

struct Line {
    Line(int row, QString measurement, Unit unit, Summary value, QString floorName = QString(),
         Summary floor = Summary())
        : row(row), measurement(std::move(measurement)), unit(unit), value(value), floorName(std::move(floorName)),
          floor(floor)
    {
    }

    int row = 0;
    QString measurement;
    Unit unit = Unit::Time;
    Summary value;
    QString floorName; // empty when the line stands alone
    Summary floor;
    double ratio = std::numeric_limits<double>::quiet_NaN(); // value / floor medians unless set otherwise
    QList<Goal> goals;
    QString note;

    bool hasRatio() const { return !std::isnan(ratio); }
};

// How far a goal is used up: 1 is exactly at its limit (met, unless the goal
// is to stay below it), above 1 missed.
double goalMargin(const Line &line, const Goal &goal);
bool goalMet(const Line &line, const Goal &goal);

class Table
{
public:
    // Adds a line; the ratio of the two medians is taken when the line has a
    // floor and no ratio of its own.
    void add(Line line);
    void skip(int row, const QString &what, const QString &reason);
    void setHeader(const QStringList &lines) { m_header = lines; }

    const QList<Line> &lines() const { return m_lines; }
    QStringList skipped() const { return m_skipped; }

    void print(QTextStream &out) const;
    QString summaryLine() const;

private:
    QStringList m_header;
    QList<Line> m_lines;
    QStringList m_skipped;
};

QString formatFigure(double value, Unit unit);

// Rows of cells in columns as wide as their widest cell, two spaces apart.
void printRows(QTextStream &out, const QList<QStringList> &rows);
