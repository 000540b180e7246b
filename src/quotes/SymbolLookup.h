#pragma once

#include "core/Options.h"
#include "quotes/BuiltInServers.h"
#include "quotes/Qserver.h"
#include "quotes/SourceDefinition.h"

#include <QDateTime>
#include <QHash>
#include <QMetaType>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>

class QThread;

namespace kestrova::quotes {

// Everything a look-up asks the sources with, copied when the look-up is made: it runs on
// a thread of its own and must not share the program's objects.
struct LookupSetup
{
    SourceFile sources;
    // Source names and kServersDatEntry, first asked first (the failure order in force).
    QStringList order;
    // API keys by source name; a source that needs one and has none is passed over.
    QHash<QString, QString> keys;
    // Sources resting after a "too many requests": not asked.
    QSet<QString> resting;
    BuiltInServers builtIn;
    // The servers.dat definitions that price stocks and options by default (null: none).
    std::shared_ptr<const Qserver> stockServer;
    std::shared_ptr<const Qserver> optionServer;
    qint16 optionServerIndex = 0;
    core::ProxyOptions proxy;
    int hostConnections = 6;
    QString caFile;
    // A look-up is a check while the user types: a silent service is given up on sooner
    // than in an update.
    int timeoutMs = 10000;
};

class SourceHealth;
struct ServerDefinitions;

// The setup for the options given: the failure order they choose (else the file's), the
// keys of the sources that need one, the sources resting at `now`, and the servers.dat
// definitions of their default stock and option services.
LookupSetup makeLookupSetup(const SourceFile& file, const core::Options& options, const ServerDefinitions& servers,
                            const std::function<QString(const QString& sourceName)>& key, const SourceHealth* health,
                            const QDateTime& now, int hostConnections);

// What the sources said about one symbol.
struct LookupResult
{
    QString symbol; // as asked
    bool known = false;
    QString name;   // empty when the source gave none
    QString last;   // the last price as the quote table shows it
    QString source; // the source that priced it
};

// "IBM — International Business Machines, 241.30 (Stooq)", or
// "XYZQ: no source knows this symbol".
QString lookupText(const LookupResult& result);

// Asks the quote sources about symbols in the failure order, one source after the other
// for the symbols still without a price, and reports each symbol as soon as one priced it
// (or, after the last source, that none did). The asking happens on a thread of its own
// with its own transfers, so the caller's event loop never waits for a service; results
// arrive as signals in the caller's thread. Nothing goes to the status list or the log:
// this is a check while the user types, not an update.
class SymbolLookup : public QObject
{
    Q_OBJECT
public:
    explicit SymbolLookup(LookupSetup setup, QObject* parent = nullptr);
    ~SymbolLookup() override;
    SymbolLookup(const SymbolLookup&) = delete;
    SymbolLookup& operator=(const SymbolLookup&) = delete;

    // Asks about the symbols (trimmed; empty ones are skipped) as securities of the given
    // type (0 Stock, 1 Option, 2 Mutual Fund, 3 Future). Each is reported once by
    // resolved(); symbols asked while earlier ones are still out wait for them.
    void lookUp(const QStringList& symbols, qint16 type = 0);
    // Drops everything asked so far: transfers in flight end at once and nothing more is
    // reported for them.
    void cancel();
    // Symbols asked and not reported yet.
    bool busy() const { return m_outstanding > 0; }

Q_SIGNALS:
    void resolved(const kestrova::quotes::LookupResult& result);
    // Everything asked has been reported.
    void idle();

private:
    class Worker;

    void deliver(quint64 generation, const LookupResult& result);

    std::shared_ptr<const LookupSetup> m_setup;
    std::shared_ptr<std::atomic<quint64>> m_generation;
    QThread* m_thread = nullptr;
    Worker* m_worker = nullptr;
    int m_outstanding = 0;
};

} // namespace kestrova::quotes

Q_DECLARE_METATYPE(kestrova::quotes::LookupResult)
