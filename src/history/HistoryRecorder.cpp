#include "history/HistoryRecorder.h"

#include "core/Quote.h"
#include "core/Quotes.h"
#include "settings/Preferences.h"
#include "settings/SettingsStore.h"
#include "support/CLogFile.h"
#include "support/Clock.h"
#include "support/Format.h"
#include "support/Services.h"

#include <cmath>
#include <limits>

namespace kestrova::history {

namespace {

constexpr auto kRetentionDayKey = "retention_day";

// Limits are singles; written as doubles they would show float noise (105.3 as
// 105.30000305), so they go in with the digits a single really has.
double limitValue(float limit)
{
    return QString::number(double(limit), 'g', 7).toDouble();
}

void addAlarms(QList<AlarmRow>& out, const core::Quote& q, const QDateTime& at, bool paged)
{
    auto add = [&](bool on, AlarmKind kind, float limit, double value) {
        if (on) {
            out << AlarmRow{q.ticker(), kind, limitValue(limit), value, at, paged};
        }
    };
    const double last = fieldValue(q.last()).value_or(0);
    const double percent = support::leadingNumber(q.percentChg());
    const double volume = fieldValue(q.volume()).value_or(0);
    add(q.highAlarm(), AlarmKind::High, q.highLimit(), last);
    add(q.lowAlarm(), AlarmKind::Low, q.lowLimit(), last);
    add(q.highChgAlarm(), AlarmKind::HighChange, q.highChgLimit(), percent);
    add(q.lowChgAlarm(), AlarmKind::LowChange, q.lowChgLimit(), percent);
    add(q.volumeAlarm(), AlarmKind::Volume, q.volumeLimit(), volume);
}

} // namespace

HistorySettings readHistorySettings(const settings::SettingsStore& store)
{
    const settings::Preferences prefs = settings::readPreferences(store, QString());
    return HistorySettings{prefs.historyEnabled, prefs.historyKeepDays};
}

std::optional<double> fieldValue(const QString& text)
{
    QString t = text.trimmed();
    if (t.isEmpty() || t.compare(QLatin1String("n/a"), Qt::CaseInsensitive) == 0) {
        return std::nullopt;
    }
    t.remove(u',');
    bool ok = false;
    const double v = t.toDouble(&ok);
    // toDouble takes "nan" and "inf", and a service can send either; a number past a double
    // ("1e309") comes back infinite and refused. None of them is a number to keep, and the
    // leading digits of the last one would be a different number.
    if (ok || std::isinf(v)) {
        return std::isfinite(v) ? std::optional<double>(v) : std::nullopt;
    }
    for (QChar c : t) {
        if (c.isDigit()) {
            return support::leadingNumber(t);
        }
    }
    return std::nullopt;
}

CycleRecord makeCycleRecord(const core::Quotes& stocks, const core::Quotes& options, const QDateTime& fetchedAt,
                            const std::function<QString(const core::Quote&)>& sourceOf, bool pageWentOut)
{
    CycleRecord c;
    for (const core::Quotes* set : {&stocks, &options}) {
        for (const auto& q : *set) {
            QuoteRow r;
            r.symbol = q->ticker();
            r.fetchedAt = fetchedAt;
            r.quotedAt = q->updateDate();
            r.last = fieldValue(q->last());
            r.change = fieldValue(q->change());
            r.percentChange = fieldValue(q->percentChg());
            if (const auto v = fieldValue(q->volume())) {
                r.volume = support::wholeNumberIn(*v, 0, std::numeric_limits<qint64>::max());
            }
            r.bid = fieldValue(q->bid());
            r.ask = fieldValue(q->ask());
            r.high = fieldValue(q->dayHigh());
            r.low = fieldValue(q->dayLow());
            r.open = fieldValue(q->openPrice());
            r.source = sourceOf ? sourceOf(*q) : QString();
            c.quotes << r;
            addAlarms(c.alarms, *q, fetchedAt, pageWentOut && q->toPager());
        }
    }
    return c;
}

HistoryRecorder::HistoryRecorder(const support::Services& services, QString path)
    : m_services(services), m_path(std::move(path))
{}

HistoryRecorder::~HistoryRecorder() = default;

void HistoryRecorder::reportSetAside(const QString& why)
{
    m_services.StatusMessage(QStringLiteral("History: the damaged history file was kept as ") +
                             m_store->setAsidePath() + QStringLiteral(" and a new one started (") + why + u')');
}

bool HistoryRecorder::ensureOpen()
{
    if (m_store && m_store->isOpen()) {
        return true;
    }
    if (!m_store) {
        m_store = std::make_unique<HistoryStore>(m_path, m_services.clock);
    }
    if (m_store->open()) {
        m_saidOff = false;
        if (!m_store->setAsidePath().isEmpty()) {
            reportSetAside(m_store->lastError());
        }
        return true;
    }
    if (!m_saidOff) {
        m_saidOff = true;
        m_services.StatusMessage(QStringLiteral("History is off: ") + m_store->lastError());
    }
    return false;
}

void HistoryRecorder::applyRetention(const HistorySettings& settings)
{
    const QDateTime now = m_services.clock.now();
    const QString today = now.date().toString(Qt::ISODate);
    if (m_store->meta(QLatin1String(kRetentionDayKey)) == today) {
        return;
    }
    const qint64 removed = m_store->removeOlderThan(now.addDays(-settings.keepDays));
    if (removed < 0) {
        m_services.log.LogMessage(QStringLiteral("History: ") + m_store->lastError());
        return;
    }
    m_store->setMeta(QLatin1String(kRetentionDayKey), today);
    if (removed > 0) {
        m_services.log.LogMessage(
            QStringLiteral("History: %1 rows older than %2 days removed").arg(removed).arg(settings.keepDays));
    }
}

bool HistoryRecorder::writePending()
{
    const QList<CycleRecord> cycles(m_pending.begin(), m_pending.end());
    if (!m_store->append(cycles)) {
        return false;
    }
    m_pending.clear();
    // The run keeps the store open for months, and SQLite's page cache keeps every page it
    // has touched up to its 2 MB limit: the resident set would climb with the file for weeks.
    // A cycle's write needs only the pages at the end of the table and its indexes, read
    // again from the operating system's cache next time.
    m_store->releaseCache();
    return true;
}

void HistoryRecorder::recordCycle(bool completed, const core::Quotes& stocks, const core::Quotes& options,
                                  const QDateTime& fetchedAt,
                                  const std::function<QString(const core::Quote&)>& sourceOf, bool pageWentOut)
{
    if (completed) {
        record(makeCycleRecord(stocks, options, fetchedAt, sourceOf, pageWentOut),
               readHistorySettings(settings::SettingsStore()));
    }
}

void HistoryRecorder::record(const CycleRecord& cycle, const HistorySettings& settings)
{
    if (!settings.enabled) {
        return;
    }
    m_pending.push_back(cycle);
    if (m_pending.size() > kMaxPending) {
        m_pending.pop_front();
        m_services.log.LogMessage(QStringLiteral("History: the oldest unwritten cycle was dropped"));
    }
    if (!ensureOpen()) {
        return;
    }
    applyRetention(settings);
    if (writePending()) {
        return;
    }
    if (m_store->lastErrorIsDamage()) {
        const QString why = m_store->lastError();
        if (m_store->startOver()) {
            reportSetAside(why);
            if (writePending()) {
                return;
            }
        }
    }
    m_services.StatusMessage(QStringLiteral("History: cycle not written, it goes in with the next one (") +
                             m_store->lastError() + u')');
}

} // namespace kestrova::history
