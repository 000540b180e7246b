#include "quotes/SymbolLookup.h"

#include "core/Quote.h"
#include "quotes/CurlFetcher.h"
#include "quotes/QuoteCycle.h"
#include "quotes/ServersDat.h"
#include "quotes/SourceFill.h"
#include "quotes/SourceHealth.h"
#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/CurlLibrary.h"
#include "support/Host.h"
#include "support/Services.h"

#include <QPointer>
#include <QThread>

#include <algorithm>
#include <exception>

namespace kestrova::quotes {

namespace {

// The look-up's face: it has no status list, no boxes and nobody to yield to (its thread
// waits in the fetcher's poll and nowhere else).
class QuietHost final : public support::Host
{
public:
    void appendStatusLine(const QString&) override {}
    void setStatusText(const QString&) override {}
    void setProgress(const QString&, const QString&) override {}
    void terminalEcho(const QString&) override {}
    support::MsgAnswer messageBox(const QString&, support::MsgButtons, support::MsgIcon) override
    {
        return support::MsgAnswer::Cancel;
    }
    QString inputBox(const QString&, const QString&) override { return {}; }
    void setBusy(bool) override {}
    bool openUrl(const QString&) override { return false; }
    void yield(int) override {}
};

// What a servers.dat page leaves in a field it could not read.
bool isPlaceholder(const QString& text)
{
    return text.isEmpty() || text == QLatin1String("n/a") || text == QLatin1String("???");
}

LookupResult foundIn(const QString& symbol, const core::Quote& quote, const QString& source)
{
    LookupResult r;
    r.symbol = symbol;
    r.known = true;
    r.name = isPlaceholder(quote.name()) ? QString() : quote.name();
    r.last = quote.last();
    r.source = source;
    return r;
}

} // namespace

LookupSetup makeLookupSetup(const SourceFile& file, const core::Options& options, const ServerDefinitions& servers,
                            const std::function<QString(const QString&)>& key, const SourceHealth* health,
                            const QDateTime& now, int hostConnections)
{
    LookupSetup setup;
    setup.sources = file;
    setup.order = effectiveOrder(options.sources.order, file);
    for (const SourceDefinition& s : file.sources) {
        if (s.needsKey() && key)
            setup.keys.insert(s.name, key(s.name));
        const QDateTime rest = health ? health->restedUntil(s.name) : QDateTime();
        if (rest.isValid() && rest > now)
            setup.resting.insert(s.name);
    }
    setup.builtIn = BuiltInServers(options.quotes);
    auto definition = [&](const QServers& col, int index) -> std::shared_ptr<const Qserver> {
        const QString name = setup.builtIn.at(std::clamp(index, 0, BuiltInServers::kCount - 1)).name;
        return col.contains(name) ? std::make_shared<const Qserver>(*col.Item(name)) : nullptr;
    };
    setup.stockServer = definition(servers.stock, options.quotes.server);
    setup.optionServer = definition(servers.option, options.quotes.optionServer);
    setup.optionServerIndex = options.quotes.optionServer;
    setup.proxy = options.proxy;
    setup.hostConnections = hostConnections;
    return setup;
}

QString lookupText(const LookupResult& result)
{
    if (!result.known)
        return result.symbol + QStringLiteral(": no source knows this symbol");
    QString text = result.symbol;
    if (!result.name.isEmpty())
        text += QStringLiteral(" \u2014 ") + result.name;
    return text + QStringLiteral(", ") + result.last + QStringLiteral(" (") + result.source + u')';
}

class SymbolLookup::Worker : public QObject
{
public:
    Worker(std::shared_ptr<const LookupSetup> setup, std::shared_ptr<std::atomic<quint64>> generation,
           SymbolLookup* owner)
        : m_setup(std::move(setup)), m_generation(std::move(generation)), m_owner(owner)
    {}

    // True once this thread has made transfers (and so has TLS state to give back).
    bool madeTransfers() const { return m_fetcher != nullptr; }

    void run(const QStringList& symbols, qint16 type, quint64 generation)
    {
        if (!current(generation))
            return;
        if (!m_fetcher) {
            m_fetcher = std::make_unique<CurlFetcher>(m_host, m_setup->proxy);
            m_fetcher->setHostConnections(m_setup->hostConnections);
            m_fetcher->setTimeoutMs(m_setup->timeoutMs);
            m_fetcher->setConnectTimeoutMs(m_setup->timeoutMs);
            if (!m_setup->caFile.isEmpty())
                m_fetcher->setCaFile(m_setup->caFile);
        }
        m_fetcher->setCancelCheck([this, generation] { return !current(generation); });

        QStringList pending = symbols;
        // The places of the failure order as an update finds them (a source without its key
        // is passed over), less those resting after a "too many requests".
        const SourceSetup sources{m_setup->sources, m_setup->order,
                                  [this](const QString& name) { return m_setup->keys.value(name); }, nullptr};
        for (const SourceStage& stage : sourceStages(&sources, m_services, false)) {
            if (pending.isEmpty() || !current(generation))
                break;
            if (!stage.source)
                askServersDat(pending, type, generation);
            else if (!m_setup->resting.contains(stage.source->name))
                askModernSource(stage, pending, type, generation);
        }
        if (!current(generation))
            return;
        for (const QString& symbol : pending) {
            LookupResult unknown;
            unknown.symbol = symbol;
            report(generation, unknown);
        }
    }

private:
    bool current(quint64 generation) const { return m_generation->load() == generation; }

    void report(quint64 generation, const LookupResult& result)
    {
        SymbolLookup* owner = m_owner;
        QMetaObject::invokeMethod(
            owner, [owner, generation, result] { owner->deliver(generation, result); }, Qt::QueuedConnection);
    }

    std::shared_ptr<core::Quote> blankQuote(const QString& symbol, qint16 type) const
    {
        auto q = std::make_shared<core::Quote>();
        q->setTicker(symbol);
        q->setSecurityType(type);
        q->setDigits(2);
        return q;
    }

    // One source, asked as an update asks it; every symbol it prices is reported as its
    // answer comes in.
    void askModernSource(const SourceStage& stage, QStringList& pending, qint16 type, quint64 generation)
    {
        std::vector<SourceItem> items;
        for (const QString& s : pending)
            items.push_back({s, type});
        QSet<QString> priced;
        askSource(
            stage, items, *m_fetcher, m_services, nullptr, false, [&] { return current(generation); },
            [&](size_t i, const SymbolAnswer& answer) {
                if (!current(generation))
                    return;
                auto q = blankQuote(items[i].ticker, type);
                fillFromSource(*q, answer.values, stage.source->name);
                if (q->lastValue() == 0)
                    return;
                priced.insert(items[i].ticker);
                report(generation, foundIn(items[i].ticker, *q, stage.source->name));
            });
        pending.removeIf([&](const QString& s) { return priced.contains(s); });
    }

    // The quote servers of servers.dat: one page per symbol, scraped by its keys.
    void askServersDat(QStringList& pending, qint16 type, quint64 generation)
    {
        const bool option = type == 1;
        const std::shared_ptr<const Qserver>& definition = option ? m_setup->optionServer : m_setup->stockServer;
        if (!definition)
            return;
        std::vector<Qserver> servers;
        QStringList urls;
        for (const QString& symbol : pending) {
            Qserver s = *definition;
            s.setTicker(option ? optionTicker(symbol, m_setup->optionServerIndex) : symbol);
            urls << s.requestUrl(*m_fetcher);
            servers.push_back(s);
        }
        const ScrapeContext scrape{*m_fetcher, m_setup->builtIn, m_clock, m_host};
        QSet<QString> priced;
        m_fetcher->getPages(urls, CurlFetcher::kMaxParallel, [&](int index, const PageBody& body) {
            if (!current(generation))
                return false;
            const QString& symbol = pending[index];
            auto q = blankQuote(symbol, type);
            try {
                if (!servers[size_t(index)].fillQuote(*q, body, scrape) || q->lastValue() == 0)
                    return true;
            } catch (const std::exception&) {
                return true; // a definition that does not fit this page prices nothing
            }
            priced.insert(symbol);
            report(generation, foundIn(symbol, *q, servers[size_t(index)].serverName()));
            return true;
        });
        pending.removeIf([&](const QString& s) { return priced.contains(s); });
    }

    std::shared_ptr<const LookupSetup> m_setup;
    std::shared_ptr<std::atomic<quint64>> m_generation;
    SymbolLookup* m_owner;
    QuietHost m_host;
    support::SystemClock m_clock;
    support::CancelFlag m_cancel;
    support::CLogFile m_log{m_clock, m_host}; // never enabled: a look-up writes no log
    const support::Services m_services{m_clock, m_host, m_cancel, m_log};
    std::unique_ptr<CurlFetcher> m_fetcher;
};

SymbolLookup::SymbolLookup(LookupSetup setup, QObject* parent)
    : QObject(parent), m_setup(std::make_shared<const LookupSetup>(std::move(setup))),
      m_generation(std::make_shared<std::atomic<quint64>>(1))
{
    m_thread = new QThread;
    m_thread->setObjectName(QStringLiteral("SymbolLookup"));
    m_worker = new Worker(m_setup, m_generation, this);
    m_worker->moveToThread(m_thread);
    // Emitted on the ending thread itself, after the worker's last job.
    connect(
        m_thread, &QThread::finished, m_thread,
        [worker = m_worker] {
            if (worker->madeTransfers())
                support::releaseCurlThreadState();
        },
        Qt::DirectConnection);
    m_thread->start();
}

SymbolLookup::~SymbolLookup()
{
    ++*m_generation;
    m_thread->quit();
    m_thread->wait();
    // The thread has ended: nothing else can touch the worker or its transfers now.
    delete m_worker;
    delete m_thread;
}

void SymbolLookup::lookUp(const QStringList& symbols, qint16 type)
{
    QStringList asked;
    for (const QString& s : symbols) {
        const QString t = s.trimmed();
        if (!t.isEmpty() && !asked.contains(t, Qt::CaseInsensitive))
            asked << t;
    }
    if (asked.isEmpty())
        return;
    m_outstanding += int(asked.size());
    const quint64 generation = m_generation->load();
    Worker* worker = m_worker;
    QMetaObject::invokeMethod(
        worker, [worker, asked, type, generation] { worker->run(asked, type, generation); }, Qt::QueuedConnection);
}

void SymbolLookup::cancel()
{
    ++*m_generation;
    m_outstanding = 0;
}

void SymbolLookup::deliver(quint64 generation, const LookupResult& result)
{
    if (generation != m_generation->load())
        return;
    --m_outstanding;
    Q_EMIT resolved(result);
    if (m_outstanding == 0)
        Q_EMIT idle();
}

} // namespace kestrova::quotes
