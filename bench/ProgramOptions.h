#pragma once

// What the benchmark programs share on their command line.

#include <QList>
#include <QString>
#include <QtGlobal>

namespace ProgramOptions {

// The drive's own lines (lost replies are logged as warnings) and the
// simulator's would drown the tables: only critical ones pass, unless a
// program's --verbose leaves the handler out.
void quietMessages(QtMsgType type, const QMessageLogContext &context, const QString &text);

// "1,3,5": numbers from lowest to highest; *ok false on anything else. An
// empty text is an empty list, and ok.
QList<int> numberList(const QString &text, int lowest, int highest, bool *ok);

} // namespace ProgramOptions
