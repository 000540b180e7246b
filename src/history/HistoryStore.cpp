#include "history/HistoryStore.h"

#include "history/SqliteStatement.h"
#include "support/Clock.h"
#include "support/PrivateFiles.h"

#include <QAtomicInteger>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QUrl>

#include <limits>

namespace kestrova::history {

namespace {

// SQLite's primary result codes that mean the file itself is bad, not the moment.
constexpr int kSqliteCorrupt = 11;
constexpr int kSqliteNotADatabase = 26;
constexpr int kSqliteReadOnly = 8;
constexpr int kSqliteCantOpen = 14;

int primaryCode(const QSqlError& e)
{
    return e.nativeErrorCode().toInt() & 0xff;
}

QString errorText(const QSqlError& e)
{
    const QString db = e.databaseText().trimmed();
    return db.isEmpty() ? e.driverText().trimmed() : db;
}

QString nextConnectionName()
{
    static QAtomicInteger<quint64> counter;
    return QStringLiteral("kestrova-history-%1").arg(counter.fetchAndAddRelaxed(1));
}

qint64 toMs(const QDateTime& t, qint64 open)
{
    return t.isValid() ? t.toMSecsSinceEpoch() : open;
}

QVariant optionalValue(const std::optional<double>& v)
{
    return v ? QVariant(*v) : QVariant(QMetaType::fromType<double>());
}

QVariant optionalValue(const std::optional<qint64>& v)
{
    return v ? QVariant(*v) : QVariant(QMetaType::fromType<qint64>());
}

// Each step takes the schema from the version before it to its own number.
const QList<QStringList>& migrations()
{
    static const QList<QStringList> steps{
        // 1: quotes and alarms of the retrieval cycles.
        {QStringLiteral("CREATE TABLE meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)"),
         QStringLiteral("CREATE TABLE quotes (id INTEGER PRIMARY KEY, symbol TEXT NOT NULL COLLATE NOCASE, "
                        "fetched_at INTEGER NOT NULL, quoted_at INTEGER, last REAL, change REAL, "
                        "percent_change REAL, volume INTEGER, bid REAL, ask REAL, high REAL, low REAL, "
                        "source TEXT NOT NULL DEFAULT '')"),
         QStringLiteral("CREATE INDEX quotes_by_symbol ON quotes (symbol, fetched_at)"),
         QStringLiteral("CREATE TABLE alarms (id INTEGER PRIMARY KEY, symbol TEXT NOT NULL COLLATE NOCASE, "
                        "fired_at INTEGER NOT NULL, kind TEXT NOT NULL, limit_value REAL NOT NULL, "
                        "value REAL NOT NULL, paged INTEGER NOT NULL)"),
         QStringLiteral("CREATE INDEX alarms_by_time ON alarms (fired_at)")},
        // 2: daily rows imported from CSV files (they carry the day's open), and what the
        // chart reads kept in its indexes: a year of one symbol's prices then comes from a
        // few contiguous index pages instead of one table page per row.
        {QStringLiteral("ALTER TABLE quotes ADD COLUMN open REAL"),
         QStringLiteral("ALTER TABLE quotes ADD COLUMN imported INTEGER NOT NULL DEFAULT 0"),
         QStringLiteral("DROP INDEX quotes_by_symbol"),
         QStringLiteral("CREATE INDEX quotes_by_symbol ON quotes (symbol, fetched_at, last, volume)"),
         QStringLiteral("CREATE INDEX alarms_by_symbol ON alarms (symbol, fired_at)")},
        // 3: the symbol index in the order one symbol's rows are listed (fetch time, then
        // the order they were stored in), so a listing streams from it without a sort in a
        // temporary B-tree; it still carries price and volume for the chart.
        {QStringLiteral("DROP INDEX quotes_by_symbol"),
         QStringLiteral("CREATE INDEX quotes_by_symbol ON quotes (symbol, fetched_at, id, last, volume)")},
    };
    return steps;
}

const char* const kQuoteColumns = "symbol, fetched_at, quoted_at, last, change, percent_change, volume, bid, ask, "
                                  "high, low, open, source, imported";

// Times come back in UTC: making them local would look the zone up again for every row.
QDateTime utcTime(qint64 ms)
{
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
}

std::optional<double> optionalReal(const SqliteStatement& q, int column)
{
    return q.isNull(column) ? std::nullopt : std::optional<double>(q.real(column));
}

void readQuote(const SqliteStatement& q, QuoteRow& r)
{
    q.text(0, r.symbol);
    r.fetchedAt = utcTime(q.int64(1));
    r.quotedAt = q.isNull(2) ? QDateTime() : utcTime(q.int64(2));
    r.last = optionalReal(q, 3);
    r.change = optionalReal(q, 4);
    r.percentChange = optionalReal(q, 5);
    r.volume = q.isNull(6) ? std::nullopt : std::optional<qint64>(q.int64(6));
    r.bid = optionalReal(q, 7);
    r.ask = optionalReal(q, 8);
    r.high = optionalReal(q, 9);
    r.low = optionalReal(q, 10);
    r.open = optionalReal(q, 11);
    q.text(12, r.source);
    r.imported = q.int64(13) != 0;
}

void bindQuote(QSqlQuery& q, const QuoteRow& r)
{
    q.bindValue(0, r.symbol);
    q.bindValue(1, r.fetchedAt.toMSecsSinceEpoch());
    q.bindValue(2, r.quotedAt.isValid() ? QVariant(r.quotedAt.toMSecsSinceEpoch())
                                        : QVariant(QMetaType::fromType<qint64>()));
    q.bindValue(3, optionalValue(r.last));
    q.bindValue(4, optionalValue(r.change));
    q.bindValue(5, optionalValue(r.percentChange));
    q.bindValue(6, optionalValue(r.volume));
    q.bindValue(7, optionalValue(r.bid));
    q.bindValue(8, optionalValue(r.ask));
    q.bindValue(9, optionalValue(r.high));
    q.bindValue(10, optionalValue(r.low));
    q.bindValue(11, optionalValue(r.open));
    q.bindValue(12, r.source);
    q.bindValue(13, r.imported ? 1 : 0);
}

const QString kInsertQuote =
    QStringLiteral("INSERT INTO quotes (symbol, fetched_at, quoted_at, last, change, percent_change, volume, bid, "
                   "ask, high, low, open, source, imported) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");

} // namespace

QString alarmKindName(AlarmKind kind)
{
    switch (kind) {
    case AlarmKind::High:
        return QStringLiteral("high");
    case AlarmKind::Low:
        return QStringLiteral("low");
    case AlarmKind::HighChange:
        return QStringLiteral("high change");
    case AlarmKind::LowChange:
        return QStringLiteral("low change");
    case AlarmKind::Volume:
        return QStringLiteral("volume");
    }
    return {};
}

std::optional<AlarmKind> alarmKindFromName(const QString& name)
{
    for (AlarmKind k :
         {AlarmKind::High, AlarmKind::Low, AlarmKind::HighChange, AlarmKind::LowChange, AlarmKind::Volume}) {
        if (alarmKindName(k) == name) {
            return k;
        }
    }
    return std::nullopt;
}

HistoryStore::HistoryStore(QString path, const support::Clock& clock)
    : m_path(std::move(path)), m_clock(clock), m_connection(nextConnectionName())
{}

HistoryStore::~HistoryStore()
{
    close();
}

void HistoryStore::close()
{
    if (QSqlDatabase::contains(m_connection)) {
        {
            QSqlDatabase db = QSqlDatabase::database(m_connection, false);
            db.close();
        }
        QSqlDatabase::removeDatabase(m_connection);
    }
    m_open = false;
}

bool HistoryStore::fail(const QString& what, const QSqlError& error)
{
    const int code = primaryCode(error);
    m_damaged = code == kSqliteCorrupt || code == kSqliteNotADatabase;
    m_error = what + QStringLiteral(": ") + errorText(error);
    return false;
}

HistoryStore::OpenState HistoryStore::tryOpen()
{
    close();
    m_damaged = false;
    m_error.clear();
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    if (!db.isValid()) {
        m_error = QStringLiteral("the SQLite driver of Qt SQL is not installed");
        return OpenState::Failed;
    }
    db.setDatabaseName(m_path);
    // SQLite gives the -wal and -shm files the database file's permissions.
    support::makePrivate(m_path, true);
    for (const char* part : {"-wal", "-shm"}) {
        support::makePrivate(m_path + QLatin1String(part));
    }
    // Another process of the program may be writing; wait for it rather than fail.
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
    if (!db.open()) {
        fail(QStringLiteral("cannot open ") + m_path, db.lastError());
        return OpenState::Failed;
    }
    QSqlQuery q(db);
    if (!q.exec(QStringLiteral("PRAGMA journal_mode=WAL"))) {
        fail(QStringLiteral("cannot open ") + m_path, q.lastError());
        return m_damaged ? OpenState::Damaged : OpenState::Failed;
    }
    // With WAL, NORMAL still never corrupts the file; a power cut can only lose the last
    // cycles, and a commit costs no fsync.
    q.exec(QStringLiteral("PRAGMA synchronous=NORMAL"));

    if (!q.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type = 'table'"))) {
        fail(QStringLiteral("cannot read ") + m_path, q.lastError());
        return m_damaged ? OpenState::Damaged : OpenState::Failed;
    }
    QStringList tables;
    while (q.next()) {
        tables << q.value(0).toString();
    }
    int version = 0;
    if (!tables.isEmpty()) {
        if (!tables.contains(QStringLiteral("schema_version")) ||
            !q.exec(QStringLiteral("SELECT version FROM schema_version")) || !q.next()) {
            // Some other program's database under our name: kept aside like a damaged one.
            m_damaged = true;
            m_error = m_path + QStringLiteral(" is not a history file");
            return OpenState::Damaged;
        }
        version = q.value(0).toInt();
    }
    // A statement left open would keep the schema locked against the upgrade.
    q.finish();
    if (version > kSchemaVersion) {
        m_error = m_path + QStringLiteral(" was made by a newer version of Kestrova (schema %1)").arg(version);
        return OpenState::Failed;
    }
    if (version < kSchemaVersion && !migrate(version)) {
        return m_damaged ? OpenState::Damaged : OpenState::Failed;
    }
    // A store we could read but never write (read-only file or folder) is no history.
    if (!q.exec(QStringLiteral("BEGIN IMMEDIATE"))) {
        const int code = primaryCode(q.lastError());
        if (code == kSqliteReadOnly || code == kSqliteCantOpen) {
            fail(QStringLiteral("cannot write ") + m_path, q.lastError());
            return OpenState::Failed;
        }
    } else {
        q.exec(QStringLiteral("ROLLBACK"));
    }
    m_open = true;
    return OpenState::Ok;
}

bool HistoryStore::migrate(int from)
{
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    QSqlQuery q(db);
    if (!q.exec(QStringLiteral("BEGIN IMMEDIATE"))) {
        return fail(QStringLiteral("cannot write ") + m_path, q.lastError());
    }
    auto rollBack = [&](const QString& what) {
        const QSqlError e = q.lastError();
        q.exec(QStringLiteral("ROLLBACK"));
        return fail(what, e);
    };
    if (from == 0 && !q.exec(QStringLiteral("CREATE TABLE schema_version (version INTEGER NOT NULL)"))) {
        return rollBack(QStringLiteral("cannot create ") + m_path);
    }
    if (from == 0 && !q.exec(QStringLiteral("INSERT INTO schema_version VALUES (0)"))) {
        return rollBack(QStringLiteral("cannot create ") + m_path);
    }
    const auto& steps = migrations();
    for (int v = from + 1; v <= kSchemaVersion; ++v) {
        for (const QString& sql : steps[v - 1]) {
            if (!q.exec(sql)) {
                return rollBack(QStringLiteral("cannot upgrade %1 to schema %2").arg(m_path).arg(v));
            }
        }
    }
    if (!q.exec(QStringLiteral("UPDATE schema_version SET version = %1").arg(kSchemaVersion)) ||
        !q.exec(QStringLiteral("COMMIT"))) {
        return rollBack(QStringLiteral("cannot upgrade ") + m_path);
    }
    return true;
}

bool HistoryStore::setAside()
{
    close();
    const QString stamp = m_clock.now().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString aside = m_path + QStringLiteral(".damaged-") + stamp;
    for (int n = 2; QFileInfo::exists(aside); ++n) {
        aside = m_path + QStringLiteral(".damaged-") + stamp + u'-' + QString::number(n);
    }
    if (!QFile::rename(m_path, aside)) {
        m_error = QStringLiteral("cannot rename the damaged ") + m_path + QStringLiteral(" aside");
        return false;
    }
    // The journal files belong to the damaged file; left behind they would be read into
    // the new one.
    for (const char* suffix : {"-wal", "-shm"}) {
        const QString companion = m_path + QLatin1String(suffix);
        if (QFileInfo::exists(companion)) {
            QFile::rename(companion, aside + QLatin1String(suffix));
        }
    }
    m_setAside = aside;
    return true;
}

bool HistoryStore::open()
{
    m_setAside.clear();
    switch (tryOpen()) {
    case OpenState::Ok:
        return true;
    case OpenState::Failed:
        close();
        return false;
    case OpenState::Damaged:
        break;
    }
    return startOver();
}

bool HistoryStore::openReadOnly()
{
    close();
    m_setAside.clear();
    m_damaged = false;
    m_error.clear();
    if (!QFileInfo::exists(m_path)) {
        m_error = m_path + QStringLiteral(" does not exist");
        return false;
    }
    const QString uri = QStringLiteral("file:") + QString::fromLatin1(QUrl::toPercentEncoding(m_path, "/"));
    QString firstError;
    for (const char* how : {"?mode=ro", "?immutable=1"}) {
        int version = -1;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
            db.setDatabaseName(uri + QLatin1String(how));
            db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_OPEN_URI;QSQLITE_BUSY_TIMEOUT=5000"));
            if (!db.open()) {
                fail(QStringLiteral("cannot open ") + m_path, db.lastError());
            } else {
                QSqlQuery q(db);
                if (q.exec(QStringLiteral("SELECT version FROM schema_version")) && q.next()) {
                    version = q.value(0).toInt();
                } else {
                    fail(QStringLiteral("cannot read ") + m_path, q.lastError());
                }
            }
        }
        if (version == kSchemaVersion) {
            m_error.clear();
            m_damaged = false;
            m_open = true;
            return true;
        }
        close();
        if (version >= 0) {
            m_error = m_path + QStringLiteral(" holds schema %1, which this version reads only after an upgrade; "
                                              "the folder cannot be written")
                                   .arg(version);
            return false;
        }
        if (firstError.isEmpty()) {
            firstError = m_error;
        }
    }
    m_error = firstError;
    return false;
}

bool HistoryStore::startOver()
{
    const QString why = m_error;
    if (!setAside()) {
        return false;
    }
    if (tryOpen() != OpenState::Ok) {
        close();
        return false;
    }
    m_error = why;
    return true;
}

bool HistoryStore::append(const QList<CycleRecord>& cycles)
{
    m_error.clear();
    m_damaged = false;
    if (!m_open) {
        m_error = QStringLiteral("the history is not open");
        return false;
    }
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    QSqlQuery tx(db);
    if (!tx.exec(QStringLiteral("BEGIN IMMEDIATE"))) {
        return fail(QStringLiteral("cannot write ") + m_path, tx.lastError());
    }
    QSqlQuery quote(db);
    QSqlQuery alarm(db);
    bool ok = quote.prepare(kInsertQuote) &&
              alarm.prepare(QStringLiteral("INSERT INTO alarms (symbol, fired_at, kind, limit_value, value, paged) "
                                           "VALUES (?, ?, ?, ?, ?, ?)"));
    QSqlError error = ok ? QSqlError() : (quote.lastError().isValid() ? quote.lastError() : alarm.lastError());
    for (const CycleRecord& c : cycles) {
        for (qsizetype i = 0; ok && i < c.quotes.size(); ++i) {
            bindQuote(quote, c.quotes[i]);
            if (!quote.exec()) {
                ok = false;
                error = quote.lastError();
            }
        }
        for (qsizetype i = 0; ok && i < c.alarms.size(); ++i) {
            const AlarmRow& a = c.alarms[i];
            alarm.bindValue(0, a.symbol);
            alarm.bindValue(1, a.firedAt.toMSecsSinceEpoch());
            alarm.bindValue(2, alarmKindName(a.kind));
            alarm.bindValue(3, a.limit);
            alarm.bindValue(4, a.value);
            alarm.bindValue(5, a.paged ? 1 : 0);
            if (!alarm.exec()) {
                ok = false;
                error = alarm.lastError();
            }
        }
    }
    if (ok && !tx.exec(QStringLiteral("COMMIT"))) {
        ok = false;
        error = tx.lastError();
    }
    if (!ok) {
        tx.exec(QStringLiteral("ROLLBACK"));
        return fail(QStringLiteral("cannot write ") + m_path, error);
    }
    return true;
}

bool HistoryStore::importRows(const QList<QuoteRow>& rows)
{
    m_error.clear();
    m_damaged = false;
    if (!m_open) {
        m_error = QStringLiteral("the history is not open");
        return false;
    }
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    QSqlQuery tx(db);
    if (!tx.exec(QStringLiteral("BEGIN IMMEDIATE"))) {
        return fail(QStringLiteral("cannot write ") + m_path, tx.lastError());
    }
    QSqlQuery drop(db);
    QSqlQuery insert(db);
    bool ok = drop.prepare(QStringLiteral("DELETE FROM quotes WHERE imported = 1 AND symbol = ? AND fetched_at = ?")) &&
              insert.prepare(kInsertQuote);
    QSqlError error = drop.lastError().isValid() ? drop.lastError() : insert.lastError();
    for (qsizetype i = 0; ok && i < rows.size(); ++i) {
        QuoteRow r = rows[i];
        r.imported = true;
        drop.bindValue(0, r.symbol);
        drop.bindValue(1, r.fetchedAt.toMSecsSinceEpoch());
        bindQuote(insert, r);
        if (!drop.exec()) {
            ok = false;
            error = drop.lastError();
        } else if (!insert.exec()) {
            ok = false;
            error = insert.lastError();
        }
    }
    if (ok && !tx.exec(QStringLiteral("COMMIT"))) {
        ok = false;
        error = tx.lastError();
    }
    if (!ok) {
        tx.exec(QStringLiteral("ROLLBACK"));
        return fail(QStringLiteral("cannot write ") + m_path, error);
    }
    return true;
}

qint64 HistoryStore::removeOlderThan(const QDateTime& cutoff)
{
    m_error.clear();
    m_damaged = false;
    if (!m_open) {
        m_error = QStringLiteral("the history is not open");
        return -1;
    }
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    QSqlQuery q(db);
    if (!q.exec(QStringLiteral("BEGIN IMMEDIATE"))) {
        fail(QStringLiteral("cannot write ") + m_path, q.lastError());
        return -1;
    }
    qint64 removed = 0;
    const qint64 ms = cutoff.toMSecsSinceEpoch();
    for (const QString& sql : {QStringLiteral("DELETE FROM quotes WHERE fetched_at < ?"),
                               QStringLiteral("DELETE FROM alarms WHERE fired_at < ?")}) {
        QSqlQuery del(db);
        del.prepare(sql);
        del.bindValue(0, ms);
        if (!del.exec()) {
            const QSqlError e = del.lastError();
            q.exec(QStringLiteral("ROLLBACK"));
            fail(QStringLiteral("cannot clean up ") + m_path, e);
            return -1;
        }
        removed += del.numRowsAffected();
    }
    if (!q.exec(QStringLiteral("COMMIT"))) {
        const QSqlError e = q.lastError();
        q.exec(QStringLiteral("ROLLBACK"));
        fail(QStringLiteral("cannot clean up ") + m_path, e);
        return -1;
    }
    return removed;
}

QString HistoryStore::meta(const QString& key) const
{
    if (!m_open) {
        return {};
    }
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    q.prepare(QStringLiteral("SELECT value FROM meta WHERE key = ?"));
    q.bindValue(0, key);
    return q.exec() && q.next() ? q.value(0).toString() : QString();
}

bool HistoryStore::setMeta(const QString& key, const QString& value)
{
    if (!m_open) {
        return false;
    }
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    q.prepare(QStringLiteral("INSERT OR REPLACE INTO meta (key, value) VALUES (?, ?)"));
    q.bindValue(0, key);
    q.bindValue(1, value);
    return q.exec() || fail(QStringLiteral("cannot write ") + m_path, q.lastError());
}

bool HistoryStore::forEachQuote(const QString& symbol, const QDateTime& from, const QDateTime& until,
                                const std::function<void(const QuoteRow&)>& onRow)
{
    m_error.clear();
    m_damaged = false;
    if (!m_open) {
        m_error = QStringLiteral("the history is not open");
        return false;
    }
    static const QByteArray sql = QStringLiteral("SELECT %1 FROM quotes WHERE symbol = ? AND fetched_at >= ? AND "
                                                 "fetched_at <= ? ORDER BY fetched_at, id")
                                      .arg(QLatin1String(kQuoteColumns))
                                      .toLatin1();
    SqliteStatement q(QSqlDatabase::database(m_connection, false), sql.constData());
    q.bind(1, symbol);
    q.bind(2, toMs(from, std::numeric_limits<qint64>::min()));
    q.bind(3, toMs(until, std::numeric_limits<qint64>::max()));
    // One row object for the whole run: its texts keep their storage while they repeat.
    QuoteRow row;
    while (q.next()) {
        readQuote(q, row);
        onRow(row);
    }
    if (q.errorCode() != 0) {
        m_damaged = q.errorCode() == kSqliteCorrupt || q.errorCode() == kSqliteNotADatabase;
        m_error = QStringLiteral("cannot read ") + m_path + QStringLiteral(": ") + q.errorText();
        return false;
    }
    return true;
}

QList<QuoteRow> HistoryStore::quotes(const QString& symbol, const QDateTime& from, const QDateTime& until)
{
    QList<QuoteRow> rows;
    forEachQuote(symbol, from, until, [&](const QuoteRow& r) { rows << r; });
    return rows;
}

QList<AlarmRow> HistoryStore::alarms(const QDateTime& from, const QDateTime& until, const QString& symbol) const
{
    QList<AlarmRow> rows;
    if (!m_open) {
        return rows;
    }
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    q.setForwardOnly(true);
    q.prepare(QStringLiteral("SELECT symbol, fired_at, kind, limit_value, value, paged FROM alarms "
                             "WHERE fired_at >= ? AND fired_at <= ? %1 ORDER BY fired_at, id")
                  .arg(symbol.isEmpty() ? QString() : QStringLiteral("AND symbol = ?")));
    q.bindValue(0, toMs(from, std::numeric_limits<qint64>::min()));
    q.bindValue(1, toMs(until, std::numeric_limits<qint64>::max()));
    if (!symbol.isEmpty()) {
        q.bindValue(2, symbol);
    }
    if (q.exec()) {
        while (q.next()) {
            AlarmRow a;
            a.symbol = q.value(0).toString();
            a.firedAt = QDateTime::fromMSecsSinceEpoch(q.value(1).toLongLong());
            a.kind = alarmKindFromName(q.value(2).toString()).value_or(AlarmKind::High);
            a.limit = q.value(3).toDouble();
            a.value = q.value(4).toDouble();
            a.paged = q.value(5).toInt() != 0;
            rows << a;
        }
    }
    return rows;
}

void HistoryStore::releaseCache()
{
    if (m_open) {
        QSqlQuery(QSqlDatabase::database(m_connection, false)).exec(QStringLiteral("PRAGMA shrink_memory"));
    }
}

int HistoryStore::schemaVersion() const
{
    if (!m_open) {
        return 0;
    }
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    return q.exec(QStringLiteral("SELECT version FROM schema_version")) && q.next() ? q.value(0).toInt() : 0;
}

} // namespace kestrova::history
