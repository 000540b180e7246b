#pragma once

#include "history/HistoryStore.h"
#include "history/HistoryTypes.h"

#include <QString>

#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace kestrova::core {
class Quote;
class Quotes;
} // namespace kestrova::core
namespace kestrova::settings {
class SettingsStore;
}
namespace kestrova::support {
struct Services;
}

namespace kestrova::history {

struct HistorySettings
{
    bool enabled = true;
    int keepDays = 730; // two years
};

// The history's switches are preferences of this machine (history.enabled, history.keep_days).
HistorySettings readHistorySettings(const settings::SettingsStore& store);

// A quote field's number: empty for an empty text, "n/a" or a text that holds no number.
std::optional<double> fieldValue(const QString& text);

// The rows of one cycle: every quote of both sets, and every alarm a quote has on.
// sourceOf names the service that priced a quote; pageWentOut marks the alarms of
// securities that are paged as having gone out.
CycleRecord makeCycleRecord(const core::Quotes& stocks, const core::Quotes& options, const QDateTime& fetchedAt,
                            const std::function<QString(const core::Quote&)>& sourceOf, bool pageWentOut);

// Keeps the history for the update run: opens the store when first needed, writes one
// cycle per transaction, applies the retention once a day, and never stops an update.
// A cycle that cannot be written (disk full, a lock held too long) stays queued and goes
// in with the next cycle; a store that cannot be opened is reported once and retried
// quietly at every cycle.
class HistoryRecorder
{
public:
    // The most cycles kept waiting for a store that cannot take them.
    static constexpr int kMaxPending = 240;

    HistoryRecorder(const support::Services& services, QString path);
    ~HistoryRecorder();

    void record(const CycleRecord& cycle, const HistorySettings& settings);
    // What every command that runs a retrieval cycle does with it: a cycle that ran to its
    // end goes into the history, with this machine's history settings; one cancelled or
    // stopped part-way does not, since its sets hold whatever happened to come first.
    void recordCycle(bool completed, const core::Quotes& stocks, const core::Quotes& options,
                     const QDateTime& fetchedAt, const std::function<QString(const core::Quote&)>& sourceOf,
                     bool pageWentOut);

    bool isOpen() const { return m_store && m_store->isOpen(); }
    int pendingCycles() const { return static_cast<int>(m_pending.size()); }
    HistoryStore* store() { return m_store.get(); }

private:
    bool ensureOpen();
    void applyRetention(const HistorySettings& settings);
    bool writePending();
    void reportSetAside(const QString& why);

    const support::Services& m_services;
    QString m_path;
    std::unique_ptr<HistoryStore> m_store;
    std::deque<CycleRecord> m_pending;
    bool m_saidOff = false;
};

} // namespace kestrova::history
