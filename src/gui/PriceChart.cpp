#include "gui/PriceChart.h"

#include "core/Quote.h"
#include "gui/GuiHost.h"
#include "support/Clock.h"
#include "support/SaveFile.h"

#include <QAreaSeries>
#include <QButtonGroup>
#include <QCategoryAxis>
#include <QChart>
#include <QChartView>
#include <QDateTimeAxis>
#include <QGraphicsLayout>
#include <QHBoxLayout>
#include <QImageWriter>
#include <QLabel>
#include <QLegendMarker>
#include <QLineSeries>
#include <QLocale>
#include <QPushButton>
#include <QSaveFile>
#include <QScatterSeries>
#include <QTextStream>
#include <QThread>
#include <QToolButton>
#include <QVBoxLayout>
#include <QValueAxis>

#include <algorithm>
#include <memory>

namespace kestrova::gui {

namespace {

constexpr history::ChartRange kRanges[] = {history::ChartRange::Day, history::ChartRange::Week,
                                           history::ChartRange::Month, history::ChartRange::Year,
                                           history::ChartRange::All};

bool darkPalette(const QWidget* w)
{
    return w->palette().color(QPalette::Window).lightness() < 128;
}

QChart* makeChart(const QWidget* owner)
{
    auto* chart = new QChart;
    chart->setTheme(darkPalette(owner) ? QChart::ChartThemeDark : QChart::ChartThemeLight);
    chart->setBackgroundRoundness(0);
    chart->setMargins(QMargins(4, 4, 4, 4));
    chart->layout()->setContentsMargins(0, 0, 0, 0);
    chart->setAnimationOptions(QChart::NoAnimation);
    return chart;
}

// The time axis labels that suit a span: clock times within a day, dates within a year.
QString timeFormat(qint64 spanMs)
{
    constexpr qint64 kDay = 24LL * 3600 * 1000;
    if (spanMs <= 2 * kDay) {
        return QStringLiteral("ddd hh:mm");
    }
    if (spanMs <= 200 * kDay) {
        return QStringLiteral("MMM d");
    }
    return QStringLiteral("MMM yyyy");
}

// A span of a few whole days (the week) gets a tick at each day, so no date label is
// skipped or shown twice; longer or uneven spans get seven.
int tickCount(qint64 spanMs)
{
    constexpr qint64 kDay = 24LL * 3600 * 1000;
    if (spanMs % kDay == 0 && spanMs >= 3 * kDay && spanMs <= 10 * kDay) {
        return int(spanMs / kDay) + 1;
    }
    return 7;
}

QPen limitPen(const QColor& color)
{
    QPen pen(color);
    pen.setWidthF(1.5);
    pen.setStyle(Qt::DashLine);
    return pen;
}

// The price shown for an alarm that is not itself a price (a percent or volume alarm): the
// quote of that moment.
double priceAt(const history::ChartData& d, qint64 t)
{
    const auto it = std::lower_bound(d.times.begin(), d.times.end(), t);
    const qsizetype i = std::min<qsizetype>(it - d.times.begin(), d.times.size() - 1);
    return d.prices.value(i);
}

// Dates under a compressed time axis: enough to find one's way, few enough to read.
constexpr int kTimeLabels = 8;

QString money(double v)
{
    return QLocale().toString(v, 'f', 2);
}

} // namespace

PriceChart::PriceChart(GuiHost& host, QString databasePath, const support::Clock& clock, QWidget* parent)
    : QWidget(parent), m_host(host), m_path(std::move(databasePath)), m_clock(clock)
{
    m_title = new QLabel(this);
    QFont big = m_title->font();
    big.setPointSizeF(big.pointSizeF() * 1.25);
    big.setBold(true);
    m_title->setFont(big);

    auto* top = new QHBoxLayout;
    top->addWidget(m_title);
    top->addStretch(1);
    m_ranges = new QButtonGroup(this);
    m_ranges->setExclusive(true);
    for (history::ChartRange r : kRanges) {
        auto* b = new QToolButton(this);
        b->setText(history::chartRangeName(r));
        b->setCheckable(true);
        b->setAutoRaise(false);
        b->setToolTip(tr("Show the last %1").arg(history::chartRangeName(r).toLower()));
        m_ranges->addButton(b, int(r));
        top->addWidget(b);
    }
    m_ranges->button(int(m_range))->setChecked(true);
    connect(m_ranges, &QButtonGroup::idClicked, this, [this](int id) { setRange(history::ChartRange(id)); });
    top->addSpacing(12);
    auto* png = new QPushButton(QIcon::fromTheme(QStringLiteral("image-x-generic")), tr("Export &PNG..."), this);
    auto* csv = new QPushButton(QIcon::fromTheme(QStringLiteral("text-csv")), tr("Export &CSV..."), this);
    connect(png, &QPushButton::clicked, this, [this] { exportPng(); });
    connect(csv, &QPushButton::clicked, this, [this] { exportCsv(); });
    top->addWidget(png);
    top->addWidget(csv);

    m_plots = new QWidget(this);
    auto* plots = new QVBoxLayout(m_plots);
    plots->setContentsMargins(0, 0, 0, 0);
    plots->setSpacing(0);
    m_priceView = new QChartView(makeChart(this), m_plots);
    m_volumeView = new QChartView(makeChart(this), m_plots);
    for (QChartView* v : {m_priceView, m_volumeView}) {
        v->setRenderHint(QPainter::Antialiasing);
        v->setMinimumHeight(120);
    }
    m_volumeView->chart()->legend()->setAlignment(Qt::AlignTop);
    // One time axis for both: the plots keep their left and right edges in line whatever
    // width their value labels take.
    for (QChartView* v : {m_priceView, m_volumeView}) {
        connect(v->chart(), &QChart::plotAreaChanged, this, [this] { alignPlots(); });
    }
    plots->addWidget(m_priceView, 3);
    plots->addWidget(m_volumeView, 1);

    m_status = new QLabel(this);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(m_plots, 1);
    layout->addWidget(m_status);
    resize(900, 600);
}

PriceChart::~PriceChart()
{
    // A read still running holds a database connection of its own; let it end first.
    for (QThread* t : std::as_const(m_threads)) {
        t->disconnect(this);
        t->wait();
    }
}

QChart* PriceChart::priceChart() const
{
    return m_priceView->chart();
}

QChart* PriceChart::volumeChart() const
{
    return m_volumeView->chart();
}

QString PriceChart::statusText() const
{
    return m_status->text();
}

void PriceChart::setStatus(const QString& text)
{
    m_status->setText(text);
}

ChartLimits chartLimitsOf(const core::Quote& quote)
{
    const auto limit = [](float value, float none) {
        return value == none ? std::nullopt : std::optional<double>(value);
    };
    return ChartLimits{limit(quote.highLimit(), core::Quote::kNoHighLimit),
                       limit(quote.lowLimit(), core::Quote::kNoLowLimit),
                       limit(quote.volumeLimit(), core::Quote::kNoVolumeLimit)};
}

void PriceChart::showSecurity(const QString& symbol, const ChartLimits& limits)
{
    m_symbol = symbol;
    m_limits = limits;
    setWindowTitle(tr("%1 - Price History").arg(symbol));
    m_title->setText(symbol);
    load();
}

void PriceChart::setRange(history::ChartRange range)
{
    m_range = range;
    if (QAbstractButton* b = m_ranges->button(int(range))) {
        b->setChecked(true);
    }
    load();
}

void PriceChart::reload()
{
    load();
}

void PriceChart::load()
{
    if (m_symbol.isEmpty()) {
        return;
    }
    const int generation = ++m_generation;
    m_until = m_clock.now();
    m_from = history::rangeStart(m_range, m_until);
    setStatus(tr("Reading the history of %1...").arg(m_symbol));
    auto result = std::make_shared<history::ChartData>();
    QThread* thread = QThread::create([result, path = m_path, symbol = m_symbol, from = m_from, until = m_until] {
        *result = history::loadChartData(path, symbol, from, until);
    });
    thread->setParent(this);
    m_threads << thread;
    connect(thread, &QThread::finished, this, [this, thread, result, generation] {
        m_threads.removeOne(thread);
        thread->deleteLater();
        // A newer request (another range, another security) has overtaken this one.
        if (generation == m_generation) {
            apply(*result);
        }
    });
    thread->start();
}

void PriceChart::apply(const history::ChartData& data)
{
    m_data = data;
    m_axis = history::TradingTimeAxis(data.times);
    m_axisTimes.clear();
    m_axisTimes.reserve(data.times.size());
    for (const qint64 t : data.times) {
        m_axisTimes.append(qRound64(m_axis.position(t)));
    }
    rebuildPrice();
    rebuildVolume();
    if (!data.error.isEmpty()) {
        setStatus(tr("The history could not be read: %1").arg(data.error));
    } else if (data.times.isEmpty()) {
        setStatus(tr("No quotes of %1 in the history for this range.").arg(m_symbol));
    } else {
        const QLocale loc;
        setStatus(tr("%1 quotes from %2 to %3, %4 alarms fired")
                      .arg(loc.toString(data.times.size()))
                      .arg(loc.toString(QDateTime::fromMSecsSinceEpoch(data.times.first()), QLocale::ShortFormat))
                      .arg(loc.toString(QDateTime::fromMSecsSinceEpoch(data.times.last()), QLocale::ShortFormat))
                      .arg(data.alarms.size()));
        m_title->setText(tr("%1  %2").arg(m_symbol, money(data.prices.last())));
    }
    Q_EMIT loaded();
}

void PriceChart::alignPlots()
{
    QChart* charts[] = {m_priceView->chart(), m_volumeView->chart()};
    constexpr int kMargin = 4;
    // Where each plot's edges would be with the plain margin; then every chart gets the
    // extra margin that brings its edges to the innermost ones.
    qreal naturalLeft[2];
    qreal naturalRight[2];
    for (int i = 0; i < 2; ++i) {
        const QMargins m = charts[i]->margins();
        naturalLeft[i] = charts[i]->plotArea().left() - (m.left() - kMargin);
        naturalRight[i] = charts[i]->size().width() - charts[i]->plotArea().right() - (m.right() - kMargin);
    }
    const qreal left = std::max(naturalLeft[0], naturalLeft[1]);
    const qreal right = std::max(naturalRight[0], naturalRight[1]);
    for (int i = 0; i < 2; ++i) {
        const QMargins want(kMargin + qRound(left - naturalLeft[i]), kMargin, kMargin + qRound(right - naturalRight[i]),
                            kMargin);
        if (charts[i]->margins() != want) {
            charts[i]->setMargins(want);
        }
    }
}

std::pair<qint64, qint64> PriceChart::timeSpan() const
{
    if (m_axis.compressed()) {
        // Trading time only: from the first quote to the last, half a step of room at each end.
        const qint64 pad = std::max<qint64>(1, m_axis.step() / 2);
        return {m_axisTimes.first() - pad, m_axisTimes.last() + pad};
    }
    // A fixed range ends now even when the last quote is older; "All" spans the quotes.
    if (m_range == history::ChartRange::All || !m_from.isValid()) {
        if (m_data.times.isEmpty()) {
            return {m_until.toMSecsSinceEpoch() - 60000, m_until.toMSecsSinceEpoch()};
        }
        return {m_data.times.first(), std::max(m_data.times.last(), m_data.times.first() + 60000)};
    }
    return {m_from.toMSecsSinceEpoch(), m_until.toMSecsSinceEpoch()};
}

void PriceChart::rebuildPrice()
{
    QChart* chart = m_priceView->chart();
    chart->removeAllSeries();
    for (QAbstractAxis* a : chart->axes()) {
        chart->removeAxis(a);
        delete a;
    }
    const history::ChartData& d = m_data;
    // About two points per pixel column of the plot: more could not be seen.
    const int buckets = std::max(100, m_priceView->width());

    const auto [x0, x1] = timeSpan();

    auto* price = new QLineSeries;
    price->setName(m_symbol);
    price->replace(history::decimate(m_axisTimes, d.prices, buckets));
    QPen pen = price->pen();
    pen.setWidthF(1.6);
    price->setPen(pen);
    chart->addSeries(price);

    double lo = 0;
    double hi = 1;
    if (!d.prices.isEmpty()) {
        const auto [mn, mx] = std::minmax_element(d.prices.begin(), d.prices.end());
        lo = *mn;
        hi = *mx;
    }
    // The price axis reaches every limit, however far from the prices: how far the price
    // is from its alarm is what the chart is looked at for.
    auto limitLine = [&](const std::optional<double>& limit, const QString& name, const QColor& color) {
        if (!limit) {
            return;
        }
        auto* s = new QLineSeries;
        s->setName(tr("%1 %2").arg(name, money(*limit)));
        s->append(double(x0), *limit);
        s->append(double(x1), *limit);
        lo = std::min(lo, *limit);
        hi = std::max(hi, *limit);
        s->setPen(limitPen(color));
        chart->addSeries(s);
    };
    limitLine(m_limits.high, tr("High limit"), QColor(0xd3, 0x2f, 0x2f));
    limitLine(m_limits.low, tr("Low limit"), QColor(0x19, 0x76, 0xd2));

    if (!d.alarms.isEmpty()) {
        auto* fired = new QScatterSeries;
        fired->setName(tr("Alarms fired"));
        fired->setMarkerShape(QScatterSeries::MarkerShapeCircle);
        fired->setMarkerSize(10);
        fired->setColor(QColor(0xff, 0x8f, 0x00));
        fired->setBorderColor(darkPalette(this) ? Qt::white : Qt::black);
        for (const history::AlarmRow& a : d.alarms) {
            const qint64 t = a.firedAt.toMSecsSinceEpoch();
            const bool isPrice = a.kind == history::AlarmKind::High || a.kind == history::AlarmKind::Low;
            fired->append(m_axis.position(t), isPrice || d.times.isEmpty() ? a.value : priceAt(d, t));
        }
        chart->addSeries(fired);
    }

    QAbstractAxis* xAxis = makeTimeAxis(true);
    auto* yAxis = new QValueAxis;
    const double pad = (hi - lo) * 0.06 + 0.01;
    yAxis->setRange(lo - pad, hi + pad);
    yAxis->applyNiceNumbers();
    yAxis->setLabelFormat(QStringLiteral("%.2f"));
    yAxis->setTitleText(tr("Price"));
    chart->addAxis(xAxis, Qt::AlignBottom);
    chart->addAxis(yAxis, Qt::AlignLeft);
    for (QAbstractSeries* s : chart->series()) {
        s->attachAxis(xAxis);
        s->attachAxis(yAxis);
    }
    chart->legend()->setAlignment(Qt::AlignTop);
}

void PriceChart::rebuildVolume()
{
    QChart* chart = m_volumeView->chart();
    chart->removeAllSeries();
    for (QAbstractAxis* a : chart->axes()) {
        chart->removeAxis(a);
        delete a;
    }
    const history::ChartData& d = m_data;
    const QList<QPointF> pts = history::decimate(m_axisTimes, d.volumes, std::max(100, m_volumeView->width()));
    double top = m_limits.volume.value_or(0);
    for (const QPointF& p : pts) {
        top = std::max(top, p.y());
    }
    // Shares in the millions read better as "12.5" than as "12500000".
    const double scale = top >= 1e6 ? 1e6 : (top >= 1e3 ? 1e3 : 1);
    const QString unit =
        scale == 1e6 ? tr("Volume (millions)") : (scale == 1e3 ? tr("Volume (thousands)") : tr("Volume"));

    auto* upper = new QLineSeries;
    auto* lower = new QLineSeries;
    for (const QPointF& p : pts) {
        upper->append(p.x(), p.y() / scale);
        lower->append(p.x(), 0);
    }
    auto* area = new QAreaSeries(upper, lower);
    // The area draws its two edges but does not own them.
    upper->setParent(area);
    lower->setParent(area);
    area->setName(unit);
    QColor fill = palette().color(QPalette::Highlight);
    area->setPen(QPen(fill, 1));
    fill.setAlpha(110);
    area->setBrush(fill);
    chart->addSeries(area);

    const auto [x0, x1] = timeSpan();
    if (m_limits.volume) {
        auto* limit = new QLineSeries;
        limit->setName(tr("Volume limit %1").arg(QLocale().toString(qRound64(*m_limits.volume))));
        limit->append(double(x0), *m_limits.volume / scale);
        limit->append(double(x1), *m_limits.volume / scale);
        limit->setPen(limitPen(QColor(0x8e, 0x24, 0xaa)));
        chart->addSeries(limit);
    }
    QAbstractAxis* xAxis = makeTimeAxis(false); // the price chart above carries the dates
    auto* yAxis = new QValueAxis;
    yAxis->setRange(0, std::max(1.0, top / scale * 1.08));
    yAxis->setTickCount(3);
    yAxis->applyNiceNumbers();
    yAxis->setLabelFormat(QStringLiteral("%.3g"));
    chart->addAxis(xAxis, Qt::AlignBottom);
    chart->addAxis(yAxis, Qt::AlignLeft);
    for (QAbstractSeries* s : chart->series()) {
        s->attachAxis(xAxis);
        s->attachAxis(yAxis);
    }
}

QAbstractAxis* PriceChart::makeTimeAxis(bool labels) const
{
    const auto [x0, x1] = timeSpan();
    if (!m_axis.compressed()) {
        auto* axis = new QDateTimeAxis;
        axis->setFormat(timeFormat(x1 - x0));
        axis->setRange(QDateTime::fromMSecsSinceEpoch(x0), QDateTime::fromMSecsSinceEpoch(x1));
        axis->setTickCount(tickCount(x1 - x0));
        axis->setLabelsVisible(labels);
        return axis;
    }
    // Nights and weekends are left out, so the axis is no longer plain time: each label
    // stands at the start of a session, with a grid line where one session ends and the
    // next begins.
    auto* axis = new QCategoryAxis;
    axis->setLabelsPosition(QCategoryAxis::AxisLabelsPositionOnValue);
    axis->setStartValue(double(x0));
    axis->setRange(double(x0), double(x1));
    const QString format = timeFormat(m_data.times.last() - m_data.times.first());
    QString previous;
    const QLocale locale;
    for (const history::TradingTimeAxis::Session& s : m_axis.labelled(kTimeLabels)) {
        const QString label = locale.toString(QDateTime::fromMSecsSinceEpoch(s.start), format);
        // A category axis knows its labels by their text: each must be new.
        if (label != previous && s.at > double(x0)) {
            axis->append(label, s.at);
            previous = label;
        }
    }
    axis->setLabelsVisible(labels);
    return axis;
}

bool PriceChart::reportWrite(bool ok, const QString& path, const QString& why)
{
    if (!ok) {
        m_host.messageBox(tr("%1 could not be written: %2").arg(path, why), support::MsgButtons::Ok,
                          support::MsgIcon::Exclamation);
    }
    return ok;
}

bool PriceChart::exportPng()
{
    const QString path =
        m_host.saveFileName(tr("Export Chart as PNG"), tr("PNG images (*.png)"), QStringLiteral("png"));
    return !path.isEmpty() && exportPng(path);
}

bool PriceChart::exportCsv()
{
    const QString path =
        m_host.saveFileName(tr("Export Chart Data as CSV"), tr("CSV files (*.csv)"), QStringLiteral("csv"));
    return !path.isEmpty() && exportCsv(path);
}

bool PriceChart::exportPng(const QString& path)
{
    const QImage image = m_plots->grab().toImage();
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return reportWrite(false, path, file.errorString());
    }
    QImageWriter writer(&file, "png");
    if (!writer.write(image)) {
        file.cancelWriting();
        return reportWrite(false, path, writer.errorString());
    }
    return reportWrite(support::commitWhole(file), path, file.errorString());
}

bool PriceChart::exportCsv(const QString& path)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return reportWrite(false, path, file.errorString());
    }
    QTextStream out(&file);
    const QString symbol = m_symbol.contains(u',') || m_symbol.contains(u'"')
                               ? u'"' + QString(m_symbol).replace(u'"', QStringLiteral("\"\"")) + u'"'
                               : m_symbol;
    out << "Symbol,Time,Price,Volume\r\n";
    for (qsizetype i = 0; i < m_data.times.size(); ++i) {
        out << symbol << ','
            << QDateTime::fromMSecsSinceEpoch(m_data.times[i]).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) << ','
            << QString::number(m_data.prices[i], 'g', 10) << ',' << QString::number(m_data.volumes[i], 'f', 0)
            << "\r\n";
    }
    out.flush();
    return reportWrite(support::commitWhole(file), path, file.errorString());
}

} // namespace kestrova::gui
