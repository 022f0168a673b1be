#include "ProgramOptions.h"

#include <QStringList>

#include <cstdio>

namespace ProgramOptions {

void quietMessages(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtCriticalMsg || type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", qUtf8Printable(text));
}

QList<int> numberList(const QString &text, int lowest, int highest, bool *ok)
{
    QList<int> numbers;
    *ok = true;
    for (const QString &item : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool number = false;
        const int n = item.trimmed().toInt(&number);
        *ok = *ok && number && n >= lowest && n <= highest;
        numbers.append(n);
    }
    return numbers;
}

} // namespace ProgramOptions
