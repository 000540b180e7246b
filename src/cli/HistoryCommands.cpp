#include "cli/Cli.h"
#include "cli/CliContext.h"
#include "history/DailyCsv.h"
#include "history/HistoryRecorder.h"
#include "history/HistoryStore.h"
#include "settings/SettingsStore.h"
#include "support/LocalTimeText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTextStream>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>

namespace kestrova::cli {

namespace {

const QString kHistoryUsage =
    QStringLiteral("Usage: kestrova-cli [global options] history SYMBOL [--since DATE] [--until DATE] [--csv|--json]\n"
                   "       kestrova-cli [global options] history [SYMBOL] --import FILE.csv\n"
                   "Shows the quotes the history keeps for SYMBOL, oldest first: the time of the fetch, last,\n"
                   "change, % change, volume, bid, ask, day high and low, and the quote service that priced\n"
                   "it. DATE is YYYY-MM-DD (the whole day) or YYYY-MM-DDTHH:MM[:SS], local time; --since and\n"
                   "--until include their bounds. --csv and --json print every stored field (JSON times in UTC).\n"
                   "--import reads a daily price file with the columns Date,Open,High,Low,Close,Volume (the\n"
                   "shape quote services publish) into the history, one row a day at the close; SYMBOL\n"
                   "defaults to the file's name without its extension. Rows that cannot be read are reported\n"
                   "by line number and skipped, the others are kept; the exit status is then 1.\n");

const QString kAlarmsUsage =
    QStringLiteral("Usage: kestrova-cli [global options] alarms [SYMBOL] [--since DATE] [--json]\n"
                   "Lists the alarms that fired, oldest first: when, the security, which limit, the\n"
                   "limit, the value that crossed it and whether a page went out. DATE as for history.\n");

// A bound of a date range; a plain date stands for the start of the day, or with
// endOfDay for its last millisecond.
std::optional<QDateTime> parseBound(const QString& text, bool endOfDay)
{
    const QDate day = QDate::fromString(text, Qt::ISODate);
    if (day.isValid() && text.size() == 10) {
        return endOfDay ? QDateTime(day, QTime(23, 59, 59, 999)) : QDateTime(day, QTime(0, 0));
    }
    QDateTime t = QDateTime::fromString(text, Qt::ISODate);
    if (!t.isValid()) {
        t = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    }
    if (!t.isValid()) {
        t = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd HH:mm"));
    }
    return t.isValid() ? std::optional<QDateTime>(t) : std::nullopt;
}

// A price as the listings print it: four decimals at most, trailing zeros dropped
// ("150.25", "-0.5", "12"). Qt's QString::number(v, 'f', 4) is the reference; to_chars
// gives the same digits three times faster, except where the two round differently: an
// exact tie at the fifth decimal (Qt rounds away from zero, to_chars to even), negative
// zero (Qt drops the sign), and magnitudes where the tie test below cannot be exact.
void appendNumber(QByteArray& out, double v)
{
    const double scaled = v * 10000.0;
    const bool tie = std::fma(v, 10000.0, -scaled) == 0 && std::fabs(scaled - std::trunc(scaled)) == 0.5;
    const qsizetype start = out.size();
    if (std::isfinite(v) && std::fabs(v) >= 1e-4 && std::fabs(v) < 1e11 && !tie) {
        char text[32];
        const auto r = std::to_chars(text, text + sizeof(text), v, std::chars_format::fixed, 4);
        out.append(text, r.ptr - text);
    } else {
        out += QString::number(v, 'f', 4).toLatin1();
    }
    if (out.indexOf('.', start) < 0) {
        return;
    }
    qsizetype end = out.size();
    while (out[end - 1] == '0') {
        --end;
    }
    if (out[end - 1] == '.') {
        --end;
    }
    out.truncate(end);
}

void appendNumber(QByteArray& out, const std::optional<double>& v)
{
    if (v) {
        appendNumber(out, *v);
    }
}

QString number(const std::optional<double>& v)
{
    QByteArray text;
    appendNumber(text, v);
    return QString::fromLatin1(text);
}

// One column of a table line: a negative width pads on the right (text), a positive one on
// the left (numbers). Built by hand, not with QString::arg, so a "%1" in a name stays as it is.
QString cell(const QString& text, int width)
{
    return width < 0 ? text.leftJustified(-width) : text.rightJustified(width);
}

QString line(std::initializer_list<std::pair<QString, int>> cells)
{
    QStringList parts;
    for (const auto& [text, width] : cells) {
        parts << cell(text, width);
    }
    return parts.join(u' ') + u'\n';
}

QString localTime(const QDateTime& t)
{
    return t.isValid() ? t.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) : QString();
}

QJsonValue jsonNumber(const std::optional<double>& v)
{
    return v ? QJsonValue(*v) : QJsonValue(QJsonValue::Null);
}

QJsonValue jsonTime(const QDateTime& t)
{
    return t.isValid() ? QJsonValue(t.toUTC().toString(Qt::ISODateWithMs)) : QJsonValue(QJsonValue::Null);
}

QString csvField(const QString& text)
{
    if (!text.contains(u',') && !text.contains(u'"') && !text.contains(u'\n')) {
        return text;
    }
    return u'"' + QString(text).replace(u'"', QStringLiteral("\"\"")) + u'"';
}

// The object one quote makes in `history --json`.
QJsonObject jsonRow(const history::QuoteRow& r)
{
    return QJsonObject{
        {QStringLiteral("symbol"), r.symbol},
        {QStringLiteral("fetched"), jsonTime(r.fetchedAt)},
        {QStringLiteral("quoted"), jsonTime(r.quotedAt)},
        {QStringLiteral("last"), jsonNumber(r.last)},
        {QStringLiteral("change"), jsonNumber(r.change)},
        {QStringLiteral("percentChange"), jsonNumber(r.percentChange)},
        {QStringLiteral("volume"), r.volume ? QJsonValue(double(*r.volume)) : QJsonValue(QJsonValue::Null)},
        {QStringLiteral("bid"), jsonNumber(r.bid)},
        {QStringLiteral("ask"), jsonNumber(r.ask)},
        {QStringLiteral("high"), jsonNumber(r.high)},
        {QStringLiteral("low"), jsonNumber(r.low)},
        {QStringLiteral("open"), jsonNumber(r.open)},
        {QStringLiteral("source"), r.source},
        {QStringLiteral("imported"), r.imported}};
}

// An object written on its own, placed one level into the array: what QJsonDocument makes
// of the whole array, without holding the whole array.
void appendIndented(QByteArray& out, const QByteArray& object)
{
    qsizetype from = 0;
    while (from < object.size()) {
        qsizetype end = object.indexOf('\n', from);
        if (end < 0) {
            end = object.size();
        }
        out += "    ";
        out += QByteArrayView(object).sliced(from, end - from);
        if (end + 1 < object.size()) {
            out += '\n';
        }
        from = end + 1;
    }
}

// The text a field's value makes, kept while the value repeats.
class TextCache
{
public:
    explicit TextCache(std::function<QByteArray(const QString&)> make) : m_make(std::move(make)) {}
    const QByteArray& operator()(const QString& value)
    {
        if (!m_valid || value != m_value) {
            m_value = value;
            m_text = m_make(value);
            m_valid = true;
        }
        return m_text;
    }

private:
    std::function<QByteArray(const QString&)> m_make;
    QString m_value;
    QByteArray m_text;
    bool m_valid = false;
};

// Standard output for a listing of many rows: UTF-8 gathered and written in large pieces,
// so a listing of years is neither held whole nor written a line at a time.
class RowOutput
{
public:
    RowOutput() { m_buffer.reserve(kChunk + 4096); }
    ~RowOutput() { flush(); }
    RowOutput(const RowOutput&) = delete;
    RowOutput& operator=(const RowOutput&) = delete;

    QByteArray& buffer() { return m_buffer; }
    void endRow()
    {
        if (m_buffer.size() >= kChunk) {
            flush();
        }
    }
    void flush()
    {
        if (!m_buffer.isEmpty()) {
            std::fwrite(m_buffer.constData(), 1, size_t(m_buffer.size()), stdout);
            m_buffer.resize(0); // keeps its capacity for the next piece
        }
        std::fflush(stdout);
    }

private:
    static constexpr qsizetype kChunk = 64 * 1024;
    QByteArray m_buffer;
};

struct RangeArgs
{
    QString symbol;
    std::optional<QDateTime> since;
    std::optional<QDateTime> until;
    bool csv = false;
    bool json = false;
    QString importFile;
};

// Parses the arguments both commands share; returns the usage error, or nothing.
QString parseArgs(const QStringList& args, RangeArgs& a, bool allowImport, bool allowCsv)
{
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& s = args[i];
        auto value = [&](const QString& name, QString& out) -> bool {
            if (s == name && i + 1 < args.size()) {
                out = args[++i];
                return true;
            }
            if (s.startsWith(name + u'=')) {
                out = s.mid(name.size() + 1);
                return true;
            }
            return false;
        };
        QString text;
        if (value(QStringLiteral("--since"), text) || value(QStringLiteral("--until"), text)) {
            const bool isUntil = s.startsWith(QLatin1String("--until"));
            const auto bound = parseBound(text, isUntil);
            if (!bound) {
                return QStringLiteral("\"%1\" is not a date (YYYY-MM-DD or YYYY-MM-DDTHH:MM)").arg(text);
            }
            (isUntil ? a.until : a.since) = bound;
        } else if (allowImport && value(QStringLiteral("--import"), text)) {
            a.importFile = text;
        } else if (allowCsv && s == QLatin1String("--csv")) {
            a.csv = true;
        } else if (s == QLatin1String("--json")) {
            a.json = true;
        } else if (s.startsWith(u'-')) {
            return QStringLiteral("unknown option ") + s;
        } else if (a.symbol.isEmpty()) {
            a.symbol = s.trimmed();
        } else {
            return QStringLiteral("unexpected argument ") + s;
        }
    }
    if (a.since && a.until && *a.since > *a.until) {
        return QStringLiteral("the date range is backwards: --since %1 is after --until %2")
            .arg(localTime(*a.since), localTime(*a.until));
    }
    if (a.csv && a.json) {
        return QStringLiteral("--csv and --json cannot be used together");
    }
    return {};
}

QString historyPath(const GlobalOptions& g)
{
    return QDir(g.dataDir).filePath(history::HistoryStore::defaultFileName());
}

// Opens the store for reading. A data folder without one has no history yet, which is
// not an error; nothing is created for a mere look.
bool openForReading(CliContext& ctx, history::HistoryStore& store, bool& exists)
{
    exists = QFileInfo::exists(store.path());
    if (!exists) {
        return true;
    }
    if (!store.open()) {
        // A folder this process cannot write (a read-only mount) still has a history to show.
        const QString why = store.lastError();
        if (!store.openReadOnly()) {
            QTextStream(stderr) << "History is off: " << why << '\n';
            return false;
        }
        return true;
    }
    if (!store.setAsidePath().isEmpty()) {
        const QString line = QStringLiteral("History: the damaged history file was kept as ") + store.setAsidePath() +
                             QStringLiteral(" and a new one started");
        QTextStream(stderr) << line << '\n';
        ctx.log.LogMessage(line);
    }
    return true;
}

int importCommand(const GlobalOptions& g, RangeArgs& a)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (a.symbol.isEmpty()) {
        a.symbol = QFileInfo(a.importFile).completeBaseName().trimmed();
    }
    if (a.symbol.isEmpty()) {
        return usageError(kHistoryUsage, QStringLiteral("--import needs a SYMBOL"));
    }
    QFile file(a.importFile);
    if (!file.open(QIODevice::ReadOnly)) {
        err << "kestrova-cli history: cannot read " << a.importFile << ": " << file.errorString() << '\n';
        return kExitFailure;
    }
    const history::DailyCsv csv = history::parseDailyCsv(file.readAll(), a.symbol);
    for (const history::CsvProblem& p : csv.problems) {
        err << a.importFile << ':' << p.line << ": " << p.why << '\n';
    }
    CliContext ctx(g);
    history::HistoryStore store(historyPath(g), ctx.clock);
    if (!store.open()) {
        err << "History is off: " << store.lastError() << '\n';
        return kExitFailure;
    }
    if (!csv.rows.isEmpty() && !store.importRows(csv.rows)) {
        err << "kestrova-cli history: " << store.lastError() << '\n';
        return kExitFailure;
    }
    out << "Imported " << csv.rows.size() << " days of " << a.symbol;
    if (!csv.problems.isEmpty()) {
        out << "; " << csv.problems.size() << " rows could not be read";
    }
    out << '\n';
    const history::HistorySettings settings = history::readHistorySettings(settings::SettingsStore());
    const QDateTime cutoff = ctx.clock.now().addDays(-settings.keepDays);
    const auto old = std::count_if(csv.rows.begin(), csv.rows.end(),
                                   [&](const history::QuoteRow& r) { return r.fetchedAt < cutoff; });
    if (old > 0) {
        out << old << " of them are older than history.keep_days (" << settings.keepDays
            << " days) and go at the next daily clean-up.\n";
    }
    ctx.log.LogMessage(
        QStringLiteral("History: imported %1 days of %2 from %3").arg(csv.rows.size()).arg(a.symbol, a.importFile));
    return csv.problems.isEmpty() ? kExitOk : kExitFailure;
}

int historyCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kHistoryUsage;
        return kExitOk;
    }
    RangeArgs a;
    if (const QString why = parseArgs(args, a, true, true); !why.isEmpty()) {
        return usageError(kHistoryUsage, why);
    }
    if (!a.importFile.isEmpty()) {
        return importCommand(g, a);
    }
    if (a.symbol.isEmpty()) {
        return usageError(kHistoryUsage, QStringLiteral("a SYMBOL is needed"));
    }
    CliContext ctx(g);
    history::HistoryStore store(historyPath(g), ctx.clock);
    bool exists = false;
    if (!openForReading(ctx, store, exists)) {
        return kExitFailure;
    }
    RowOutput out;
    std::function<void(const history::QuoteRow&)> onRow;
    qint64 count = 0;
    const support::LocalTimeText localTimes;
    // The symbol and the source repeat from row to row: their text is made when they change.
    TextCache symbolText([](const QString& s) { return csvField(s).toUtf8(); });
    TextCache sourceText([&](const QString& s) { return (a.csv ? csvField(s) : s).toUtf8(); });
    if (a.json) {
        out.buffer() += "[\n";
        onRow = [&](const history::QuoteRow& r) {
            if (count++ > 0) {
                out.buffer() += ",\n";
            }
            appendIndented(out.buffer(), QJsonDocument(jsonRow(r)).toJson(QJsonDocument::Indented));
            out.endRow();
        };
    } else if (a.csv) {
        out.buffer() += "Symbol,Fetched,Quoted,Last,Change,PercentChange,Volume,Bid,Ask,High,Low,Open,Source\n";
        onRow = [&](const history::QuoteRow& r) {
            QByteArray& b = out.buffer();
            b += symbolText(r.symbol);
            b += ',';
            localTimes.append(b, r.fetchedAt.toMSecsSinceEpoch());
            b += ',';
            if (r.quotedAt.isValid()) {
                localTimes.append(b, r.quotedAt.toMSecsSinceEpoch());
            }
            for (const auto* v : {&r.last, &r.change, &r.percentChange}) {
                b += ',';
                appendNumber(b, *v);
            }
            b += ',';
            if (r.volume) {
                b += QByteArray::number(*r.volume);
            }
            for (const auto* v : {&r.bid, &r.ask, &r.high, &r.low, &r.open}) {
                b += ',';
                appendNumber(b, *v);
            }
            b += ',';
            b += sourceText(r.source);
            b += '\n';
            ++count;
            out.endRow();
        };
    } else {
        onRow = [&](const history::QuoteRow& r) {
            QByteArray& b = out.buffer();
            if (count++ == 0) {
                b += line({{QStringLiteral("Fetched"), -19},
                           {QStringLiteral("Last"), 10},
                           {QStringLiteral("Change"), 9},
                           {QStringLiteral("%Chg"), 7},
                           {QStringLiteral("Volume"), 12},
                           {QStringLiteral("High"), 10},
                           {QStringLiteral("Low"), 10},
                           {QStringLiteral("Source"), 0}})
                         .toUtf8();
            }
            // Every cell but the last is ASCII, so its width in bytes is its width in characters.
            qsizetype cellStart = b.size();
            auto pad = [&](int width) {
                const qsizetype used = b.size() - cellStart;
                if (used < qAbs(width)) {
                    if (width < 0) {
                        b.append(qAbs(width) - used, ' ');
                    } else {
                        b.insert(cellStart, width - used, ' ');
                    }
                }
                b += ' ';
                cellStart = b.size();
            };
            localTimes.append(b, r.fetchedAt.toMSecsSinceEpoch());
            pad(-19);
            appendNumber(b, r.last);
            pad(10);
            appendNumber(b, r.change);
            pad(9);
            appendNumber(b, r.percentChange);
            pad(7);
            if (r.volume) {
                b += QByteArray::number(*r.volume);
            }
            pad(12);
            appendNumber(b, r.high);
            pad(10);
            appendNumber(b, r.low);
            pad(10);
            b += sourceText(r.source);
            b += '\n';
            out.endRow();
        };
    }
    const bool read =
        !exists || store.forEachQuote(a.symbol, a.since.value_or(QDateTime()), a.until.value_or(QDateTime()), onRow);
    if (a.json) {
        out.buffer() += count > 0 ? "\n]\n" : "]\n";
    } else if (!a.csv && count == 0 && read) {
        out.buffer() +=
            (QStringLiteral("No quotes of ") + a.symbol + QStringLiteral(" in the history") +
             (exists ? QString() : QStringLiteral(" (none is kept in ") + g.dataDir + u')') + QStringLiteral(".\n"))
                .toUtf8();
    }
    out.flush();
    if (!read) {
        QTextStream(stderr) << "kestrova-cli history: " << store.lastError() << '\n';
        return kExitFailure;
    }
    return kExitOk;
}

int alarmsCommand(const GlobalOptions& g, const QStringList& args)
{
    if (wantsHelp(args)) {
        QTextStream(stdout) << kAlarmsUsage;
        return kExitOk;
    }
    RangeArgs a;
    if (const QString why = parseArgs(args, a, false, false); !why.isEmpty()) {
        return usageError(kAlarmsUsage, why);
    }
    CliContext ctx(g);
    history::HistoryStore store(historyPath(g), ctx.clock);
    bool exists = false;
    if (!openForReading(ctx, store, exists)) {
        return kExitFailure;
    }
    const QList<history::AlarmRow> rows =
        exists ? store.alarms(a.since.value_or(QDateTime()), a.until.value_or(QDateTime()), a.symbol)
               : QList<history::AlarmRow>();
    QTextStream out(stdout);
    if (a.json) {
        QJsonArray list;
        for (const history::AlarmRow& r : rows) {
            list.append(QJsonObject{{QStringLiteral("symbol"), r.symbol},
                                    {QStringLiteral("fired"), jsonTime(r.firedAt)},
                                    {QStringLiteral("alarm"), history::alarmKindName(r.kind)},
                                    {QStringLiteral("limit"), r.limit},
                                    {QStringLiteral("value"), r.value},
                                    {QStringLiteral("paged"), r.paged}});
        }
        out << QJsonDocument(list).toJson(QJsonDocument::Indented);
        return kExitOk;
    }
    if (rows.isEmpty()) {
        out << "No alarms in the history.\n";
        return kExitOk;
    }
    out << line({{QStringLiteral("Fired"), -19},
                 {QStringLiteral("Symbol"), -8},
                 {QStringLiteral("Alarm"), -11},
                 {QStringLiteral("Limit"), 12},
                 {QStringLiteral("Value"), 12},
                 {QStringLiteral("Paged"), 0}});
    for (const history::AlarmRow& r : rows) {
        out << line({{localTime(r.firedAt), -19},
                     {r.symbol, -8},
                     {history::alarmKindName(r.kind), -11},
                     {number(r.limit), 12},
                     {number(r.value), 12},
                     {r.paged ? QStringLiteral("yes") : QStringLiteral("no"), 0}});
    }
    return kExitOk;
}

} // namespace

void registerHistoryCommands(Registry& r)
{
    r.add({QStringLiteral("history"), QStringLiteral("one security's stored quotes; --import a daily CSV"),
           historyCommand});
    r.add({QStringLiteral("alarms"), QStringLiteral("the alarms that fired, from the history"), alarmsCommand});
}

} // namespace kestrova::cli
