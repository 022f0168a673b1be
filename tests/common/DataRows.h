#pragma once

// Data tables of typed rows, for test programs of every folder (it needs QtTest alone).

#include <QString>
#include <QTest>

#include <iterator>
#include <type_traits>

namespace TestSupport {

// A data table of one typed column "row" (fetch it with QFETCH(Row, row)) from
// an array of rows named by `name`, or by their `name` member. Row needs
// Q_DECLARE_METATYPE.
template <typename Rows, typename Name> void addRows(const Rows &rows, Name name)
{
    using Row = std::decay_t<decltype(*std::begin(rows))>;
    QTest::addColumn<Row>("row");
    for (const Row &row : rows)
        QTest::newRow(qPrintable(name(row))) << row;
}
template <typename Rows> void addRows(const Rows &rows)
{
    addRows(rows, [](const auto &row) { return QString::fromUtf8(row.name); });
}

} // namespace TestSupport
