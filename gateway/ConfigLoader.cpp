#include "ConfigLoader.h"

#include "ConfigChecks.h"
#include "Topics.h"
#include "host/DataType.h"
#include "link/SorvikProtocol.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>

#include <cmath>
#include <initializer_list>
#include <limits>

#include <toml++/toml.h>

namespace {

constexpr int kMostElements = SorvikProtocol::kTransferLimit - 1;

QString typeOf(const toml::node &node)
{
    switch (node.type()) {
    case toml::node_type::table: return QStringLiteral("a table");
    case toml::node_type::array: return QStringLiteral("an array");
    case toml::node_type::string: return QStringLiteral("a string");
    case toml::node_type::integer: return QStringLiteral("an integer");
    case toml::node_type::floating_point: return QStringLiteral("a float");
    case toml::node_type::boolean: return QStringLiteral("a boolean");
    case toml::node_type::date: return QStringLiteral("a date");
    case toml::node_type::time: return QStringLiteral("a time");
    case toml::node_type::date_time: return QStringLiteral("a date-time");
    default: return QStringLiteral("nothing");
    }
}

QString fromStd(std::string_view text)
{
    return QString::fromUtf8(text.data(), int(text.size()));
}

// Collects the errors of one file, each with its place.
class Reader
{
public:
    Reader(const QString &file, QStringList *errors)
        : m_file(file), m_base(QFileInfo(file).absoluteDir()), m_errors(errors)
    {
    }

    int errorCount() const { return m_count; }

    void error(const toml::source_region &at, const QString &message)
    {
        // The root table has no place of its own; its errors stand at the top.
        const int line = at.begin.line ? int(at.begin.line) : 1;
        const int column = at.begin.column ? int(at.begin.column) : 1;
        m_errors->append(QStringLiteral("%1:%2:%3: %4").arg(m_file).arg(line).arg(column).arg(message));
        ++m_count;
    }

    void onlyKeys(const toml::table &table, std::initializer_list<const char *> allowed, const QString &where)
    {
        QStringList names;
        for (const char *name : allowed)
            names << QLatin1String(name);
        for (auto &&[key, node] : table) {
            const QString name = fromStd(key.str());
            if (!names.contains(name))
                error(key.source(), QStringLiteral("unknown key \"%1\" in %2 (keys: %3)")
                                        .arg(name, where, names.join(QStringLiteral(", "))));
        }
    }

    // The node at key when `is` accepts its kind; null when it is absent or
    // (reported) of another kind.
    template <typename Is> const toml::node *typed(const toml::table &table, const char *key, Is is, const char *kind)
    {
        const toml::node *node = table.get(key);
        if (node && !(node->*is)()) {
            error(node->source(), QStringLiteral("\"%1\" must be %2, not %3")
                                      .arg(QLatin1String(key), QLatin1String(kind), typeOf(*node)));
            return nullptr;
        }
        return node;
    }

    // Each of these leaves *out alone when the key is absent, and reports a
    // value of the wrong type or range; they give true only for a good value.
    bool text(const toml::table &table, const char *key, QString *out)
    {
        const toml::node *node = typed(table, key, &toml::node::is_string, "a string");
        if (!node)
            return false;
        const QString value = fromStd(node->as_string()->get());
        for (const QChar c : value)
            if (c.category() == QChar::Other_Control) {
                error(node->source(), QStringLiteral("\"%1\" holds a control character").arg(key));
                return false;
            }
        *out = value;
        return true;
    }

    bool integer(const toml::table &table, const char *key, qint64 low, qint64 high, qint64 *out)
    {
        const toml::node *node = typed(table, key, &toml::node::is_integer, "an integer");
        if (!node)
            return false;
        const qint64 value = node->as_integer()->get();
        if (value < low || value > high) {
            error(node->source(),
                  QStringLiteral("\"%1\" must be from %2 to %3, not %4").arg(key).arg(low).arg(high).arg(value));
            return false;
        }
        *out = value;
        return true;
    }

    bool integer(const toml::table &table, const char *key, int low, int high, int *out)
    {
        qint64 value = 0;
        if (!integer(table, key, qint64(low), qint64(high), &value))
            return false;
        *out = int(value);
        return true;
    }

    bool number(const toml::table &table, const char *key, double *out)
    {
        const toml::node *node = typed(table, key, &toml::node::is_number, "a number");
        if (!node)
            return false;
        const double value = node->value<double>().value_or(std::numeric_limits<double>::quiet_NaN());
        if (!std::isfinite(value)) {
            error(node->source(), QStringLiteral("\"%1\" must be a finite number").arg(key));
            return false;
        }
        *out = value;
        return true;
    }

    bool boolean(const toml::table &table, const char *key, bool *out)
    {
        const toml::node *node = typed(table, key, &toml::node::is_boolean, "true or false");
        if (!node)
            return false;
        *out = node->as_boolean()->get();
        return true;
    }

    // A path relative to the directory of the configuration file; with
    // mustExist, a file that cannot be read is an error at the key.
    bool path(const toml::table &table, const char *key, bool mustExist, QString *out)
    {
        QString value;
        if (!text(table, key, &value))
            return false;
        const toml::node *node = table.get(key);
        if (value.isEmpty()) {
            error(node->source(), QStringLiteral("\"%1\" is empty").arg(key));
            return false;
        }
        value = QDir::cleanPath(m_base.absoluteFilePath(value));
        if (mustExist) {
            QFile file(value);
            if (!QFileInfo(value).isFile() || !file.open(QIODevice::ReadOnly)) {
                error(node->source(), QStringLiteral("\"%1\": cannot read %2%3")
                                          .arg(key, value,
                                               QFileInfo::exists(value) ? QStringLiteral(" (no readable file)")
                                                                        : QStringLiteral(" (no such file)")));
                return false;
            }
        }
        *out = value;
        return true;
    }

    // A sub-table, or null when it is absent or (reported) no table.
    const toml::table *table(const toml::table &parent, const char *key)
    {
        const toml::node *node = typed(parent, key, &toml::node::is_table, "a table");
        return node ? node->as_table() : nullptr;
    }

    // An array of tables ([[key]]), each element checked to be a table.
    QList<const toml::table *> tables(const toml::table &parent, const char *key)
    {
        QList<const toml::table *> list;
        const toml::node *node = parent.get(key);
        if (!node)
            return list;
        const toml::array *array = node->as_array();
        if (!array) {
            error(node->source(),
                  QStringLiteral("\"%1\" must be an array of tables ([[%1]]), not %2").arg(key, typeOf(*node)));
            return list;
        }
        for (const toml::node &element : *array) {
            if (element.is_table())
                list << element.as_table();
            else
                error(element.source(),
                      QStringLiteral("each entry of \"%1\" must be a table, not %2").arg(key, typeOf(element)));
        }
        return list;
    }

    void require(const toml::table &table, const char *key, const QString &where)
    {
        if (!table.get(key))
            error(table.source(), QStringLiteral("%1 needs \"%2\"").arg(where, key));
    }

    // A name that stands as one MQTT topic level.
    bool topicName(const toml::table &table, const char *key, const QString &where, QString *out)
    {
        require(table, key, where);
        QString value;
        if (!text(table, key, &value))
            return false;
        if (!Topics::isTopicLevel(value)) {
            error(table.get(key)->source(),
                  QStringLiteral("\"%1\" cannot be a topic level: it is empty, holds + # or /, or is one of "
                                 "status, heartbeat, write")
                      .arg(value));
            return false;
        }
        *out = value;
        return true;
    }

private:
    QString m_file;
    QDir m_base;
    QStringList *m_errors;
    int m_count = 0;
};

int line(const toml::node &node)
{
    return int(node.source().begin.line);
}

// The byte length the drive gives a transfer of `count` elements, by the
// area's group; 0 where it refuses one. Byte types on word, pair and string
// areas move whole elements only: the drive rounds their count down, which
// would leave the last bytes asked for unread.
int transferBytes(int area, int dataType, int count, QString *why)
{
    using namespace SorvikProtocol;
    const int size = dataTypeSize(dataType);
    if (dataType == TYPE_INT8 || dataType == TYPE_UINT8) {
        const int whole = isBitArea(area)     ? 1
                          : isWordArea(area)  ? 4
                          : isPairArea(area)  ? 2
                          : isBlockArea(area) ? 256
                                              : 0;
        if (whole == 0) {
            *why = QStringLiteral("byte types are not read from this area");
            return 0;
        }
        if (count % whole != 0) {
            *why = QStringLiteral("byte types move whole elements of %1 bytes here: count must be a multiple of %1")
                       .arg(whole);
            return 0;
        }
        return isBitArea(area) ? count * 8 : count;
    }
    if (dataType == TYPE_BOOL || dataType == TYPE_STRING)
        return count;
    return count * size;
}

void readBroker(Reader &r, const toml::table &table, BrokerConfig *broker)
{
    r.onlyKeys(table,
               {"host", "port", "client_id", "user", "password", "password_file", "ca_file", "cert_file", "key_file",
                "qos", "keepalive"},
               QStringLiteral("[broker]"));
    if (r.text(table, "host", &broker->host) && broker->host.isEmpty())
        r.error(table.get("host")->source(), QStringLiteral("\"host\" is empty"));
    r.integer(table, "port", 1, 65535, &broker->port);
    if (r.text(table, "client_id", &broker->clientId) && broker->clientId.isEmpty())
        r.error(table.get("client_id")->source(),
                QStringLiteral("\"client_id\" is empty; leave it out for the default"));
    r.text(table, "user", &broker->user);
    const bool password = r.text(table, "password", &broker->password);
    QString passwordFile;
    if (password && table.get("password_file")) {
        r.error(table.get("password_file")->source(),
                QStringLiteral("both \"password\" and \"password_file\" are given; keep one"));
    } else if (r.path(table, "password_file", true, &passwordFile)) {
        QFile file(passwordFile);
        file.open(QIODevice::ReadOnly);
        // The first line is the password; a final line break is no part of it.
        broker->password = QString::fromUtf8(file.readLine()).remove(QLatin1Char('\n')).remove(QLatin1Char('\r'));
        if (broker->password.isEmpty())
            r.error(table.get("password_file")->source(),
                    QStringLiteral("\"password_file\": %1 holds no password").arg(passwordFile));
    }
    if ((table.get("password") || table.get("password_file")) && !table.get("user"))
        r.error(table.source(), QStringLiteral("[broker] has a password but no \"user\""));
    r.path(table, "ca_file", true, &broker->caFile);
    r.path(table, "cert_file", true, &broker->certFile);
    r.path(table, "key_file", true, &broker->keyFile);
    if (table.get("cert_file") && !table.get("key_file"))
        r.error(table.get("cert_file")->source(), QStringLiteral("\"cert_file\" needs \"key_file\""));
    if (table.get("key_file") && !table.get("cert_file"))
        r.error(table.get("key_file")->source(), QStringLiteral("\"key_file\" needs \"cert_file\""));
    // A client certificate is only sent over TLS, and TLS needs the CA that
    // proves the broker: without it the certificate would be silently unused.
    if (table.get("cert_file") && !table.get("ca_file"))
        r.error(table.get("cert_file")->source(), QStringLiteral("\"cert_file\" needs \"ca_file\" (TLS)"));
    r.integer(table, "qos", 0, 2, &broker->qos);
    // libmosquitto refuses a keepalive below 5 s; 65535 is the protocol's limit.
    r.integer(table, "keepalive", 5, 65535, &broker->keepaliveSeconds);
}

void readBuffer(Reader &r, const toml::table &table, BufferConfig *buffer)
{
    r.onlyKeys(table, {"path", "max_bytes", "max_file_bytes"}, QStringLiteral("[buffer]"));
    r.require(table, "path", QStringLiteral("[buffer]"));
    // The queue file is made at the start; a folder that is not there would
    // only be found then, under systemd perhaps after the broker went away.
    if (r.path(table, "path", false, &buffer->path) && !QFileInfo(buffer->path).absoluteDir().exists())
        r.error(table.get("path")->source(),
                QStringLiteral("\"path\": the folder %1 does not exist").arg(QFileInfo(buffer->path).absolutePath()));
    qint64 maxBytes = 0;
    // Below a megabyte the queue would drop messages after seconds of an outage.
    if (r.integer(table, "max_bytes", qint64(1) << 20, qint64(1) << 40, &maxBytes))
        buffer->maxBytes = maxBytes;
    // A few SQLite pages below 64 KiB would leave no room for a message.
    r.integer(table, "max_file_bytes", qint64(64) << 10, qint64(1) << 40, &buffer->maxFileBytes);
}

void readReconnect(Reader &r, const toml::table &table, ReconnectPolicy *policy)
{
    r.onlyKeys(table, {"lost_after_cycles", "first_pause_ms", "longest_pause_ms"},
               QStringLiteral("[controllers.reconnect]"));
    r.integer(table, "lost_after_cycles", 1, 1000000, &policy->lostAfterCycles);
    r.integer(table, "first_pause_ms", 10, 3600000, &policy->firstPauseMs);
    r.integer(table, "longest_pause_ms", 10, 86400000, &policy->longestPauseMs);
    if (policy->longestPauseMs < policy->firstPauseMs) {
        const toml::node *at = table.get("longest_pause_ms") ? table.get("longest_pause_ms") : &table;
        r.error(at->source(), QStringLiteral("\"longest_pause_ms\" (%1) is shorter than \"first_pause_ms\" (%2)")
                                  .arg(policy->longestPauseMs)
                                  .arg(policy->firstPauseMs));
    }
}

void readTag(Reader &r, const toml::table &table, TagConfig *tag)
{
    r.onlyKeys(table, {"name", "tag", "type", "count", "unit", "scale", "offset", "deadband", "writable"},
               QStringLiteral("[[controllers.groups.tags]]"));
    tag->line = line(table);
    r.require(table, "name", QStringLiteral("a tag"));
    r.require(table, "tag", QStringLiteral("a tag"));
    r.require(table, "type", QStringLiteral("a tag"));
    if (r.text(table, "name", &tag->name) && tag->name.isEmpty())
        r.error(table.get("name")->source(), QStringLiteral("\"name\" is empty"));
    QString why;
    const bool tagGood = r.text(table, "tag", &tag->tag) && ConfigChecks::tag(tag->tag, &why);
    if (!tagGood && !why.isEmpty())
        r.error(table.get("tag")->source(), QStringLiteral("bad tag \"%1\": %2").arg(tag->tag, why));
    QString type;
    if (r.text(table, "type", &type)) {
        tag->dataType = ConfigChecks::typeFromName(type);
        if (tag->dataType == TYPE_NONE)
            r.error(table.get("type")->source(), QStringLiteral("unknown type \"%1\" (types: %2)")
                                                     .arg(type, ConfigChecks::typeNames().join(QLatin1Char(' '))));
    }
    const bool counted = r.integer(table, "count", 1, kMostElements, &tag->count);
    // A string tag is one text; what a count would cut it into is not defined.
    if (counted && tag->dataType == TYPE_STRING && tag->count != 1)
        r.error(table.get("count")->source(), QStringLiteral("a string tag is one text: \"count\" must be 1"));
    else if (counted && tagGood && tag->dataType != TYPE_NONE) {
        const SorvikProtocol::Area *area = nullptr;
        for (const SorvikProtocol::Area &known : SorvikProtocol::kAreas)
            if (tag->tag.startsWith(QLatin1String(known.prefix)) &&
                (!area || qstrlen(known.prefix) > qstrlen(area->prefix)))
                area = &known;
        const int bytes = area ? transferBytes(area->code, tag->dataType, tag->count, &why) : 0;
        if (bytes == 0 && area)
            r.error(
                table.get("count")->source(),
                QStringLiteral("count %1 of %2: %3").arg(tag->count).arg(ConfigChecks::typeName(tag->dataType), why));
        else if (bytes >= SorvikProtocol::kTransferLimit)
            r.error(table.get("count")->source(),
                    QStringLiteral("count %1 of %2 makes %3 bytes; one request carries at most %4")
                        .arg(tag->count)
                        .arg(ConfigChecks::typeName(tag->dataType))
                        .arg(bytes)
                        .arg(kMostElements));
    }
    r.text(table, "unit", &tag->unit);
    // Engineering units and deadbands apply to numbers; a bool or a text
    // would have to be made into one first, which the gateway never does.
    const bool numeric = tag->dataType > TYPE_BOOL && tag->dataType < TYPE_STRING;
    for (const char *key : {"scale", "offset", "deadband"}) {
        double value = 0;
        if (!r.number(table, key, &value))
            continue;
        if (tag->dataType != TYPE_NONE && !numeric) {
            r.error(
                table.get(key)->source(),
                QStringLiteral("\"%1\" applies to numbers, not to %2").arg(key, ConfigChecks::typeName(tag->dataType)));
            continue;
        }
        if (qstrcmp(key, "scale") == 0) {
            // A scale of 0 would turn every reading into the offset.
            if (value == 0)
                r.error(table.get(key)->source(), QStringLiteral("\"scale\" must not be 0"));
            tag->scale = value;
        } else if (qstrcmp(key, "offset") == 0) {
            tag->offset = value;
        } else if (value < 0) {
            r.error(table.get(key)->source(), QStringLiteral("\"deadband\" must not be negative"));
        } else {
            tag->deadband = value;
        }
    }
    r.boolean(table, "writable", &tag->writable);
}

void readGroup(Reader &r, const toml::table &table, ScanGroupConfig *group, QHash<QString, int> *tagNames)
{
    r.onlyKeys(table, {"name", "interval_ms", "tags"}, QStringLiteral("[[controllers.groups]]"));
    group->line = line(table);
    r.topicName(table, "name", QStringLiteral("a group"), &group->name);
    r.require(table, "interval_ms", QStringLiteral("a group"));
    r.integer(table, "interval_ms", 10, 86400000, &group->intervalMs);
    const QList<const toml::table *> tags = r.tables(table, "tags");
    if (tags.isEmpty() && !table.get("tags"))
        r.error(table.source(),
                QStringLiteral("group \"%1\" has no tags ([[controllers.groups.tags]])").arg(group->name));
    for (const toml::table *entry : tags) {
        TagConfig tag;
        readTag(r, *entry, &tag);
        if (!tag.name.isEmpty()) {
            if (tagNames->contains(tag.name))
                r.error(entry->get("name")->source(),
                        QStringLiteral("duplicate tag name \"%1\" in this controller (first at line %2)")
                            .arg(tag.name)
                            .arg(tagNames->value(tag.name)));
            else
                tagNames->insert(tag.name, tag.line);
        }
        group->tags << tag;
    }
}

void readController(Reader &r, const toml::table &table, ControllerConfig *controller)
{
    r.onlyKeys(table, {"name", "connection", "reconnect", "groups"}, QStringLiteral("[[controllers]]"));
    controller->line = line(table);
    r.topicName(table, "name", QStringLiteral("a controller"), &controller->name);
    r.require(table, "connection", QStringLiteral("a controller"));
    QString why;
    if (r.text(table, "connection", &controller->connection) && !ConfigChecks::connection(controller->connection, &why))
        r.error(table.get("connection")->source(),
                QStringLiteral("bad connection \"%1\": %2").arg(controller->connection, why));
    if (const toml::table *reconnect = r.table(table, "reconnect"))
        readReconnect(r, *reconnect, &controller->reconnect);
    const QList<const toml::table *> groups = r.tables(table, "groups");
    if (groups.isEmpty() && !table.get("groups"))
        r.error(table.source(),
                QStringLiteral("controller \"%1\" has no scan groups ([[controllers.groups]])").arg(controller->name));
    QHash<QString, int> groupNames;
    QHash<QString, int> tagNames;
    for (const toml::table *entry : groups) {
        ScanGroupConfig group;
        readGroup(r, *entry, &group, &tagNames);
        if (!group.name.isEmpty()) {
            if (groupNames.contains(group.name))
                r.error(entry->get("name")->source(),
                        QStringLiteral("duplicate group name \"%1\" in this controller (first at line %2)")
                            .arg(group.name)
                            .arg(groupNames.value(group.name)));
            else
                groupNames.insert(group.name, group.line);
        }
        controller->groups << group;
    }
}

void readRoot(Reader &r, const toml::table &root, GatewayConfig *config)
{
    r.onlyKeys(root, {"name", "read_only", "heartbeat_ms", "library", "metrics", "broker", "buffer", "controllers"},
               QStringLiteral("the top level"));
    r.topicName(root, "name", QStringLiteral("the gateway"), &config->name);
    r.boolean(root, "read_only", &config->readOnly);
    r.integer(root, "heartbeat_ms", 100, 86400000, &config->heartbeatMs);
    r.path(root, "library", true, &config->library);
    if (const toml::table *metrics = r.table(root, "metrics")) {
        r.onlyKeys(*metrics, {"address"}, QStringLiteral("[metrics]"));
        r.require(*metrics, "address", QStringLiteral("[metrics]"));
        QString why;
        if (r.text(*metrics, "address", &config->metricsAddress) &&
            !ConfigChecks::listenAddress(config->metricsAddress, &why))
            r.error(metrics->get("address")->source(),
                    QStringLiteral("bad address \"%1\": %2").arg(config->metricsAddress, why));
    }
    if (const toml::table *broker = r.table(root, "broker"))
        readBroker(r, *broker, &config->broker);
    if (config->broker.clientId.isEmpty() && !config->name.isEmpty())
        config->broker.clientId = QStringLiteral("sorvik-gateway-") + config->name;
    const toml::table *buffer = r.table(root, "buffer");
    if (buffer)
        readBuffer(r, *buffer, &config->buffer);
    else if (!root.get("buffer"))
        r.error(root.source(), QStringLiteral("the gateway needs a [buffer] with its \"path\""));

    const QList<const toml::table *> controllers = r.tables(root, "controllers");
    if (controllers.isEmpty() && !root.get("controllers"))
        r.error(root.source(), QStringLiteral("no controllers ([[controllers]])"));
    QHash<QString, int> names;
    QHash<QString, int> endpoints;
    for (const toml::table *entry : controllers) {
        ControllerConfig controller;
        readController(r, *entry, &controller);
        if (!controller.name.isEmpty()) {
            if (names.contains(controller.name))
                r.error(entry->get("name")->source(),
                        QStringLiteral("duplicate controller name \"%1\" (first at line %2)")
                            .arg(controller.name)
                            .arg(names.value(controller.name)));
            else
                names.insert(controller.name, controller.line);
        }
        // Each drive binds its controller's address and local port 500, so two
        // controllers on one address (or one serial port) would take each
        // other's replies.
        QString why;
        if (ConfigChecks::connection(controller.connection, &why)) {
            const QString endpoint = ConfigChecks::connectionEndpoint(controller.connection);
            if (endpoints.contains(endpoint))
                r.error(entry->get("connection")->source(),
                        QStringLiteral("%1 is the address of the controller at line %2 already; each controller "
                                       "needs an address (or serial port) of its own")
                            .arg(endpoint)
                            .arg(endpoints.value(endpoint)));
            else
                endpoints.insert(endpoint, controller.line);
        }
        config->controllers << controller;
    }
}

} // namespace

bool ConfigLoader::parse(const QByteArray &text, const QString &file, GatewayConfig *config, QStringList *errors)
{
    *config = GatewayConfig();
    const int before = errors->size();
    Reader reader(file, errors);
    try {
        const toml::table root =
            toml::parse(std::string_view(text.constData(), size_t(text.size())), std::string_view(file.toStdString()));
        readRoot(reader, root, config);
    } catch (const toml::parse_error &failure) {
        QString description = fromStd(failure.description());
        // The parser quotes what it saw, which in a file with a password may
        // be a piece of it: the position is enough to find the fault.
        if (text.contains("password"))
            description = description.section(QLatin1Char('\''), 0, 0)
                              .remove(QRegularExpression(QStringLiteral("[,;]?\\s*saw\\s*$")));
        reader.error(failure.source(), description);
    }
    return errors->size() == before;
}

bool ConfigLoader::load(const QString &file, GatewayConfig *config, QStringList *errors)
{
    QFile input(file);
    if (!input.open(QIODevice::ReadOnly)) {
        errors->append(QStringLiteral("%1: cannot read: %2").arg(file, input.errorString()));
        return false;
    }
    return parse(input.readAll(), file, config, errors);
}
