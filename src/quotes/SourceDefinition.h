#pragma once

#include "quotes/PageFetcher.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QPair>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <array>
#include <vector>

namespace kestrova::quotes {

// The quote fields a modern source can fill, by the names sources.json uses for them.
enum class SourceField {
    Name,
    Last,
    Change,
    PercentChange,
    Open,
    High,
    Low,
    PreviousClose,
    Bid,
    Ask,
    Volume,
    Time,
    Date,
    YearHigh,
    YearLow,
    EPS,
    PE,
    Count
};
inline constexpr int kSourceFieldCount = int(SourceField::Count);

// "name", "last", "percentChange", ...; empty for Count.
QString sourceFieldName(SourceField field);

enum class SourceFormat { Csv, Json, Html };

// How a portfolio symbol becomes the source's: an alias first (looked up in upper case),
// then the letter case, then the suffix, which is not added to a symbol that already has
// one (a ".") or names an index ("^DJI").
struct SymbolRules
{
    enum class Case { Keep, Upper, Lower };
    Case letterCase = Case::Keep;
    QString suffix;
    QHash<QString, QString> aliases;
};

// One modern quote source as sources.json defines it (docs/sources-json.md).
struct SourceDefinition
{
    QString name;
    int line = 0; // where its definition starts in sources.json
    SourceFormat format = SourceFormat::Json;
    // Request URL: {symbol} (one security a request) or {symbols} (a batch joined by
    // separator, at most batchSize), and {key} where the service wants its API key.
    QString url;
    bool batch = false;
    QString separator = QStringLiteral(",");
    int batchSize = 1;
    SymbolRules symbols;
    // Security types asked of this source (0 Stock, 1 Option, 2 Mutual Fund, 3 Future).
    std::array<bool, 4> types{true, false, true, true};
    // Per field, what finds its value: CSV column names, JSON pointers (RFC 6901) or
    // regular expressions with one capture; alternatives are tried in order.
    std::array<QStringList, kSourceFieldCount> fields;
    std::array<std::vector<QRegularExpression>, kSourceFieldCount> expressions; // html only
    // Batch answers: the CSV column, or the JSON pointer inside one item, that names the
    // symbol a row or item is about (empty: answers come in the order asked).
    QString match;
    // JSON batch answers: the pointer to the array with one item per symbol.
    QString items;
    // JSON pointers whose value, when present, is the service refusing the request, or
    // telling that too many requests came (that rests the source like HTTP 429).
    QStringList errors;
    QStringList limits;
    // Cell texts that mean "no value" ("N/D").
    QStringList noValue{QStringLiteral("N/D"), QStringLiteral("N/A"), QStringLiteral("-")};
    QList<QPair<QByteArray, QByteArray>> headers; // values may hold {key}
    int connections = 0;                          // requests at once to its host; 0: the program's limit
    int spacingMs = 0;                            // least time between two requests to its host

    bool needsKey() const;
};

// The whole file: the sources that loaded, the failure order it recommends, and one line
// for every problem found ("sources.json line 12: source Stooq: ...").
struct SourceFile
{
    std::vector<SourceDefinition> sources;
    QStringList order;
    QStringList problems;

    const SourceDefinition* find(const QString& name) const;
};

// sources.json of the data directory, read again whenever it changes on disk, so that an
// edited definition is in force at the next update without a restart.
class SourceCatalog
{
public:
    void setPath(const QString& path);
    // Reads the file when it is new or changed; true when it was read (its problems are
    // then in file().problems, to be shown once).
    bool refresh();
    const SourceFile& file() const { return m_file; }

private:
    QString m_path;
    QDateTime m_modified;
    qint64 m_size = -1;
    bool m_read = false;
    SourceFile m_file;
};

// The order entry that stands for the quote servers of servers.dat.
inline const QString kServersDatEntry = QStringLiteral("servers.dat");

// Reads the definitions from the text of a sources.json. A broken document gives no
// sources and one problem with its line; a source with an unknown key, field or format,
// a bad pointer or a bad expression is reported with its name and line and skipped, and
// the others still load.
SourceFile parseSourcesJson(const QByteArray& text, const QString& fileName = QStringLiteral("sources.json"));
// The same from a file; a missing or unreadable file is one problem.
SourceFile loadSourcesJson(const QString& path);

// The source's form of a portfolio symbol.
QString sourceSymbol(const SourceDefinition& source, const QString& ticker);
// The request URL for the given symbols (already in the source's form), with the key in
// place of {key}. shown gets the same URL with the key as "***", for log lines.
QString sourceRequestUrl(const SourceDefinition& source, const QStringList& symbols, const QString& key,
                         QString* shown = nullptr);
// The whole request for the given symbols (in the source's form): URL, the URL as a log
// line may show it, the source's headers with the key in place, and its politeness limits.
HttpRequest sourceHttpRequest(const SourceDefinition& source, const QStringList& symbols, const QString& key);
// True when the pointer is well formed: empty (the whole document), or "/" followed by
// reference tokens in which "~" is only ever followed by "0" or "1".
bool isJsonPointer(const QString& pointer);

} // namespace kestrova::quotes
