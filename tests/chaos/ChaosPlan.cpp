#include "ChaosPlan.h"

#include "sim/SimPresets.h"
#include "sim/SimSelfDescribing.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

struct AreaChoice {
    const char *prefix;
    int elements;
    QStringList types;
};

// Every group of area and the types a plant reads there; the 8-byte types
// span two words.
const QList<AreaChoice> &areaChoices()
{
    static const QStringList word{"int32", "uint32", "float", "int16", "uint16"};
    static const QStringList wide = QStringList(word) << "int64"
                                                      << "uint64"
                                                      << "double";
    static const QList<AreaChoice> choices{
        {"AI", 80, word},      {"AO", 80, word},      {"NAI", 2000, wide},     {"NAO", 2000, wide},
        {"LW", 2000, wide},    {"LA", 500, word},     {"HAI", 500, word},      {"SA", 320, {"int16", "uint16"}},
        {"DI", 240, {"bool"}}, {"DO", 160, {"bool"}}, {"NDI", 2000, {"bool"}}, {"LD", 2000, {"bool"}},
        {"SI", 5, {"string"}},
    };
    return choices;
}

int widthOf(const QString &type)
{
    if (type == QLatin1String("int16") || type == QLatin1String("uint16"))
        return 2;
    if (type == QLatin1String("int64") || type == QLatin1String("uint64") || type == QLatin1String("double"))
        return 8;
    return type == QLatin1String("bool") ? 1 : 4;
}

// A number as the gateway writes it: integers beyond 2^53 and non-finite
// numbers as text, so that nothing arrives as a neighbour of itself.
QJsonValue jsonNumber(double value)
{
    if (std::isnan(value))
        return QStringLiteral("nan");
    if (std::isinf(value))
        return value > 0 ? QStringLiteral("inf") : QStringLiteral("-inf");
    return value;
}

template <typename T> QJsonValue jsonInteger(T value)
{
    constexpr double kExact = 9007199254740992.0;
    if (double(value) >= kExact || double(value) <= -kExact)
        return QString::number(value);
    return double(value);
}

QJsonValue decode(const QString &type, const uchar *p)
{
    if (type == QLatin1String("int16"))
        return double(qFromLittleEndian<qint16>(p));
    if (type == QLatin1String("uint16"))
        return double(qFromLittleEndian<quint16>(p));
    if (type == QLatin1String("int32"))
        return double(qFromLittleEndian<qint32>(p));
    if (type == QLatin1String("uint32"))
        return double(qFromLittleEndian<quint32>(p));
    if (type == QLatin1String("float"))
        return jsonNumber(double(qFromLittleEndian<float>(p)));
    if (type == QLatin1String("double"))
        return jsonNumber(qFromLittleEndian<double>(p));
    if (type == QLatin1String("int64"))
        return jsonInteger(qFromLittleEndian<qint64>(p));
    if (type == QLatin1String("uint64"))
        return jsonInteger(qFromLittleEndian<quint64>(p));
    return bool(*p);
}

QString text(const QJsonValue &value)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
}

} // namespace

bool ChaosTag::matches(int id, const QJsonValue &entry, QString *why) const
{
    const QJsonObject object = entry.toObject();
    const QJsonValue got = object.value(scale != 0 ? QLatin1String("raw") : QLatin1String("value"));
    SimPreset place;
    QJsonValue expected;
    if (type == QLatin1String("string")) {
        expected = SimSelfDescribing::text(id, tag.mid(2).toInt());
    } else if (SimPresets::parse(tag + QStringLiteral("=uint8:0"), &place, nullptr)) {
        const int width = widthOf(type);
        const QByteArray bytes = SimSelfDescribing::bytes(id, place.area, place.address, width * count);
        QJsonArray elements;
        for (int i = 0; i + width <= bytes.size(); i += width)
            elements.append(decode(type, reinterpret_cast<const uchar *>(bytes.constData()) + i));
        expected = count > 1 ? QJsonValue(elements) : elements.first();
    }
    bool good = got == expected;
    if (good && scale != 0) {
        // The engineering value, computed as the gateway computes it.
        const double value = got.toDouble() * scale + offset;
        good = object.value(QLatin1String("value")) == QJsonValue(value);
    }
    if (!good && why)
        *why = QStringLiteral("%1 (%2 %3) of controller %4 carried %5, its address holds %6")
                   .arg(name, tag, type)
                   .arg(id)
                   .arg(text(QJsonValue(object)), text(expected));
    return good;
}

const ChaosTag *ChaosController::tag(const QString &group, const QString &name) const
{
    for (const ChaosGroup &g : groups)
        if (g.name == group)
            for (const ChaosTag &t : g.tags)
                if (t.name == name)
                    return &t;
    return nullptr;
}

int ChaosPlan::longestIntervalMs() const
{
    int longest = 0;
    for (const ChaosController &c : controllers)
        for (const ChaosGroup &g : c.groups)
            longest = qMax(longest, g.intervalMs);
    return longest;
}

// A lost reply (about 0.55 s), the late window (1 s), two failed handshakes
// (about 1.1 s) and the cycles that count, with room for a busy machine.
qint64 ChaosPlan::lostBoundMs() const
{
    return 550 + 1000 + 1100 + (kLostAfterCycles + 1) * longestIntervalMs() + 2000;
}

// The longest pause, an attempt already under way, a cycle, and room.
qint64 ChaosPlan::onlineBoundMs() const
{
    return kLongestPauseMs + 1100 + longestIntervalMs() + 3000;
}

ChaosPlan ChaosPlan::make(quint32 seed, int seconds, int count)
{
    ChaosPlan plan;
    plan.seed = seed;
    plan.seconds = seconds;
    std::mt19937 random(seed);
    auto below = [&](int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random); };
    auto between = [&](int low, int high) { return low + below(high - low + 1); };

    for (int k = 0; k < count; ++k) {
        ChaosController c;
        c.id = k + 1;
        c.name = QStringLiteral("c%1").arg(c.id);
        // Faults the drive and the gateway must see through: lost replies,
        // replies of another identity, and replies late but within the
        // gateway's late window (the drive gives up at about 0.55 s).
        const QString simSeed = QString::number(quint64(seed) * 1000 + quint64(c.id));
        c.faults << QStringLiteral("--seed") << simSeed << QStringLiteral("--drop") << QStringLiteral("0.01")
                 << QStringLiteral("--wrong-identity") << QStringLiteral("0.01");
        if (k % 3 == 0)
            c.faults << QStringLiteral("--late-share") << QStringLiteral("0.01:%1").arg(between(650, 1200));
        if (k % 4 == 1)
            c.faults << QStringLiteral("--delay") << QString::number(between(5, 40));
        QSet<QString> names;
        for (int g = 0; g < 2; ++g) {
            ChaosGroup group;
            group.name = g == 0 ? QStringLiteral("fast") : QStringLiteral("slow");
            group.intervalMs = g == 0 ? between(200, 400) : between(450, 700);
            const int tags = between(3, 7);
            while (group.tags.size() < tags) {
                const AreaChoice &area = areaChoices().at(below(areaChoices().size()));
                ChaosTag t;
                t.type = area.types.at(below(area.types.size()));
                const int span = widthOf(t.type) == 8 ? 2 : 1;
                t.tag =
                    QStringLiteral("%1%2").arg(QLatin1String(area.prefix)).arg(between(1, area.elements - span + 1));
                t.name = t.tag.toLower() + QLatin1Char('_') + t.type;
                if (t.type == QLatin1String("int32") && below(3) == 0) {
                    t.scale = 0.5;
                    t.offset = 100;
                }
                if (!names.contains(t.name)) {
                    names.insert(t.name);
                    group.tags << t;
                }
            }
            c.groups << group;
        }
        // A tag of several elements, read on its own request each cycle.
        ChaosTag counted;
        counted.tag = QStringLiteral("NAI%1").arg(between(1, 1990));
        counted.type = QStringLiteral("int32");
        counted.count = 3;
        counted.name = counted.tag.toLower() + QStringLiteral("_x3");
        if (!names.contains(counted.name))
            c.groups[1].tags << counted;
        plan.controllers << c;
    }
    // The counted phase: two controllers cut their replies short (to the
    // head and 8 bytes of data), two send every reply twice.
    for (int k = 0; k < qMin(4, count); ++k)
        plan.controllers[k * count / qMin(4, count)].counted =
            k % 2 == 0 ? QStringList{QStringLiteral("--truncate"), QStringLiteral("12")}
                       : QStringList{QStringLiteral("--extra-datagram")};

    // The counted phase takes a sixth of the run, at least 10 s; the events
    // of the checked phase follow each other, the first three one of each kind.
    plan.checkedMs = qint64(seconds) * 1000 - qMax<qint64>(10000, qint64(seconds) * 1000 / 6);
    QList<ChaosEvent::Kind> kinds{ChaosEvent::KillSimulators, ChaosEvent::KillBroker,
                                  ChaosEvent::KillGatewayWithoutBroker, ChaosEvent::KillGateway};
    std::shuffle(kinds.begin(), kinds.end() - 1, random);
    qint64 at = between(2000, 3000);
    for (int n = 0;; ++n) {
        ChaosEvent event;
        // A long run's fifth event is a long outage of the broker.
        const bool longOutage = seconds >= 300 && n == kinds.size();
        event.kind = n < kinds.size() ? kinds.at(n) : longOutage ? ChaosEvent::KillBroker : ChaosEvent::Kind(below(4));
        event.atMs = at;
        switch (event.kind) {
        case ChaosEvent::KillSimulators:
            // Either back before the gateway may call it lost, or down long
            // enough that it must.
            event.downMs = below(2) == 0 ? between(1000, 3000) : plan.lostBoundMs() + between(500, 1500);
            for (int i = between(1, 3); i > 0; --i) {
                const int k = below(count);
                if (!event.controllers.contains(k))
                    event.controllers << k;
            }
            break;
        case ChaosEvent::KillBroker:
            // A long run also has outages that outgrow the queue's 1 MiB, so
            // that messages are dropped, oldest first, and counted.
            event.downMs = longOutage || (seconds >= 300 && below(4) == 0) ? between(30000, 45000) : between(500, 5000);
            break;
        case ChaosEvent::KillGateway: event.downMs = between(100, 2000); break;
        case ChaosEvent::KillGatewayWithoutBroker: event.downMs = between(2500, 4000); break;
        }
        const bool broker = event.kind == ChaosEvent::KillBroker || event.kind == ChaosEvent::KillGatewayWithoutBroker;
        // The next event waits until the checks of this one are due.
        const qint64 end = at + event.downMs + plan.onlineBoundMs() + (broker ? 4000 : 500);
        if (end > plan.checkedMs - 2000)
            break;
        plan.events << event;
        at = end + between(300, 1500);
    }
    return plan;
}

QString ChaosPlan::gatewayConfig(int brokerPort, const QString &queuePath) const
{
    QString toml;
    auto line = [&toml](const QString &text) { toml += text + QLatin1Char('\n'); };
    line(QStringLiteral("name = \"chaos\""));
    line(QStringLiteral("heartbeat_ms = 1000"));
    line(QStringLiteral("[broker]\nhost = \"127.0.0.1\"\nport = %1\nqos = 1\nkeepalive = 5").arg(brokerPort));
    line(QStringLiteral("[buffer]\npath = \"%1\"\nmax_bytes = 1048576").arg(queuePath));
    for (const ChaosController &c : controllers) {
        line(QStringLiteral("[[controllers]]\nname = \"%1\"\nconnection = \"%2:%3\"").arg(c.name, c.address).arg(6000));
        line(QStringLiteral("[controllers.reconnect]\nlost_after_cycles = %1\nfirst_pause_ms = %2\n"
                            "longest_pause_ms = %3")
                 .arg(kLostAfterCycles)
                 .arg(kFirstPauseMs)
                 .arg(kLongestPauseMs));
        for (const ChaosGroup &g : c.groups) {
            line(QStringLiteral("[[controllers.groups]]\nname = \"%1\"\ninterval_ms = %2")
                     .arg(g.name)
                     .arg(g.intervalMs));
            for (const ChaosTag &t : g.tags) {
                line(QStringLiteral("[[controllers.groups.tags]]\nname = \"%1\"\ntag = \"%2\"\ntype = \"%3\"")
                         .arg(t.name, t.tag, t.type));
                if (t.count > 1)
                    line(QStringLiteral("count = %1").arg(t.count));
                if (t.scale != 0)
                    line(QStringLiteral("scale = %1\noffset = %2").arg(t.scale).arg(t.offset));
            }
        }
    }
    return toml;
}
