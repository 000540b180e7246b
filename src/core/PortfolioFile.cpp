#include "core/PortfolioFile.h"

#include "support/Cp1252.h"
#include "support/Format.h"
#include "support/SaveFile.h"
#include "support/VbError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <charconv>
#include <cmath>
#include <limits>

using kestrova::support::VbError;

namespace kestrova::core {

namespace {

constexpr int kFixedUserWidth = 25;

// Writes items the way the old sequential-file Write statement did: items joined by
// commas, strings in quotes, one line per statement.
class ItemWriter
{
public:
    void text(QString& s)
    {
        QString clean = s;
        // A quote or a line break inside a string would end the item early on reading;
        // the closest harmless characters keep the rest of the file readable.
        clean.replace(u'"', u'\'');
        clean.replace(u'\r', u' ');
        clean.replace(u'\n', u' ');
        QByteArray item = "\"";
        item += support::encodeCp1252(clean);
        item += '"';
        add(item);
    }
    void fixedText(QString& s)
    {
        QString padded = s.leftJustified(kFixedUserWidth, u' ', true);
        text(padded);
    }
    void scrambled(QString& s) { add("\"" + PortfolioFile::scramble(s) + "\""); }
    void variant(QString& s) { text(s); }
    void int16(qint16& v) { add(QByteArray::number(v)); }
    void flag(bool& v) { add(v ? "1" : "0"); }
    void int32(qint32& v) { add(QByteArray::number(v)); }
    void single(float& v) { add(support::singleToExactText(v).toLatin1()); }
    void boolean(bool& v) { add(v ? "#TRUE#" : "#FALSE#"); }
    void currency(support::Currency& v) { add(v.toString().toLatin1()); }
    void raw(const QByteArray& bytes) { m_out += bytes; }
    void endLine()
    {
        m_out += m_line;
        m_out += "\r\n";
        m_line.clear();
        m_first = true;
    }
    QByteArray result() const { return m_out; }

private:
    void add(const QByteArray& item)
    {
        if (!m_first) {
            m_line += ',';
        }
        m_line += item;
        m_first = false;
    }

    QByteArray m_out;
    QByteArray m_line;
    bool m_first = true;
};

// Reads items the way the old sequential-file Input statement did: an item ends at a
// comma or a line end, a quoted string may hold commas, and line ends are only
// separators. Running out of items is error 62, which is how an older, shorter file shows.
class ItemReader
{
public:
    explicit ItemReader(const QByteArray& bytes) : m_bytes(bytes) {}

    void text(QString& s) { s = support::decodeCp1252(next().raw); }
    void fixedText(QString& s) { s = support::decodeCp1252(next().raw).leftJustified(kFixedUserWidth, u' ', true); }
    void scrambled(QString& s) { s = PortfolioFile::unscramble(next().raw); }
    void variant(QString& s) { s = support::decodeCp1252(next().raw); }
    void int16(qint16& v)
    {
        v = static_cast<qint16>(integer(std::numeric_limits<qint16>::min(), std::numeric_limits<qint16>::max()));
    }
    void flag(bool& v) { v = integer(std::numeric_limits<qint16>::min(), std::numeric_limits<qint16>::max()) != 0; }
    void int32(qint32& v)
    {
        v = static_cast<qint32>(integer(std::numeric_limits<qint32>::min(), std::numeric_limits<qint32>::max()));
    }
    void single(float& v)
    {
        const Item item = next();
        const double d = number(item);
        if (std::fabs(d) > std::numeric_limits<float>::max()) {
            throw VbError(VbError::Overflow);
        }
        // Straight to single precision: going through a double first rounds twice, and a
        // value written as the shortest text of a single could come back one step off.
        const QByteArray t = item.raw.trimmed();
        float f = 0;
        const auto r = std::from_chars(t.constData(), t.constData() + t.size(), f);
        v = r.ec == std::errc() && r.ptr == t.constData() + t.size() ? f : static_cast<float>(d);
    }
    void boolean(bool& v) { v = number(next()) != 0; }
    void currency(support::Currency& v)
    {
        const double d = number(next());
        // Beyond a few hundred billion a double no longer holds four exact decimals.
        if (std::fabs(d) > 9e11) {
            throw VbError(VbError::Overflow);
        }
        v = support::Currency::fromDouble(d);
    }
    void endLine() {}

    // Only blanks and line ends are left.
    bool atEnd()
    {
        while (m_pos < m_bytes.size() && (isBlank(m_bytes[m_pos]) || isLineEnd(m_bytes[m_pos]))) {
            ++m_pos;
        }
        return m_pos >= m_bytes.size();
    }
    QByteArray rest() const { return m_bytes.mid(m_pos); }

private:
    struct Item
    {
        QByteArray raw;
        bool quoted = false;
    };

    static bool isBlank(char c) { return c == ' ' || c == '\t'; }
    static bool isLineEnd(char c) { return c == '\r' || c == '\n'; }

    // After an item: blanks, then one comma or one line end (CR LF, CR or LF).
    void skipDelimiter()
    {
        while (m_pos < m_bytes.size() && isBlank(m_bytes[m_pos])) {
            ++m_pos;
        }
        if (m_pos >= m_bytes.size()) {
            return;
        }
        if (m_bytes[m_pos] == ',') {
            ++m_pos;
        } else if (m_bytes[m_pos] == '\r') {
            ++m_pos;
            if (m_pos < m_bytes.size() && m_bytes[m_pos] == '\n') {
                ++m_pos;
            }
        } else if (m_bytes[m_pos] == '\n') {
            ++m_pos;
        }
    }

    Item next()
    {
        while (m_pos < m_bytes.size() && isBlank(m_bytes[m_pos])) {
            ++m_pos;
        }
        if (m_pos >= m_bytes.size()) {
            throw VbError(VbError::InputPastEnd);
        }
        Item item;
        if (m_bytes[m_pos] == '"') {
            item.quoted = true;
            const qsizetype close = m_bytes.indexOf('"', m_pos + 1);
            const qsizetype end = close < 0 ? m_bytes.size() : close;
            item.raw = m_bytes.mid(m_pos + 1, end - m_pos - 1);
            m_pos = close < 0 ? m_bytes.size() : close + 1;
            // Whatever stands between the closing quote and the delimiter is not part of the item.
            while (m_pos < m_bytes.size() && m_bytes[m_pos] != ',' && !isLineEnd(m_bytes[m_pos])) {
                ++m_pos;
            }
        } else {
            const qsizetype start = m_pos;
            while (m_pos < m_bytes.size() && m_bytes[m_pos] != ',' && !isLineEnd(m_bytes[m_pos])) {
                ++m_pos;
            }
            item.raw = m_bytes.mid(start, m_pos - start).trimmed();
        }
        skipDelimiter();
        return item;
    }

    static double number(const Item& item)
    {
        const QByteArray t = item.raw.trimmed();
        if (t.isEmpty()) {
            return 0;
        }
        if (t.compare("#TRUE#", Qt::CaseInsensitive) == 0) {
            return -1;
        }
        if (t.compare("#FALSE#", Qt::CaseInsensitive) == 0) {
            return 0;
        }
        bool ok = false;
        const double d = t.toDouble(&ok);
        if (!ok || !std::isfinite(d)) {
            throw VbError(VbError::TypeMismatch);
        }
        return d;
    }

    qint64 integer(qint64 lo, qint64 hi)
    {
        const double d = number(next());
        if (d < static_cast<double>(lo) - 0.5 || d >= static_cast<double>(hi) + 0.5) {
            throw VbError(VbError::Overflow);
        }
        const qint64 v = support::roundHalfEven(d);
        if (v < lo || v > hi) {
            throw VbError(VbError::Overflow);
        }
        return v;
    }

    QByteArray m_bytes;
    qsizetype m_pos = 0;
};

void checkCount(qint16 count)
{
    if (count < 0 || count > PortfolioTable::kMaxInUse) {
        throw VbError(VbError::Subscript);
    }
}

void checkModemIndex(qint16 lastIndex)
{
    if (lastIndex < -1 || lastIndex >= kModemSlots) {
        throw VbError(VbError::Subscript);
    }
}

// The whole file in order. The same walk writes and reads, so the two can never drift
// apart; docs/portfolio-file.md is the readable form of this function.
template <class IO> void walk(IO& io, PortfolioTable& t, Options& o)
{
    auto records = [&t](auto&& perRecord) {
        checkCount(t.count);
        for (int i = 0; i < t.count; ++i) {
            perRecord(t.records[static_cast<size_t>(i)]);
        }
    };
    PagingOptions& pg = o.paging;
    ModemOptions& md = o.modem;
    SmtpOptions& sm = o.smtp;
    MailOptions& ml = o.mail;
    ConnectionOptions& cn = o.connection;
    ProxyOptions& px = o.proxy;
    QuoteOptions& qt = o.quotes;
    NewsOptions& nw = o.news;
    AlarmOptions& al = o.alarms;
    ScheduleOptions& sc = o.schedule;
    SpareItems& sp = o.spare;
    SourceOptions& so = o.sources;

    // 1
    io.text(pg.pagerId), io.text(pg.phone), io.text(pg.numericPrefix), io.text(md.settings), io.int16(md.port);
    io.endLine();
    // 2
    io.int16(pg.maxLength), io.int16(pg.retries), io.int16(pg.retrySeconds), io.int16(pg.numericWait);
    io.endLine();
    // 3
    io.text(sm.hostName), io.text(sm.hostAddress), io.text(sm.from), io.text(sm.recipient), io.int16(sm.port);
    io.endLine();
    // 4
    io.int16(sm.maxLength), io.int16(sm.security), io.flag(pg.enabled), io.flag(sm.enabled);
    io.endLine();
    // 5
    io.int16(md.flowControl), io.flag(md.pulse), io.int16(md.speakerVolume), io.int16(md.speakerMode);
    io.flag(pg.numeric), io.int16(pg.numericPause), io.int16(pg.layout);
    io.endLine();
    // 6
    // Counts are checked before they are kept: a damaged file must not leave the table
    // claiming more slots than it has.
    qint16 count = t.count;
    io.fixedText(pg.user), io.int16(count);
    io.endLine();
    checkCount(count);
    t.count = count;
    // 7
    records([&io](PortfolioRecord& r) {
        io.text(r.ticker), io.single(r.highLimit), io.single(r.lowLimit);
        io.endLine();
    });
    // 8
    qint16 lastIndex = md.lastIndex;
    io.int16(lastIndex), io.int16(md.selected);
    io.endLine();
    // 9
    checkModemIndex(lastIndex);
    md.lastIndex = lastIndex;
    for (int i = 0; i <= md.lastIndex; ++i) {
        ModemProfile& p = md.profiles[static_cast<size_t>(i)];
        io.text(p.name), io.text(p.init), io.text(p.pagerInit);
        io.endLine();
    }
    // 10
    io.flag(sc.enabled);
    for (bool& day : sc.days) {
        io.flag(day);
    }
    io.endLine();
    // 11
    io.text(sc.openTime), io.text(sc.middayTime), io.text(sc.closeTime), io.text(sc.startTime), io.text(sc.stopTime);
    io.text(sm.domain), io.text(qt.marketUrl);
    io.endLine();
    // 12
    io.flag(sc.marketOpen), io.flag(sc.midday), io.flag(sc.marketClose), io.flag(sc.interval);
    io.int16(qt.server), io.int16(qt.optionServer);
    io.endLine();
    // 13
    io.int16(cn.type), io.text(cn.entry), io.int16(cn.timeout), io.flag(cn.hangUpAfterUpdate), io.int16(o.gateFlag);
    io.endLine();
    // 14
    records([&io](PortfolioRecord& r) {
        io.int16(r.toPager), io.int16(r.marketOnly);
        io.endLine();
    });
    // 15
    io.int16(sc.intervalMinutes);
    io.endLine();
    // 16
    records([&io](PortfolioRecord& r) {
        io.int16(r.legacyOption);
        io.endLine();
    });
    // 17
    io.text(ml.server), io.text(ml.user), io.scrambled(ml.password), io.int16(ml.port), io.text(cn.user);
    io.int16(ml.mode), io.int16(ml.security);
    io.endLine();
    // 18
    io.text(sm.user), io.flag(md.quoteService), io.scrambled(sm.password), io.text(px.hostName);
    io.endLine();
    // 19
    io.text(so.order), io.text(sp.texts[0]), io.text(sp.texts[1]), io.text(sp.texts[2]);
    io.endLine();
    // 20
    io.int16(nw.maxStories), io.int16(nw.purgeDays), io.boolean(nw.retrieve), io.text(px.hostAddress);
    io.endLine();
    // 21
    io.text(sp.texts[3]), io.boolean(px.enabled), io.text(sp.texts[4]);
    io.endLine();
    // 22
    io.boolean(pg.forwardMail), io.boolean(pg.pageNews), io.int16(al.mode);
    io.endLine();
    // 23
    io.boolean(qt.fastest), io.boolean(qt.updateServers), io.boolean(qt.marketSummary), io.int16(al.selectMode);
    io.boolean(al.select), io.flag(ml.pageHeaders), io.flag(ml.notifyWaiting);
    io.endLine();
    // 24
    io.flag(ml.markerComma), io.boolean(qt.pageDow);
    io.endLine();
    // 25
    records([&io](PortfolioRecord& r) {
        io.single(r.highChgLimit), io.single(r.lowChgLimit), io.int32(r.volumeLimit), io.int16(r.securityType);
        io.endLine();
    });
    // 26
    io.variant(px.port);
    io.endLine();
    // 27
    io.boolean(qt.pageNasdaq), io.boolean(qt.pageSp500), io.flag(so.pageHealth), io.int16(sp.numbers[0]);
    io.int16(sp.numbers[1]);
    io.endLine();
    // 28
    io.text(sp.texts[5]);
    io.endLine();
    // 29
    records([&io](PortfolioRecord& r) {
        bool news = r.news != 0;
        io.int16(r.digits), io.int16(r.server), io.boolean(news);
        r.news = news ? 1 : 0;
        io.endLine();
    });
    // 30
    io.text(sp.texts[6]), io.int16(sp.numbers[2]);
    io.endLine();
    // 31
    for (ServerLogon& logon : qt.logons) {
        io.text(logon.user), io.scrambled(logon.password);
        io.endLine();
    }
    // 32
    PushOptions& ps = o.push;
    io.boolean(ps.enabled), io.int16(ps.style), io.scrambled(ps.url), io.scrambled(ps.token), io.int16(ps.timeout);
    io.endLine();
}

// Sections that follow the fixed layout, each opened by a line holding its name. A file
// without them is the fixed layout exactly, so files that need no section read the same
// in every version; a section this version does not know is kept as read.
const QByteArray kHoldingsSection = "Holdings";

template <class IO> void holdingsPass(IO& io, PortfolioTable& t)
{
    checkCount(t.count);
    for (int i = 0; i < t.count; ++i) {
        PortfolioRecord& r = t.records[static_cast<size_t>(i)];
        io.text(r.name), io.single(r.shares), io.currency(r.costBasis);
        io.endLine();
    }
}

void writeSections(ItemWriter& w, PortfolioTable& t, Options& o)
{
    bool holdings = false;
    for (int i = 0; i < t.count && !holdings; ++i) {
        holdings = t.records[static_cast<size_t>(i)].hasHolding();
    }
    if (holdings) {
        QString name = QString::fromLatin1(kHoldingsSection);
        w.text(name);
        w.endLine();
        holdingsPass(w, t);
    }
    w.raw(o.spare.laterSections);
}

void readSections(ItemReader& r, PortfolioTable& t, Options& o)
{
    // A file without a holdings section has none: what the previous file held must not stay.
    for (PortfolioRecord& rec : t.records) {
        rec.name.clear();
        rec.shares = 0;
        rec.costBasis = {};
    }
    o.spare.laterSections.clear();
    while (!r.atEnd()) {
        const QByteArray from = r.rest();
        QString name;
        r.text(name);
        if (name == QLatin1String(kHoldingsSection)) {
            holdingsPass(r, t);
        } else {
            o.spare.laterSections = from;
            return;
        }
    }
}

int errorFromFileDevice(QFileDevice::FileError error, const QString& path)
{
    const QFileInfo info(path);
    if (!info.absoluteDir().exists()) {
        return VbError::PathNotFound;
    }
    if (info.isDir()) {
        return 75; // path/file access error
    }
    // A save writes a new copy beside the file: a folder that takes no new file refuses it
    // however writable the file itself is.
    if (!QFileInfo(info.absolutePath()).isWritable()) {
        return VbError::PermissionDenied;
    }
    switch (error) {
    case QFileDevice::PermissionsError:
        return VbError::PermissionDenied;
    case QFileDevice::WriteError:
    case QFileDevice::ResourceError:
        return 57; // device I/O error
    case QFileDevice::OpenError:
        return info.exists() && !info.isWritable() ? VbError::PermissionDenied : 75;
    default:
        return 75;
    }
}

} // namespace

bool PortfolioFileResult::olderVersion() const
{
    return error == VbError::InputPastEnd;
}

QByteArray PortfolioFile::scramble(const QString& text)
{
    QByteArray out;
    out.reserve(text.size());
    for (QChar c : text) {
        const int b = support::cp1252Byte(c);
        if (b < 0 || b >= 128) {
            throw VbError(VbError::InvalidCall, QStringLiteral("A password may only hold plain ASCII characters"));
        }
        out += static_cast<char>(b + 128);
    }
    return out;
}

QString PortfolioFile::unscramble(const QByteArray& bytes)
{
    QByteArray plain;
    plain.reserve(bytes.size());
    for (char ch : bytes) {
        const int b = static_cast<unsigned char>(ch);
        if (b < 128) {
            throw VbError(VbError::InvalidCall, QStringLiteral("A scrambled string holds a character below 128"));
        }
        plain += static_cast<char>(b - 128);
    }
    return QString::fromLatin1(plain);
}

QByteArray PortfolioFile::encode(const PortfolioTable& table, const Options& options)
{
    PortfolioTable t = table;
    Options o = options;
    ItemWriter w;
    walk(w, t, o);
    writeSections(w, t, o);
    return w.result();
}

void PortfolioFile::decode(const QByteArray& bytes, PortfolioTable& table, Options& options)
{
    if (bytes.isEmpty()) {
        return; // end of file at once: nothing to read, nothing changes
    }
    ItemReader r(bytes);
    walk(r, table, options);
    readSections(r, table, options);
}

QString PortfolioFile::readerMessage(int error, const QString& fileName, const QString& description)
{
    switch (error) {
    case 0:
        return {};
    case VbError::FileNotFound:
        return QStringLiteral("File ") + fileName + QStringLiteral(" does not exist.");
    case VbError::InputPastEnd:
        return QStringLiteral(
            "Your data file is an older version.  Saving this file will convert it to the new version.");
    default:
        return QStringLiteral("ERROR %1: %2 (%3)")
            .arg(error)
            .arg(description.isEmpty() ? VbError::standardText(error) : description, fileName);
    }
}

QString PortfolioFile::writerMessage(int error, const QString& fileName)
{
    switch (error) {
    case 0:
        return {};
    case VbError::FileNotFound:
        return QStringLiteral("ERROR 53: That file doesn't exist.");
    case VbError::DeviceUnavailable: {
        const QString drive = fileName.size() >= 2 && fileName[1] == u':' ? fileName.left(1) : QString();
        return QStringLiteral("ERROR 68: Drive ") + drive + QStringLiteral(": not available.");
    }
    case VbError::PathNotFound:
        return QStringLiteral("ERROR 76: That path doesn't exist.");
    default:
        return QStringLiteral("ERROR ") + QString::number(error) + QStringLiteral(" occurred.");
    }
}

PortfolioFileResult PortfolioFile::read(const QString& path, PortfolioTable& table, Options& options)
{
    PortfolioFileResult result;
    QFile file(path);
    if (!QFileInfo(path).isFile()) {
        result.error = VbError::FileNotFound;
        result.message = readerMessage(result.error, path);
        return result;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        result.error = VbError::PermissionDenied;
        result.message = readerMessage(result.error, path, file.errorString());
        return result;
    }
    const QByteArray bytes = file.readAll();
    try {
        decode(bytes, table, options);
    } catch (const VbError& e) {
        result.error = e.number();
        result.message = readerMessage(e.number(), path, e.description());
    }
    return result;
}

PortfolioFileResult PortfolioFile::write(const QString& path, const PortfolioTable& table, const Options& options)
{
    PortfolioFileResult result;
    try {
        const QByteArray bytes = encode(table, options);
        if (const support::SaveResult saved = support::saveWhole(path, bytes); !saved) {
            throw VbError(errorFromFileDevice(saved.error, path));
        }
    } catch (const VbError& e) {
        result.error = e.number();
        result.message = writerMessage(e.number(), path);
    }
    return result;
}

} // namespace kestrova::core
