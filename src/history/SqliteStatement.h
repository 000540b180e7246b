#pragma once

#include <QString>
#include <QtGlobal>

class QSqlDatabase;
struct sqlite3;
struct sqlite3_stmt;

namespace kestrova::history {

// One statement stepped through SQLite's C interface on the handle of an open Qt SQL
// connection. The bulk reads (a year of one-minute rows for the chart or the CLI) use it:
// Qt SQL turns every value of every row into a QVariant and copies it again on the way
// out, which cost as much as SQLite's own scan. Writes and small reads stay with QSqlQuery.
class SqliteStatement
{
public:
    SqliteStatement(const QSqlDatabase& db, const char* sql);
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    // False when the connection has no SQLite handle or the statement did not compile.
    bool isValid() const { return m_stmt != nullptr; }
    // SQLite's primary result code of the last failure (0 when none).
    int errorCode() const { return m_errorCode; }
    const QString& errorText() const { return m_error; }

    // 1-based, as SQLite counts parameters.
    void bind(int index, qint64 value);
    void bind(int index, const QString& text);

    // The next row: true while there is one; false at the end and on failure (errorCode()).
    bool next();

    bool isNull(int column) const;
    qint64 int64(int column) const;
    double real(int column) const;
    // Text as Qt SQL reads it (UTF-16 from SQLite). reuse keeps its characters when they
    // are the same as the column's, so a run of rows naming one symbol allocates nothing.
    void text(int column, QString& reuse) const;

private:
    void failed(int code);

    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_stmt = nullptr;
    int m_errorCode = 0;
    QString m_error;
};

} // namespace kestrova::history
