// The price chart on a real history file: a known week of quotes, its limits and alarms.
#include "TestUtil.h"

#include "gui/GuiHost.h"
#include "gui/PriceChart.h"
#include "history/HistoryStore.h"
#include "support/Clock.h"

#include <QApplication>
#include <QCategoryAxis>
#include <QChart>
#include <QDateTimeAxis>
#include <QDir>
#include <QGraphicsScene>
#include <QGraphicsView>
#include <QImage>
#include <QLineSeries>
#include <QScatterSeries>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QValueAxis>

#include <cmath>

using namespace kestrova;

namespace {

// Friday's close; the week before it has a quote every five minutes of the trading day.
const QDateTime kNow(QDate(2026, 11, 27), QTime(16, 0, 0));

struct Week
{
    history::CycleRecord record;
    int quotes = 0;
};

// A gentle climb with a daily swing, volume building up through each day.
Week knownWeek()
{
    Week w;
    for (int day = 4; day >= 0; --day) {
        const QDate date = kNow.date().addDays(-day);
        qint64 volume = 0;
        for (int minute = 9 * 60 + 30; minute <= 16 * 60; minute += 5) {
            const QDateTime at(date, QTime(minute / 60, minute % 60));
            const double t = double(w.quotes);
            history::QuoteRow r;
            r.symbol = QStringLiteral("IBM");
            r.fetchedAt = at;
            r.last = 148.0 + t * 0.01 + 2.5 * std::sin(t / 12.0);
            volume += 20000 + (w.quotes % 7) * 3000;
            r.volume = volume;
            r.source = QStringLiteral("Demo Market");
            w.record.quotes << r;
            if (*r.last >= 152.0) {
                w.record.alarms << history::AlarmRow{r.symbol, history::AlarmKind::High, 152.0, *r.last, at, true};
            }
            ++w.quotes;
        }
    }
    return w;
}

int pointsOf(QChart* chart, const QString& name)
{
    for (QAbstractSeries* s : chart->series()) {
        if (s->name().startsWith(name)) {
            return int(static_cast<QXYSeries*>(s)->count());
        }
    }
    return -1;
}

} // namespace

class TestPriceChart : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_db;
    Week m_week;
    support::MockClock m_clock{kNow};

private Q_SLOTS:
    void initTestCase()
    {
        m_db = m_dir.filePath(history::HistoryStore::defaultFileName());
        history::HistoryStore store(m_db, m_clock);
        QVERIFY(store.open());
        m_week = knownWeek();
        QVERIFY(m_week.record.alarms.size() > 3);
        QVERIFY(store.append(m_week.record));
    }

    void showsAWeekWithLimitsAndAlarms()
    {
        gui::GuiHost host;
        host.scripted = true;
        gui::PriceChart chart(host, m_db, m_clock);
        chart.resize(1100, 700);
        chart.show();
        QVERIFY(QTest::qWaitForWindowExposed(&chart));
        QSignalSpy loaded(&chart, &gui::PriceChart::loaded);
        chart.showSecurity(QStringLiteral("IBM"), gui::ChartLimits{152.0, 145.5, 600000.0});
        chart.setRange(history::ChartRange::Week);
        // The read runs beside the window: the call returns before the rows are in.
        QVERIFY(chart.isLoading());
        QVERIFY(loaded.wait(10000));
        QTRY_VERIFY(!chart.isLoading());

        QCOMPARE(chart.data().times.size(), m_week.quotes);
        QCOMPARE(chart.data().alarms.size(), m_week.record.alarms.size());
        QCOMPARE(pointsOf(chart.priceChart(), QStringLiteral("IBM")), m_week.quotes); // few enough to show whole
        QCOMPARE(pointsOf(chart.priceChart(), QStringLiteral("Alarms fired")), int(m_week.record.alarms.size()));
        QCOMPARE(pointsOf(chart.priceChart(), QStringLiteral("High limit 152")), 2);
        QCOMPARE(pointsOf(chart.priceChart(), QStringLiteral("Low limit 145")), 2);
        QCOMPARE(pointsOf(chart.volumeChart(), QStringLiteral("Volume limit")), 2);
        const auto* y = qobject_cast<QValueAxis*>(chart.priceChart()->axes(Qt::Vertical).first());
        QVERIFY(y->min() <= 145.5 && y->max() >= 152.0);
        // A date under the start of each trading day; the nights between are left out.
        auto* x = qobject_cast<QCategoryAxis*>(chart.priceChart()->axes(Qt::Horizontal).first());
        QVERIFY(x);
        QStringList days;
        for (int day = 4; day >= 0; --day) {
            days << QLocale().toString(kNow.addDays(-day), QStringLiteral("MMM d"));
        }
        QCOMPARE(x->categoriesLabels(), days);
        QVERIFY2(chart.statusText().startsWith(QStringLiteral("%1 quotes").arg(QLocale().toString(m_week.quotes))),
                 qPrintable(chart.statusText()));

        // Let the labels and the charts lay themselves out for what they now show.
        QTRY_VERIFY(chart.priceChart()->plotArea().left() > 20);
        // Price and volume share one time axis: their plots line up to the pixel.
        QTRY_VERIFY(std::abs(chart.volumeChart()->plotArea().left() - chart.priceChart()->plotArea().left()) <= 1);
        QTRY_VERIFY(std::abs(chart.volumeChart()->plotArea().right() - chart.priceChart()->plotArea().right()) <= 1);
        const QString shots = qEnvironmentVariable("KESTROVA_SCREENSHOT_DIR");
        if (!shots.isEmpty()) {
            QDir().mkpath(shots);
            QVERIFY(chart.grab().save(QDir(shots).filePath(QStringLiteral("price-chart.png"))));
        }

        // Exports go where the (scripted) file box says, whole.
        host.scriptedFiles = {m_dir.filePath(QStringLiteral("ibm.png")), m_dir.filePath(QStringLiteral("ibm.csv"))};
        QVERIFY(chart.exportPng());
        QVERIFY(chart.exportCsv());
        const QImage png(m_dir.filePath(QStringLiteral("ibm.png")));
        QVERIFY(!png.isNull());
        QVERIFY(png.width() >= 800 && png.height() >= 400);
        const QList<QByteArray> csv = testing::readFile(m_dir.filePath(QStringLiteral("ibm.csv"))).split('\n');
        QCOMPARE(csv.first(), QByteArray("Symbol,Time,Price,Volume\r"));
        QCOMPARE(csv.size(), m_week.quotes + 2); // header, rows, and the empty piece after the last line end
        const QByteArray firstTime = m_week.record.quotes.first().fetchedAt.toString(u"yyyy-MM-dd HH:mm:ss").toLatin1();
        QVERIFY(csv[1].startsWith(QByteArray(QByteArray("IBM,") + firstTime)));
    }

    // Stock charts leave out the hours without trading, and show how far the price is from
    // a limit however far that is.
    void tradingTimeAndFarLimits_data()
    {
        QTest::addColumn<int>("range");
        QTest::addColumn<double>("high");
        QTest::addColumn<double>("low");
        QTest::newRow("week, limits far off") << int(history::ChartRange::Week) << 300.0 << 20.0;
        QTest::newRow("all, limits close by") << int(history::ChartRange::All) << 152.0 << 145.5;
        QTest::newRow("month, one far limit") << int(history::ChartRange::Month) << 1000.0 << 145.5;
    }
    void tradingTimeAndFarLimits()
    {
        QFETCH(int, range);
        QFETCH(double, high);
        QFETCH(double, low);
        gui::GuiHost host;
        host.scripted = true;
        gui::PriceChart chart(host, m_db, m_clock);
        chart.resize(1100, 700);
        chart.show();
        chart.showSecurity(QStringLiteral("IBM"), gui::ChartLimits{high, low, {}});
        chart.setRange(history::ChartRange(range));
        QTRY_VERIFY(!chart.isLoading());

        QCOMPARE(pointsOf(chart.priceChart(), QStringLiteral("High limit")), 2);
        QCOMPARE(pointsOf(chart.priceChart(), QStringLiteral("Low limit")), 2);
        const auto* y = qobject_cast<QValueAxis*>(chart.priceChart()->axes(Qt::Vertical).first());
        QVERIFY2(y->min() <= low && y->max() >= high, qPrintable(QStringLiteral("%1..%2").arg(y->min()).arg(y->max())));

        // Between a day's close and the next day's open the line takes no more room than
        // between two quotes of a day.
        const QXYSeries* price = nullptr;
        for (QAbstractSeries* series : chart.priceChart()->series()) {
            if (series->name() == QLatin1String("IBM")) {
                price = static_cast<QXYSeries*>(series);
            }
        }
        QVERIFY(price && price->count() == m_week.quotes);
        double widest = 0;
        for (int i = 1; i < price->count(); ++i) {
            widest = std::max(widest, price->at(i).x() - price->at(i - 1).x());
        }
        const double step = price->at(1).x() - price->at(0).x();
        QVERIFY2(widest <= step * 1.01, qPrintable(QStringLiteral("%1 against %2").arg(widest).arg(step)));
    }

    void rangesAndThinning_data()
    {
        QTest::addColumn<int>("range");
        QTest::addColumn<int>("quotes");
        const int perDay = (16 * 60 - (9 * 60 + 30)) / 5 + 1;
        QTest::newRow("day") << int(history::ChartRange::Day) << perDay + 1; // yesterday's close counts
        QTest::newRow("all") << int(history::ChartRange::All) << 5 * perDay;
    }
    void rangesAndThinning()
    {
        QFETCH(int, range);
        QFETCH(int, quotes);
        gui::GuiHost host;
        host.scripted = true;
        gui::PriceChart chart(host, m_db, m_clock);
        chart.resize(420, 400); // narrow: fewer pixel columns than quotes
        chart.show();
        QSignalSpy loaded(&chart, &gui::PriceChart::loaded);
        chart.showSecurity(QStringLiteral("IBM"), {});
        chart.setRange(history::ChartRange(range));
        QTRY_VERIFY(!chart.isLoading());
        QVERIFY(!loaded.isEmpty());
        QCOMPARE(chart.data().times.size(), quotes);
        const int shown = pointsOf(chart.priceChart(), QStringLiteral("IBM"));
        QVERIFY2(shown > 0 && shown <= 2 * std::max(100, chart.priceChart()->scene()->views().first()->width()),
                 qPrintable(QString::number(shown)));
        QVERIFY(shown <= quotes);
    }

    void emptyAndMissingStores()
    {
        gui::GuiHost host;
        host.scripted = true;
        gui::PriceChart chart(host, m_dir.filePath(QStringLiteral("absent.sqlite")), m_clock);
        QSignalSpy loaded(&chart, &gui::PriceChart::loaded);
        chart.showSecurity(QStringLiteral("MSFT"), {});
        QVERIFY(loaded.wait(10000));
        QCOMPARE(chart.statusText(), QStringLiteral("No quotes of MSFT in the history for this range."));
        // Nothing loaded still exports a header-only file rather than failing.
        QVERIFY(chart.exportCsv(m_dir.filePath(QStringLiteral("empty.csv"))));
        QCOMPARE(testing::readFile(m_dir.filePath(QStringLiteral("empty.csv"))),
                 QByteArray("Symbol,Time,Price,Volume\r\n"));
        QVERIFY(!chart.exportPng(m_dir.filePath(QStringLiteral("no-such-folder/x.png"))));
        QCOMPARE(host.shownMessages.size(), 1);
    }
};

QTEST_MAIN(TestPriceChart)
#include "test_pricechart.moc"
