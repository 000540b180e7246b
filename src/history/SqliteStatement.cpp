#include "history/SqliteStatement.h"

#include <QSqlDatabase>
#include <QSqlDriver>
#include <QVariant>

#include <sqlite3.h>

#include <cstring>

namespace kestrova::history {

SqliteStatement::SqliteStatement(const QSqlDatabase& db, const char* sql)
{
    const QVariant handle = db.isOpen() && db.driver() ? db.driver()->handle() : QVariant();
    if (!handle.isValid() || qstrcmp(handle.typeName(), "sqlite3*") != 0) {
        m_errorCode = SQLITE_MISUSE;
        m_error = QStringLiteral("the connection is not an open SQLite database");
        return;
    }
    m_db = *static_cast<sqlite3* const*>(handle.constData());
    if (!m_db) {
        m_errorCode = SQLITE_MISUSE;
        m_error = QStringLiteral("the connection is not an open SQLite database");
        return;
    }
    const int rc = sqlite3_prepare_v2(m_db, sql, -1, &m_stmt, nullptr);
    if (rc != SQLITE_OK) {
        failed(rc);
        sqlite3_finalize(m_stmt);
        m_stmt = nullptr;
    }
}

SqliteStatement::~SqliteStatement()
{
    sqlite3_finalize(m_stmt);
}

void SqliteStatement::failed(int code)
{
    m_errorCode = code & 0xff;
    m_error = QString::fromUtf8(sqlite3_errmsg(m_db));
}

void SqliteStatement::bind(int index, qint64 value)
{
    if (m_stmt) {
        sqlite3_bind_int64(m_stmt, index, value);
    }
}

void SqliteStatement::bind(int index, const QString& text)
{
    if (m_stmt) {
        sqlite3_bind_text16(m_stmt, index, text.utf16(), int(text.size() * sizeof(char16_t)), SQLITE_TRANSIENT);
    }
}

bool SqliteStatement::next()
{
    if (!m_stmt) {
        return false;
    }
    const int rc = sqlite3_step(m_stmt);
    if (rc == SQLITE_ROW) {
        return true;
    }
    if (rc != SQLITE_DONE) {
        failed(rc);
    }
    return false;
}

bool SqliteStatement::isNull(int column) const
{
    return sqlite3_column_type(m_stmt, column) == SQLITE_NULL;
}

qint64 SqliteStatement::int64(int column) const
{
    return sqlite3_column_int64(m_stmt, column);
}

double SqliteStatement::real(int column) const
{
    return sqlite3_column_double(m_stmt, column);
}

void SqliteStatement::text(int column, QString& reuse) const
{
    if (isNull(column)) {
        reuse = QString();
        return;
    }
    const auto* chars = static_cast<const char16_t*>(sqlite3_column_text16(m_stmt, column));
    const qsizetype size = sqlite3_column_bytes16(m_stmt, column) / qsizetype(sizeof(char16_t));
    if (reuse.size() == size && std::memcmp(reuse.utf16(), chars, size_t(size) * sizeof(char16_t)) == 0) {
        return;
    }
    reuse = QString::fromUtf16(chars, size);
}

} // namespace kestrova::history
