#pragma once

// The gateway's disk queue of data messages while the broker cannot take
// them: one SQLite file (WAL mode) through Qt SQL, oldest first, bounded by a
// size counted as the bytes of the queued topics and payloads (not the file,
// which SQLite grows and reuses by pages). A QSqlDatabase connection belongs
// to the thread that opened it: every member is called on that one thread.
#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

class QSqlQuery;
class QVariant;

class OfflineBuffer
{
public:
    struct Entry {
        qint64 id = 0;
        QString topic;
        QByteArray payload;
    };

    // maxFileBytes, when above 0, caps the file itself (a disk quota); reaching
    // it is met as a full disk is.
    OfflineBuffer(const QString &path, qint64 maxBytes, qint64 maxFileBytes = 0);
    ~OfflineBuffer();
    OfflineBuffer(const OfflineBuffer &) = delete;
    OfflineBuffer &operator=(const OfflineBuffer &) = delete;

    // Opens the file, or creates it. A file that is not a queue of ours (a
    // folder, another program's file) or fails SQLite's check is refused with
    // the reason; with startAfresh it is moved aside as FILE.corrupt-<time>
    // (kept for inspection) and a new queue begins. A queue left by an
    // earlier run resumes where it stopped.
    bool open(QString *error, bool startAfresh = false);
    void close();
    bool isOpen() const;
    // Where an unusable file went with startAfresh; empty if none was moved.
    QString movedAside() const { return m_movedAside; }

    // Queues a message at the end. When the queue grows beyond its size, or
    // the disk (or the file's cap) is full, the oldest messages not yet handed
    // out go to make room; how many is returned in dropped. False when even
    // that left no room, or another error: the message is not queued.
    bool append(const QString &topic, const QByteArray &payload, int *dropped);
    // Whether the last append met a full disk or the file's cap.
    bool diskFull() const { return m_diskFull; }
    // Up to limit messages after the given id, oldest first. A row that
    // cannot be sent as it is (see decode) leaves the queue with a warning.
    QList<Entry> after(qint64 id, int limit);
    // One row as read back: a data message of the gateway's topic tree with
    // its payload as bytes, or nothing and the reason. A damaged file, or a
    // row written by something else, must not stall the replay behind a
    // message the broker refuses, nor go out under a topic it never had.
    static std::optional<Entry> decode(const QVariant &id, const QVariant &topic, const QVariant &payload,
                                       QString *why);
    // Removes a message the broker has acknowledged.
    void remove(const Entry &entry);
    // Messages with an id up to this one are on their way and are never dropped.
    void setHandedOutUpTo(qint64 id) { m_handedOut = id; }

    qint64 count() const { return m_count; }
    qint64 bytes() const { return m_bytes; }
    QString lastError() const { return m_error; }

private:
    bool tryOpen(bool *unusable, QString *error);
    bool openDatabase(QString *error);
    bool checkOrCreate(bool *unusable, QString *error);
    bool moveAside(QString *error);
    bool exec(const QString &statement);
    int dropOldest(qint64 keepBytes);

    QString m_path;
    qint64 m_maxBytes;
    qint64 m_maxFileBytes;
    qint64 m_pageSize = 4096;
    bool m_diskFull = false;
    QString m_connection;
    QString m_movedAside;
    QString m_error;
    qint64 m_count = 0;
    qint64 m_bytes = 0;
    qint64 m_handedOut = 0;
    // Prepared once per open: append and remove run once per message.
    std::unique_ptr<QSqlQuery> m_insert;
    std::unique_ptr<QSqlQuery> m_remove;
};
