#include "Presence.h"

#include "Console.h"
#include "Plural.h"

void Presence::cycle(bool anyGood)
{
    if (anyGood) {
        if (m_lost)
            Console::error(QStringLiteral("controller back after %1").arg(plural(m_silentCycles, "cycle", "cycles")));
        m_lost = false;
        m_silentCycles = 0;
        return;
    }
    if (++m_silentCycles == kLostAfterCycles) {
        m_lost = true;
        Console::error(
            QStringLiteral("controller lost: no good reply for %1").arg(plural(kLostAfterCycles, "cycle", "cycles")));
    }
}
