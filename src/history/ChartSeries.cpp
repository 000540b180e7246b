#include "history/ChartSeries.h"

#include "history/SqliteStatement.h"

#include <QAtomicInteger>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>
#include <limits>

namespace kestrova::history {

QString chartRangeName(ChartRange range)
{
    switch (range) {
    case ChartRange::Day:
        return QStringLiteral("Day");
    case ChartRange::Week:
        return QStringLiteral("Week");
    case ChartRange::Month:
        return QStringLiteral("Month");
    case ChartRange::Year:
        return QStringLiteral("Year");
    case ChartRange::All:
        return QStringLiteral("All");
    }
    return {};
}

QDateTime rangeStart(ChartRange range, const QDateTime& now)
{
    switch (range) {
    case ChartRange::Day:
        return now.addDays(-1);
    case ChartRange::Week:
        return now.addDays(-7);
    case ChartRange::Month:
        return now.addMonths(-1);
    case ChartRange::Year:
        return now.addYears(-1);
    case ChartRange::All:
        break;
    }
    return {};
}

ChartData loadChartData(const QString& databasePath, const QString& symbol, const QDateTime& from,
                        const QDateTime& until)
{
    ChartData data;
    data.symbol = symbol;
    if (!QFileInfo(databasePath).isFile()) {
        return data; // no history kept yet: an empty chart, not an error
    }
    static QAtomicInteger<quint64> counter;
    const QString name = QStringLiteral("kestrova-chart-%1").arg(counter.fetchAndAddRelaxed(1));
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(databasePath);
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
        if (!db.open()) {
            data.error = db.lastError().text();
        } else {
            const qint64 lo = from.isValid() ? from.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
            const qint64 hi = until.isValid() ? until.toMSecsSinceEpoch() : std::numeric_limits<qint64>::max();
            SqliteStatement q(db, "SELECT fetched_at, last, volume FROM quotes WHERE symbol = ? AND fetched_at >= ? "
                                  "AND fetched_at <= ? AND last > 0 ORDER BY fetched_at");
            q.bind(1, symbol);
            q.bind(2, lo);
            q.bind(3, hi);
            while (q.next()) {
                data.times << q.int64(0);
                data.prices << q.real(1);
                data.volumes << q.real(2);
            }
            if (q.errorCode() != 0) {
                data.error = q.errorText();
            }
            QSqlQuery a(db);
            a.setForwardOnly(true);
            a.prepare(QStringLiteral("SELECT fired_at, kind, limit_value, value, paged FROM alarms WHERE symbol = ? "
                                     "AND fired_at >= ? AND fired_at <= ? ORDER BY fired_at"));
            a.bindValue(0, symbol);
            a.bindValue(1, lo);
            a.bindValue(2, hi);
            if (a.exec()) {
                while (a.next()) {
                    AlarmRow r;
                    r.symbol = symbol;
                    r.firedAt = QDateTime::fromMSecsSinceEpoch(a.value(0).toLongLong());
                    r.kind = alarmKindFromName(a.value(1).toString()).value_or(AlarmKind::High);
                    r.limit = a.value(2).toDouble();
                    r.value = a.value(3).toDouble();
                    r.paged = a.value(4).toInt() != 0;
                    data.alarms << r;
                }
            } else if (data.error.isEmpty()) {
                data.error = a.lastError().text();
            }
        }
    }
    QSqlDatabase::removeDatabase(name);
    return data;
}

QList<QPointF> decimate(const QList<qint64>& times, const QList<double>& values, int buckets)
{
    const qsizetype n = std::min(times.size(), values.size());
    QList<QPointF> out;
    if (buckets < 1 || n <= 2 * qsizetype(buckets)) {
        out.reserve(n);
        for (qsizetype i = 0; i < n; ++i) {
            out.append(QPointF(double(times[i]), values[i]));
        }
        return out;
    }
    out.reserve(2 * buckets);
    const double first = double(times.first());
    const double span = std::max(1.0, double(times[n - 1]) - first);
    qsizetype i = 0;
    while (i < n) {
        const int bucket = std::min(buckets - 1, int((double(times[i]) - first) * buckets / span));
        qsizetype lo = i;
        qsizetype hi = i;
        qsizetype j = i + 1;
        for (; j < n && std::min(buckets - 1, int((double(times[j]) - first) * buckets / span)) == bucket; ++j) {
            if (values[j] < values[lo]) {
                lo = j;
            }
            if (values[j] > values[hi]) {
                hi = j;
            }
        }
        const qsizetype a = std::min(lo, hi);
        const qsizetype b = std::max(lo, hi);
        out.append(QPointF(double(times[a]), values[a]));
        if (b != a) {
            out.append(QPointF(double(times[b]), values[b]));
        }
        i = j;
    }
    return out;
}

TradingTimeAxis::TradingTimeAxis(const QList<qint64>& times, qint64 breakMs)
{
    QList<qint64> steps;
    for (qsizetype i = 0; i < times.size(); ++i) {
        if (i == 0 || times[i] - times[i - 1] > breakMs) {
            m_sessions.append(Session{times[i], times[i], 0});
        } else {
            steps.append(times[i] - times[i - 1]);
            m_sessions.last().end = times[i];
        }
    }
    constexpr qint64 kDay = 24LL * 3600 * 1000;
    if (!steps.isEmpty()) {
        std::nth_element(steps.begin(), steps.begin() + steps.size() / 2, steps.end());
        m_step = std::max<qint64>(1, steps[steps.size() / 2]);
    } else {
        m_step = kDay; // one quote a session (daily rows): a day apart each
    }
    double at = m_sessions.isEmpty() ? 0.0 : double(m_sessions.first().start);
    for (Session& s : m_sessions) {
        s.at = at;
        at += double(s.end - s.start) + double(m_step);
    }
}

double TradingTimeAxis::position(qint64 time) const
{
    if (m_sessions.isEmpty()) {
        return double(time);
    }
    // The last session that starts at or before the moment.
    auto it = std::upper_bound(m_sessions.begin(), m_sessions.end(), time,
                               [](qint64 t, const Session& s) { return t < s.start; });
    if (it == m_sessions.begin()) {
        return m_sessions.first().at - double(m_sessions.first().start - time);
    }
    const Session& s = *(it - 1);
    if (time <= s.end || it == m_sessions.end()) {
        return s.at + double(time - s.start);
    }
    const double pause = double(it->start - s.end);
    return s.at + double(s.end - s.start) + double(m_step) * double(time - s.end) / pause;
}

QList<TradingTimeAxis::Session> TradingTimeAxis::labelled(int count) const
{
    QList<Session> out;
    if (count < 1) {
        return out;
    }
    const qsizetype every = std::max<qsizetype>(1, (m_sessions.size() + count - 1) / count);
    for (qsizetype i = 0; i < m_sessions.size(); i += every) {
        out.append(m_sessions[i]);
    }
    return out;
}

} // namespace kestrova::history
