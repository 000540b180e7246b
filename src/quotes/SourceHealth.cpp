#include "quotes/SourceHealth.h"

#include "support/SaveFile.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace kestrova::quotes {

namespace {

constexpr int kForgetAfterDays = 30;
// Far more than a portfolio holds: a damaged or hostile file cannot grow the memory.
constexpr int kMaxEntries = 5000;

} // namespace

QDateTime SourceHealth::restedUntil(const QString& source) const
{
    return m_sources.value(source.toLower()).restUntil;
}

void SourceHealth::rest(const QString& source, const QDateTime& until)
{
    m_sources[source.toLower()].restUntil = until;
}

QString SourceHealth::priced(const QString& source, const QString& ticker, const QStringList& missingFields,
                             const QDate& today)
{
    Source& s = m_sources[source.toLower()];
    Security& sec = s.securities[ticker.toUpper()];
    sec.pricedBefore = true;
    sec.misses = 0;
    sec.warned = false;
    sec.seen = today;
    QStringList fresh;
    for (const QString& f : missingFields) {
        if (!s.warnedFields.contains(f))
            fresh << f;
    }
    // A field that is back is worth a warning again should it go missing later.
    for (auto it = s.warnedFields.begin(); it != s.warnedFields.end();) {
        if (missingFields.contains(*it))
            ++it;
        else
            it = s.warnedFields.erase(it);
    }
    if (fresh.isEmpty())
        return {};
    for (const QString& f : fresh)
        s.warnedFields.insert(f);
    return QStringLiteral("Quote source %1 answered for %2 without the %3 %4: its format may have changed")
        .arg(source, ticker, fresh.size() == 1 ? QStringLiteral("field") : QStringLiteral("fields"),
             fresh.join(QStringLiteral(", ")));
}

QString SourceHealth::noPrice(const QString& source, const QString& ticker, const QDate& today)
{
    Security& sec = m_sources[source.toLower()].securities[ticker.toUpper()];
    sec.seen = today;
    ++sec.misses;
    if (!sec.pricedBefore || sec.warned || sec.misses < kSilentUpdates)
        return {};
    sec.warned = true;
    return QStringLiteral("Quote source %1 gave no price for %2 in the last %3 updates: its format may have changed")
        .arg(source, ticker)
        .arg(sec.misses);
}

void SourceHealth::load(const QString& path)
{
    m_sources.clear();
    m_lastPaged = QDate();
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly) || f.size() > 4 * 1024 * 1024)
        return;
    const QJsonObject root = QJsonDocument::fromJson(f.readAll()).object();
    m_lastPaged = QDate::fromString(root.value(QLatin1String("lastPaged")).toString(), Qt::ISODate);
    const QJsonObject sources = root.value(QLatin1String("sources")).toObject();
    int entries = 0;
    for (auto it = sources.begin(); it != sources.end() && entries < kMaxEntries; ++it) {
        const QJsonObject o = it.value().toObject();
        Source s;
        s.restUntil = QDateTime::fromString(o.value(QLatin1String("restUntil")).toString(), Qt::ISODate);
        for (const QJsonValue& v : o.value(QLatin1String("warnedFields")).toArray())
            s.warnedFields.insert(v.toString());
        const QJsonObject secs = o.value(QLatin1String("securities")).toObject();
        for (auto si = secs.begin(); si != secs.end() && entries < kMaxEntries; ++si, ++entries) {
            const QJsonObject so = si.value().toObject();
            Security sec;
            sec.pricedBefore = so.value(QLatin1String("priced")).toBool();
            sec.misses = qBound(0, so.value(QLatin1String("misses")).toInt(), 1000);
            sec.warned = so.value(QLatin1String("warned")).toBool();
            sec.seen = QDate::fromString(so.value(QLatin1String("seen")).toString(), Qt::ISODate);
            s.securities.insert(si.key().toUpper(), sec);
        }
        m_sources.insert(it.key().toLower(), s);
    }
}

support::SaveResult SourceHealth::save(const QString& path, const QDate& today) const
{
    QJsonObject sources;
    for (auto it = m_sources.begin(); it != m_sources.end(); ++it) {
        QJsonObject secs;
        for (auto si = it->securities.begin(); si != it->securities.end(); ++si) {
            if (si->seen.isValid() && si->seen.daysTo(today) > kForgetAfterDays)
                continue;
            secs.insert(si.key(), QJsonObject{{QStringLiteral("priced"), si->pricedBefore},
                                              {QStringLiteral("misses"), si->misses},
                                              {QStringLiteral("warned"), si->warned},
                                              {QStringLiteral("seen"), si->seen.toString(Qt::ISODate)}});
        }
        QJsonObject o{{QStringLiteral("securities"), secs}};
        if (it->restUntil.isValid())
            o.insert(QStringLiteral("restUntil"), it->restUntil.toString(Qt::ISODate));
        if (!it->warnedFields.isEmpty()) {
            QStringList fields(it->warnedFields.begin(), it->warnedFields.end());
            fields.sort();
            o.insert(QStringLiteral("warnedFields"), QJsonArray::fromStringList(fields));
        }
        sources.insert(it.key(), o);
    }
    QJsonObject root{{QStringLiteral("sources"), sources}};
    if (m_lastPaged.isValid())
        root.insert(QStringLiteral("lastPaged"), m_lastPaged.toString(Qt::ISODate));
    return support::saveWhole(path, QJsonDocument(root).toJson(QJsonDocument::Indented));
}

QString SourceHealth::saveFailure(const QString& path, const support::SaveResult& result)
{
    return QStringLiteral("The state of the quote sources could not be saved in ") + path + QStringLiteral(": ") +
           result.errorString + QStringLiteral("; the file keeps what it held before this update");
}

} // namespace kestrova::quotes
