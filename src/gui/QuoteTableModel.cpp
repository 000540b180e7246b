#include "gui/QuoteTableModel.h"

#include "core/Quote.h"
#include "core/Quotes.h"
#include "core/Security.h"
#include "gui/Icons.h"
#include "quotes/QuoteCycle.h"
#include "support/Format.h"

#include <QColor>
#include <QGuiApplication>
#include <QPalette>

#include <algorithm>

namespace kestrova::gui {

namespace {

bool anyAlarm(const core::Quote& q)
{
    return q.highAlarm() || q.lowAlarm() || q.volumeAlarm() || q.highChgAlarm() || q.lowChgAlarm();
}

bool darkPalette()
{
    return QGuiApplication::palette().color(QPalette::Base).lightness() < 128;
}

// A row tint that reads on light and dark themes alike: the base colour pulled a quarter
// of the way towards amber.
QColor alarmTint()
{
    const QColor base = QGuiApplication::palette().color(QPalette::Base);
    const QColor amber(255, 150, 0);
    auto mix = [](int a, int b) { return (a * 3 + b) / 4; };
    return QColor(mix(base.red(), amber.red()), mix(base.green(), amber.green()), mix(base.blue(), amber.blue()));
}

QColor signColour(double value)
{
    const bool dark = darkPalette();
    if (value > 0) {
        return dark ? QColor(120, 220, 120) : QColor(0, 120, 0);
    }
    return dark ? QColor(255, 130, 130) : QColor(180, 0, 0);
}

struct Money
{
    bool known = false;
    double value = 0;
    double gain = 0;
};

Money holdingsOf(const core::Quote& q)
{
    // No price yet (a row of the portfolio before its first quote): no value either.
    if (q.shares() == 0 || q.last().isEmpty()) {
        return {};
    }
    const double market = core::holdings::marketValue(q.shares(), q.lastValue()).toDouble();
    const double cost = core::holdings::costValue(q.costBasis(), q.shares()).toDouble();
    return {true, market, market - cost};
}

} // namespace

QuoteTableModel::QuoteTableModel(const core::Quotes& stocks, const core::Quotes& options, QObject* parent,
                                 const core::PortfolioTable* portfolio)
    : QAbstractTableModel(parent), m_stocks(stocks), m_options(options), m_portfolio(portfolio),
      m_alarmIcon(icon(IconName::Alarm)), m_newsIcon(icon(IconName::News))
{
    reload();
}

QuoteTableModel::~QuoteTableModel() = default;

void QuoteTableModel::reload()
{
    beginResetModel();
    m_rows.clear();
    if (m_portfolio) {
        m_rows = quotes::tableRows(*m_portfolio, m_stocks, m_options);
    } else {
        m_rows.reserve(static_cast<size_t>(m_stocks.Count() + m_options.Count()));
        for (const core::Quotes* set : {&m_stocks, &m_options}) {
            for (const auto& q : *set) {
                m_rows.push_back(q);
            }
        }
    }
    endResetModel();
    if (m_sortColumn >= 0) {
        sort(m_sortColumn, m_sortOrder);
    }
}

int QuoteTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int QuoteTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

bool QuoteTableModel::hasHoldings() const
{
    return std::any_of(m_rows.begin(), m_rows.end(), [](const auto& q) { return q->shares() != 0; });
}

std::shared_ptr<const core::Quote> QuoteTableModel::quoteAt(int row) const
{
    if (row < 0 || row >= rowCount()) {
        return {};
    }
    return m_rows[static_cast<size_t>(row)];
}

QString QuoteTableModel::tickerAt(int row) const
{
    const auto q = quoteAt(row);
    return q ? q->ticker() : QString();
}

QString QuoteTableModel::alarmText(const core::Quote& q)
{
    QStringList words;
    if (q.highAlarm()) {
        words << QStringLiteral("High");
    }
    if (q.lowAlarm()) {
        words << QStringLiteral("Low");
    }
    if (q.volumeAlarm()) {
        words << QStringLiteral("Volume");
    }
    if (q.highChgAlarm()) {
        words << QStringLiteral("+%");
    }
    if (q.lowChgAlarm()) {
        words << QStringLiteral("-%");
    }
    if (!words.isEmpty() && q.newLimit()) {
        words.prepend(QStringLiteral("New"));
    }
    return words.join(u' ');
}

QVariant QuoteTableModel::display(const core::Quote& q, int column) const
{
    switch (column) {
    case Symbol:
        return q.ticker();
    case Name:
        return q.name();
    case Last:
        return q.last();
    case Change:
        return q.change();
    case PercentChange:
        return q.percentChg();
    case Volume: {
        // "n/a" (a volume past what can be shown) stays as it is, not a grouped 0.
        const double v = support::leadingNumber(q.volume());
        return q.volume().isEmpty() || q.volume() == support::kNotAvailable ? q.volume()
                                                                            : support::formatNumber(v, u"#,##0");
    }
    case Time:
        return q.update();
    case Value:
    case Gain: {
        const Money m = holdingsOf(q);
        if (!m.known) {
            return QString();
        }
        return column == Value ? support::formatNumber(m.value, u"#,##0.00")
                               : support::formatNumber(m.gain, u"+#,##0.00;-#,##0.00;0.00");
    }
    case Alarm:
        return alarmText(q);
    case News:
        return q.news() ? QStringLiteral("New") : QString();
    default:
        return {};
    }
}

QVariant QuoteTableModel::sortKey(const core::Quote& q, int column) const
{
    switch (column) {
    case Last:
    case Change:
    case PercentChange:
    case Volume:
        return support::leadingNumber(display(q, column).toString().remove(u','));
    case Value:
        return holdingsOf(q).value;
    case Gain:
        return holdingsOf(q).gain;
    default:
        return display(q, column);
    }
}

QVariant QuoteTableModel::data(const QModelIndex& index, int role) const
{
    const auto q = quoteAt(index.row());
    if (!q || index.column() < 0 || index.column() >= ColumnCount) {
        return {};
    }
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
        return display(*q, column);
    case Qt::DecorationRole:
        if (column == Symbol && anyAlarm(*q)) {
            return m_alarmIcon;
        }
        if (column == News && q->news()) {
            return m_newsIcon;
        }
        return {};
    case Qt::BackgroundRole:
        return anyAlarm(*q) ? QVariant(alarmTint()) : QVariant();
    case Qt::ForegroundRole:
        if (column == Change || column == PercentChange || column == Gain) {
            const double v = sortKey(*q, column).toDouble();
            return v == 0 ? QVariant() : QVariant(signColour(v));
        }
        return {};
    case Qt::TextAlignmentRole:
        if (column == Symbol || column == Name || column == Alarm || column == News) {
            return QVariant::fromValue(Qt::AlignLeft | Qt::AlignVCenter);
        }
        return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
    case Qt::ToolTipRole:
        if (anyAlarm(*q)) {
            return QString(q->ticker() + QStringLiteral(": alarm ") + alarmText(*q) + QStringLiteral(" at ") +
                           q->last());
        }
        return {};
    case Qt::AccessibleTextRole: {
        const QString shown = display(*q, column).toString();
        const QString alarm = alarmText(*q);
        return alarm.isEmpty() ? shown : QString(shown + QStringLiteral(", alarm ") + alarm);
    }
    case TickerRole:
        return q->ticker();
    case AlarmedRole:
        return anyAlarm(*q);
    case SortRole:
        return sortKey(*q, column);
    default:
        return {};
    }
}

QVariant QuoteTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return QAbstractTableModel::headerData(section, orientation, role);
    }
    static const char* const kTitles[ColumnCount] = {"Symbol", "Name",  "Last", "Change", "% Chg", "Volume",
                                                     "Time",   "Value", "Gain", "Alarm",  "News"};
    return section >= 0 && section < ColumnCount ? QString::fromLatin1(kTitles[section]) : QVariant();
}

void QuoteTableModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= ColumnCount) {
        return;
    }
    m_sortColumn = column;
    m_sortOrder = order;
    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    std::vector<std::shared_ptr<const core::Quote>> old = m_rows;
    std::stable_sort(m_rows.begin(), m_rows.end(), [&](const auto& a, const auto& b) {
        const QVariant ka = sortKey(*a, column);
        const QVariant kb = sortKey(*b, column);
        const bool less = ka.typeId() == QMetaType::Double
                              ? ka.toDouble() < kb.toDouble()
                              : QString::localeAwareCompare(ka.toString(), kb.toString()) < 0;
        const bool greater = ka.typeId() == QMetaType::Double
                                 ? kb.toDouble() < ka.toDouble()
                                 : QString::localeAwareCompare(kb.toString(), ka.toString()) < 0;
        return order == Qt::AscendingOrder ? less : greater;
    });
    QModelIndexList after;
    after.reserve(before.size());
    for (const QModelIndex& i : before) {
        const auto it = std::find(m_rows.begin(), m_rows.end(), old[static_cast<size_t>(i.row())]);
        after << index(static_cast<int>(it - m_rows.begin()), i.column());
    }
    changePersistentIndexList(before, after);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

} // namespace kestrova::gui
