#pragma once

#include "history/ChartSeries.h"

#include <QList>
#include <QString>
#include <QWidget>

#include <optional>
#include <utility>

class QAbstractAxis;
class QAbstractButton;
class QButtonGroup;
class QChart;
class QChartView;
class QLabel;
class QThread;

namespace kestrova::core {
class Quote;
}

namespace kestrova::support {
class Clock;
}

namespace kestrova::gui {

class GuiHost;

// The alarm limits of a security that the chart draws as lines; an unset limit is empty.
struct ChartLimits
{
    std::optional<double> high;
    std::optional<double> low;
    std::optional<double> volume;
};

// The limits a portfolio entry sets; the "no limit" values of an empty field stay unset.
ChartLimits chartLimitsOf(const core::Quote& quote);

// One security's price history from the history store: the price over the chosen range
// with the alarm limits as dashed lines (the price axis always reaches them) and the
// alarms that fired as markers, the volume in a band below, and export of both as PNG or
// CSV. Nights and weekends are left out of the time axis, as stock charts do.
//
// The rows are read on a thread of their own with a connection of its own, so a year of
// one-minute quotes never holds up the window; the series shown is thinned to about two
// points per pixel column, with every peak kept.
class PriceChart : public QWidget
{
    Q_OBJECT
public:
    PriceChart(GuiHost& host, QString databasePath, const support::Clock& clock, QWidget* parent = nullptr);
    ~PriceChart() override;

    void showSecurity(const QString& symbol, const ChartLimits& limits);
    void setRange(history::ChartRange range);
    // Reads the shown security again (after an update run has added its quotes).
    void reload();
    const QString& symbol() const { return m_symbol; }
    const ChartLimits& limits() const { return m_limits; }
    history::ChartRange range() const { return m_range; }

    bool isLoading() const { return !m_threads.isEmpty(); }
    // What the last load read, in full (the chart shows it thinned).
    const history::ChartData& data() const { return m_data; }
    QChart* priceChart() const;
    QChart* volumeChart() const;
    QString statusText() const;

    // Ask for a file name (through the host) and write it; false when nothing was written.
    bool exportPng();
    bool exportCsv();
    // Written through QSaveFile, so an existing file is replaced whole or not at all.
    bool exportPng(const QString& path);
    bool exportCsv(const QString& path);

Q_SIGNALS:
    // A load finished and the chart shows its result.
    void loaded();

private:
    void load();
    void apply(const history::ChartData& data);
    // The time axis' span in axis units (plain milliseconds unless trading time only).
    std::pair<qint64, qint64> timeSpan() const;
    QAbstractAxis* makeTimeAxis(bool labels) const;
    void rebuildPrice();
    void rebuildVolume();
    void alignPlots();
    void setStatus(const QString& text);
    bool reportWrite(bool ok, const QString& path, const QString& why);

    GuiHost& m_host;
    QString m_path;
    const support::Clock& m_clock;
    QString m_symbol;
    ChartLimits m_limits;
    history::ChartRange m_range = history::ChartRange::Month;
    history::ChartData m_data;
    // The data's times on the axis, which leaves out the hours without quotes.
    history::TradingTimeAxis m_axis{{}};
    QList<qint64> m_axisTimes;
    QDateTime m_from;
    QDateTime m_until;
    int m_generation = 0;
    QList<QThread*> m_threads;

    QLabel* m_title = nullptr;
    QLabel* m_status = nullptr;
    QButtonGroup* m_ranges = nullptr;
    QWidget* m_plots = nullptr;
    QChartView* m_priceView = nullptr;
    QChartView* m_volumeView = nullptr;
};

} // namespace kestrova::gui
