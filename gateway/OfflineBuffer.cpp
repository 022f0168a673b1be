#include "OfflineBuffer.h"

#include "Topics.h"

#include <QAtomicInteger>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

namespace {
Q_LOGGING_CATEGORY(lcBuffer, "sorvik.gateway.buffer")

// Marks a SQLite file as this gateway's queue ("SRVQ"), so that a database of
// something else given by mistake is never taken over and emptied.
constexpr qint64 kApplicationId = 0x53525651;

// SQLite's result code for a full disk (or a file at its max_page_count), as
// Qt's driver reports it.
const QLatin1String kSqliteFull("13");

QString nextConnectionName()
{
    static QAtomicInteger<quint64> counter;
    return QStringLiteral("sorvik-gateway-buffer-%1").arg(++counter);
}

qint64 entryBytes(const QString &topic, const QByteArray &payload)
{
    return topic.toUtf8().size() + payload.size();
}

bool failed(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}
} // namespace

OfflineBuffer::OfflineBuffer(const QString &path, qint64 maxBytes, qint64 maxFileBytes)
    : m_path(path), m_maxBytes(maxBytes), m_maxFileBytes(maxFileBytes), m_connection(nextConnectionName())
{
}

OfflineBuffer::~OfflineBuffer()
{
    close();
}

bool OfflineBuffer::isOpen() const
{
    // Set only when open succeeded, cleared by close: no look-up in Qt's
    // connection registry per message.
    return m_insert != nullptr;
}

void OfflineBuffer::close()
{
    // Statements hold the connection open; they go before it.
    m_insert.reset();
    m_remove.reset();
    if (!QSqlDatabase::contains(m_connection))
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(m_connection, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
}

bool OfflineBuffer::open(QString *error, bool startAfresh)
{
    close();
    m_movedAside.clear();
    // SQLite would take an empty name as a private temporary database: a
    // queue that silently vanishes with the process.
    if (m_path.isEmpty())
        return failed(error, QStringLiteral("the offline queue needs a file"));
    bool unusable = false;
    if (tryOpen(&unusable, error))
        return true;
    if (!unusable || !startAfresh)
        return false;
    qCWarning(lcBuffer).noquote() << *error;
    if (!moveAside(error) || !tryOpen(&unusable, error))
        return false;
    qCWarning(lcBuffer).noquote()
        << QStringLiteral("the unusable queue file was moved aside as %1; a new queue begins").arg(m_movedAside);
    return true;
}

bool OfflineBuffer::tryOpen(bool *unusable, QString *error)
{
    const QFileInfo file(m_path);
    // SQLite would say only that it cannot open it.
    if (file.exists() && !file.isFile()) {
        *unusable = true;
        return failed(error, QStringLiteral("the offline queue %1 is a folder or a device, not a file").arg(m_path));
    }
    // Not ours to move aside: the gateway's user may read it once given the right.
    if (file.exists() && !file.isReadable())
        return failed(error, QStringLiteral("cannot read the offline queue %1: permission denied").arg(m_path));
    if (openDatabase(error) && checkOrCreate(unusable, error))
        return true;
    close();
    return false;
}

bool OfflineBuffer::openDatabase(QString *error)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    db.setDatabaseName(m_path);
    if (!db.open())
        return failed(error, QStringLiteral("cannot open the offline queue %1: %2").arg(m_path, db.lastError().text()));
    return true;
}

bool OfflineBuffer::checkOrCreate(bool *unusable, QString *error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    QSqlQuery query(db);
    // Reading only until the file has shown it is ours.
    if (!query.exec(QStringLiteral("PRAGMA quick_check")) || !query.next()) {
        *unusable = true;
        return failed(error, QStringLiteral("the offline queue %1 is not a readable SQLite database: %2")
                                 .arg(m_path, query.lastError().text()));
    }
    if (query.value(0).toString() != QLatin1String("ok")) {
        // SQLite's first findings are enough to tell what happened.
        QStringList findings{query.value(0).toString()};
        while (findings.size() < 4 && query.next())
            findings << query.value(0).toString();
        *unusable = true;
        const QString said = findings.join('\n').split('\n', Qt::SkipEmptyParts).mid(0, 4).join(QStringLiteral("; "));
        return failed(error, QStringLiteral("the offline queue %1 is damaged: %2").arg(m_path, said));
    }
    query.exec(QStringLiteral("PRAGMA application_id"));
    const qint64 applicationId = query.next() ? query.value(0).toLongLong() : -1;
    query.exec(QStringLiteral("SELECT count(*) FROM sqlite_master"));
    const qint64 objects = query.next() ? query.value(0).toLongLong() : -1;

    if (applicationId == 0 && objects == 0) {
        if (!exec(QStringLiteral("PRAGMA application_id = %1").arg(kApplicationId)) ||
            !exec(QStringLiteral("CREATE TABLE queue (id INTEGER PRIMARY KEY AUTOINCREMENT, topic TEXT NOT NULL, "
                                 "payload BLOB NOT NULL)")))
            return failed(error, QStringLiteral("cannot create the offline queue %1: %2").arg(m_path, m_error));
    } else if (applicationId != kApplicationId) {
        *unusable = true;
        return failed(
            error,
            QStringLiteral("%1 is an SQLite database of something else, not a gateway's offline queue").arg(m_path));
    }
    if (!query.exec(QStringLiteral("SELECT count(*), coalesce(sum(length(CAST(topic AS BLOB)) + length(payload)), 0) "
                                   "FROM queue")) ||
        !query.next()) {
        *unusable = true;
        return failed(error, QStringLiteral("the offline queue %1 has no readable queue table: %2")
                                 .arg(m_path, query.lastError().text()));
    }
    m_count = query.value(0).toLongLong();
    m_bytes = query.value(1).toLongLong();
    m_handedOut = 0;
    // WAL: appends do not wait for readers and survive a crash of the gateway.
    // NORMAL syncs the disk at checkpoints rather than per message: a power
    // cut may cost the last moments of a queue, a crashed gateway nothing.
    query.exec(QStringLiteral("PRAGMA journal_mode = WAL"));
    if (!query.next() || query.value(0).toString().compare(QLatin1String("wal"), Qt::CaseInsensitive) != 0)
        return failed(error, QStringLiteral("the offline queue %1 cannot use write-ahead logging").arg(m_path));
    exec(QStringLiteral("PRAGMA synchronous = NORMAL"));
    query.exec(QStringLiteral("PRAGMA page_size"));
    if (query.next() && query.value(0).toLongLong() > 0)
        m_pageSize = query.value(0).toLongLong();
    // SQLite keeps the cap no lower than what the file already holds.
    if (m_maxFileBytes > 0)
        exec(QStringLiteral("PRAGMA max_page_count = %1").arg(qMax<qint64>(1, m_maxFileBytes / m_pageSize)));
    // A statement that fails to prepare fails at its first use, with the reason.
    m_insert = std::make_unique<QSqlQuery>(db);
    m_insert->prepare(QStringLiteral("INSERT INTO queue (topic, payload) VALUES (?, ?)"));
    m_remove = std::make_unique<QSqlQuery>(db);
    m_remove->prepare(QStringLiteral("DELETE FROM queue WHERE id = ?"));
    if (m_count > 0)
        qCInfo(lcBuffer).noquote()
            << QStringLiteral("resuming the offline queue %1: %2 messages waiting").arg(m_path).arg(m_count);
    return true;
}

bool OfflineBuffer::moveAside(QString *error)
{
    const QString stamp = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMddThhmmsszzzZ"));
    const QString target = m_path + QStringLiteral(".corrupt-") + stamp;
    // QDir: a folder in the queue's place moves as a file does.
    if (!QDir().rename(m_path, target))
        return failed(error, QStringLiteral("cannot move the unusable offline queue %1 aside").arg(m_path));
    // SQLite's companion files belong to the old file, never to the new queue.
    for (const QString &suffix : {QStringLiteral("-wal"), QStringLiteral("-shm")})
        if (QFileInfo::exists(m_path + suffix))
            QFile::rename(m_path + suffix, target + suffix);
    m_movedAside = target;
    return true;
}

bool OfflineBuffer::exec(const QString &statement)
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    if (query.exec(statement))
        return true;
    m_error = query.lastError().text();
    return false;
}

bool OfflineBuffer::append(const QString &topic, const QByteArray &payload, int *dropped)
{
    *dropped = 0;
    m_diskFull = false;
    if (!m_insert) {
        m_error = QStringLiteral("the offline queue is not open");
        return false;
    }
    const qint64 size = entryBytes(topic, payload);
    m_insert->bindValue(0, topic);
    m_insert->bindValue(1, payload);
    while (!m_insert->exec()) {
        m_error = m_insert->lastError().text();
        // SQLITE_FULL: the disk, or the file's cap. Pages freed by the oldest
        // rows are taken again by new ones; a few pages at a time, so that
        // a full disk costs a batch now and then rather than work per message.
        if (m_insert->lastError().nativeErrorCode() != kSqliteFull)
            return false;
        m_diskFull = true;
        const int freed = dropOldest(m_bytes - qMax(4 * m_pageSize, 2 * size));
        if (freed == 0) {
            m_error = QStringLiteral("the disk is full and no queued message is left to make room");
            return false;
        }
        *dropped += freed;
    }
    ++m_count;
    m_bytes += size;
    if (m_bytes > m_maxBytes)
        *dropped += dropOldest(m_maxBytes);
    return true;
}

// Drops the oldest messages not handed out until at most keepBytes are queued.
int OfflineBuffer::dropOldest(qint64 keepBytes)
{
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT id, length(CAST(topic AS BLOB)) + length(payload) FROM queue WHERE id > ? "
                                 "ORDER BY id"));
    query.addBindValue(m_handedOut);
    if (!query.exec())
        return 0;
    qint64 lastId = -1;
    qint64 freed = 0;
    int rows = 0;
    while (m_bytes - freed > keepBytes && query.next()) {
        lastId = query.value(0).toLongLong();
        freed += query.value(1).toLongLong();
        ++rows;
    }
    query.finish();
    if (rows == 0)
        return 0;
    QSqlQuery drop(db);
    drop.prepare(QStringLiteral("DELETE FROM queue WHERE id > ? AND id <= ?"));
    drop.addBindValue(m_handedOut);
    drop.addBindValue(lastId);
    if (!drop.exec()) {
        m_error = drop.lastError().text();
        return 0;
    }
    m_count -= rows;
    m_bytes -= freed;
    return rows;
}

std::optional<OfflineBuffer::Entry> OfflineBuffer::decode(const QVariant &id, const QVariant &topic,
                                                          const QVariant &payload, QString *why)
{
    if (id.userType() != QMetaType::LongLong || id.toLongLong() < 1) {
        *why = QStringLiteral("its id is no positive integer");
        return std::nullopt;
    }
    if (topic.userType() != QMetaType::QString || payload.userType() != QMetaType::QByteArray) {
        *why = QStringLiteral("its topic is no text or its payload no bytes");
        return std::nullopt;
    }
    const QString text = topic.toString();
    const QStringList levels = text.split(QLatin1Char('/'));
    bool inTree = levels.size() == 4 && levels.at(0) == QLatin1String("sorvik");
    for (int i = 1; inTree && i < levels.size(); ++i)
        inTree = Topics::isTopicLevel(levels.at(i));
    // MQTT carries topics of valid UTF-8 up to 65535 bytes, payloads up to 256 MiB.
    if (!inTree || !QStringView(text).isValidUtf16() || text.toUtf8().size() > 65535) {
        *why = QStringLiteral("its topic is no data topic of a gateway");
        return std::nullopt;
    }
    const QByteArray bytes = payload.toByteArray();
    if (bytes.size() > 268435455) {
        *why = QStringLiteral("its payload is longer than MQTT carries");
        return std::nullopt;
    }
    return Entry{id.toLongLong(), text, bytes};
}

QList<OfflineBuffer::Entry> OfflineBuffer::after(qint64 id, int limit)
{
    QList<Entry> entries;
    QList<QPair<qint64, qint64>> damaged; // id and bytes
    // A batch of damaged rows alone must not look like the end of the queue;
    // each pass starts after the last row seen, so this ends.
    do {
        damaged.clear();
        QSqlQuery query(QSqlDatabase::database(m_connection, false));
        query.setForwardOnly(true);
        query.prepare(QStringLiteral("SELECT id, topic, payload, length(CAST(topic AS BLOB)) + length(payload) "
                                     "FROM queue WHERE id > ? ORDER BY id LIMIT ?"));
        query.addBindValue(id);
        query.addBindValue(limit);
        if (!query.exec()) {
            m_error = query.lastError().text();
            return entries;
        }
        while (query.next()) {
            id = query.value(0).toLongLong();
            QString why;
            if (const std::optional<Entry> entry = decode(query.value(0), query.value(1), query.value(2), &why)) {
                entries.append(*entry);
                continue;
            }
            qCWarning(lcBuffer).noquote()
                << QStringLiteral("offline queue %1: row %2 dropped, %3").arg(m_path).arg(id).arg(why);
            damaged.append({id, query.value(3).toLongLong()});
        }
        query.finish();
        for (const auto &[row, bytes] : qAsConst(damaged)) {
            m_remove->bindValue(0, row);
            if (m_remove->exec() && m_remove->numRowsAffected() == 1) {
                --m_count;
                m_bytes -= bytes;
            }
        }
    } while (entries.isEmpty() && !damaged.isEmpty());
    return entries;
}

void OfflineBuffer::remove(const Entry &entry)
{
    if (!m_remove)
        return;
    m_remove->bindValue(0, entry.id);
    if (!m_remove->exec()) {
        m_error = m_remove->lastError().text();
        return;
    }
    if (m_remove->numRowsAffected() == 1) {
        --m_count;
        m_bytes -= entryBytes(entry.topic, entry.payload);
    }
}
