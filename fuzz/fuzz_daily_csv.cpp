// `history --import` on arbitrary bytes: the daily CSV reader, then the rows it accepts
// written to a history store and read back. Every row kept has a close, and every number
// in it is finite, not negative and (a volume) a whole number of shares that the store
// gives back unchanged; every refused row is named by a line of the file, in file order.

#include "FuzzSupport.h"

#include "history/DailyCsv.h"
#include "history/HistoryStore.h"

#include <QCoreApplication>
#include <QMap>

#include <cmath>
#include <memory>

using namespace kestrova;

namespace {

const QString kSymbol = QStringLiteral("IBM");

struct Store
{
    support::MockClock clock;
    fuzz::ScratchFile file{history::HistoryStore::defaultFileName()};
    history::HistoryStore store{file.path(), clock};
};
Store* g_store = nullptr;

bool fine(const std::optional<double>& v)
{
    return !v || (std::isfinite(*v) && *v >= 0 && !std::signbit(*v));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzz::quietQt();
    // The SQLite driver is a plug-in, found through the application's library paths. Both
    // live until the process ends: destroyed at exit, after Qt SQL's own globals, the store
    // would close a connection that no longer exists.
    new QCoreApplication(*argc, *argv);
    g_store = new Store;
    fuzzCheck(g_store->store.open());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = fuzz::bytesOf(data, size);
    const history::DailyCsv csv = history::parseDailyCsv(bytes, kSymbol);
    const qsizetype lines = bytes.count('\n') + 1;
    int previous = 0;
    for (const history::CsvProblem& p : csv.problems) {
        fuzzCheck(p.line > previous && p.line <= lines);
        fuzzCheck(!p.why.isEmpty());
        previous = p.line;
    }
    fuzzCheck(csv.rows.size() + csv.problems.size() <= lines);
    // The last row of a day wins, as an import replaces earlier rows of the same day.
    QMap<qint64, history::QuoteRow> byDay;
    for (const history::QuoteRow& r : csv.rows) {
        fuzzCheck(r.last && fine(r.last) && fine(r.open) && fine(r.high) && fine(r.low));
        fuzzCheck(!r.volume || *r.volume >= 0);
        fuzzCheck(r.fetchedAt.isValid() && r.imported);
        byDay.insert(r.fetchedAt.toMSecsSinceEpoch(), r);
    }
    if (csv.rows.isEmpty()) {
        return 0;
    }
    history::HistoryStore& store = g_store->store;
    fuzzCheck(store.importRows(csv.rows));
    const QList<history::QuoteRow> back = store.quotes(kSymbol);
    fuzzCheck(back.size() == byDay.size());
    for (const history::QuoteRow& r : back) {
        const auto it = byDay.constFind(r.fetchedAt.toMSecsSinceEpoch());
        fuzzCheck(it != byDay.constEnd());
        fuzzCheck(r.last == it->last && r.open == it->open && r.high == it->high && r.low == it->low);
        fuzzCheck(r.volume == it->volume);
    }
    // Each input starts from an empty store.
    fuzzCheck(store.removeOlderThan(QDateTime(QDate(10000, 1, 1), QTime(0, 0))) >= 0);
    return 0;
}
