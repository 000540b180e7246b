#include "gui/QuoteViewer.h"

#include "app/Application.h"
#include "core/PortfolioEntries.h"
#include "core/Quote.h"
#include "core/SecurityType.h"
#include "gui/Mnemonics.h"
#include "gui/QuoteTableModel.h"
#include "gui/WindowPlacement.h"
#include "support/Format.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QSortFilterProxyModel>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>

namespace kestrova::gui {

namespace {

constexpr int kRefreshMs = 15000;

// The main window's quote columns followed by every other field of a quote. The rows are
// the quote model's own; only the extra columns are worked out here.
class QuoteFieldsModel : public QAbstractTableModel
{
public:
    enum Extra {
        Type,
        Bid,
        Ask,
        Open,
        PreviousClose,
        DayHigh,
        DayLow,
        YearHigh,
        YearLow,
        Eps,
        Pe,
        OpenInterest,
        Shares,
        CostBasis,
        HighLimit,
        LowLimit,
        HighChgLimit,
        LowChgLimit,
        VolumeLimit,
        ExtraCount
    };

    explicit QuoteFieldsModel(QuoteTableModel* source, QObject* parent) : QAbstractTableModel(parent), m_source(source)
    {
        // Any change of the source's rows is a new picture here; the sets are small.
        connect(source, &QAbstractItemModel::modelAboutToBeReset, this, [this] { beginResetModel(); });
        connect(source, &QAbstractItemModel::modelReset, this, [this] { endResetModel(); });
        connect(source, &QAbstractItemModel::layoutAboutToBeChanged, this, [this] { beginResetModel(); });
        connect(source, &QAbstractItemModel::layoutChanged, this, [this] { endResetModel(); });
    }

    int rowCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : m_source->rowCount(); }
    int columnCount(const QModelIndex& parent = {}) const override
    {
        return parent.isValid() ? 0 : int(QuoteTableModel::ColumnCount) + int(ExtraCount);
    }

    QVariant data(const QModelIndex& index, int role) const override
    {
        if (index.column() < QuoteTableModel::ColumnCount) {
            return m_source->data(m_source->index(index.row(), index.column()), role);
        }
        const auto q = m_source->quoteAt(index.row());
        if (!q) {
            return {};
        }
        const int extra = index.column() - QuoteTableModel::ColumnCount;
        switch (role) {
        case Qt::DisplayRole:
        case Qt::AccessibleTextRole:
            return text(*q, extra);
        case QuoteTableModel::SortRole:
            return extra == Type ? QVariant(text(*q, extra)) : QVariant(number(*q, extra));
        case Qt::TextAlignmentRole:
            return QVariant::fromValue((extra == Type ? Qt::AlignLeft : Qt::AlignRight) | Qt::AlignVCenter);
        case Qt::BackgroundRole:
        case QuoteTableModel::AlarmedRole:
        case QuoteTableModel::TickerRole:
            // The row's alarm tint and identity are the row's, whatever the column.
            return m_source->data(m_source->index(index.row(), 0), role);
        default:
            return {};
        }
    }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        if (section < QuoteTableModel::ColumnCount || orientation != Qt::Horizontal || role != Qt::DisplayRole) {
            return m_source->headerData(section, orientation, role);
        }
        static const char* const titles[ExtraCount] = {
            "Type",       "Bid",       "Ask",          "Open",        "Prev Close",  "Day High", "Day Low",
            "52W High",   "52W Low",   "EPS",          "P/E",         "Open Int",    "Shares",   "Cost Basis",
            "High Limit", "Low Limit", "High % Limit", "Low % Limit", "Volume Limit"};
        const int extra = section - QuoteTableModel::ColumnCount;
        return extra < ExtraCount ? QString::fromLatin1(titles[extra]) : QVariant();
    }

private:
    static QString text(const core::Quote& q, int extra)
    {
        switch (extra) {
        case Type:
            return core::securityTypeName(q.securityType());
        case Bid:
            return q.bid();
        case Ask:
            return q.ask();
        case Open:
            return q.openPrice();
        case PreviousClose:
            return q.previousClose();
        case DayHigh:
            return q.dayHigh();
        case DayLow:
            return q.dayLow();
        case YearHigh:
            return q.yearHigh();
        case YearLow:
            return q.yearLow();
        case Eps:
            return q.eps();
        case Pe:
            return q.pe();
        case OpenInterest:
            return q.openInterest();
        case Shares:
            return q.shares() == 0 ? QString() : support::singleToText(q.shares());
        case CostBasis:
            return q.costBasis() == support::Currency()
                       ? QString()
                       : support::formatNumber(q.costBasis().toDouble(), u"#,##0.00##");
        // A limit left at its "none" value reads as empty, as in the portfolio editor.
        case HighLimit:
            return q.highLimit() == core::Quote::kNoHighLimit ? QString()
                                                              : core::priceLimitText(q.highLimit(), q.digits());
        case LowLimit:
            return q.lowLimit() == core::Quote::kNoLowLimit ? QString()
                                                            : core::priceLimitText(q.lowLimit(), q.digits());
        case HighChgLimit:
            return q.highChgLimit() == core::Quote::kNoHighChgLimit ? QString()
                                                                    : core::changeLimitText(q.highChgLimit());
        case LowChgLimit:
            return q.lowChgLimit() == core::Quote::kNoLowChgLimit ? QString() : core::changeLimitText(q.lowChgLimit());
        case VolumeLimit:
            return q.volumeLimit() == core::Quote::kNoVolumeLimit
                       ? QString()
                       : core::volumeLimitText(static_cast<qint32>(q.volumeLimit()));
        default:
            return {};
        }
    }

    static double number(const core::Quote& q, int extra)
    {
        switch (extra) {
        case Shares:
            return q.shares();
        case CostBasis:
            return q.costBasis().toDouble();
        case HighLimit:
            return q.highLimit();
        case LowLimit:
            return q.lowLimit();
        case HighChgLimit:
            return q.highChgLimit();
        case LowChgLimit:
            return q.lowChgLimit();
        case VolumeLimit:
            return q.volumeLimit();
        default:
            return support::leadingNumber(text(q, extra).remove(u','));
        }
    }

    QuoteTableModel* m_source;
};

} // namespace

QuoteViewer::QuoteViewer(QWidget* parent, app::Application& app) : QDialog(parent, Qt::Window), m_app(app)
{
    setObjectName(QStringLiteral("QuoteViewer"));
    setWindowTitle(tr("Quotes"));

    m_quotes = new QuoteTableModel(app.stockQuotes(), app.optionQuotes(), this);
    auto* fields = new QuoteFieldsModel(m_quotes, this);
    m_sorted = new QSortFilterProxyModel(this);
    m_sorted->setSourceModel(fields);
    m_sorted->setSortRole(QuoteTableModel::SortRole);

    m_table = new QTableView;
    m_table->setObjectName(QStringLiteral("tblQuotes"));
    m_table->setModel(m_sorted);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(-1, Qt::AscendingOrder); // the update's own order until a header is clicked
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setAlternatingRowColors(true);
    m_table->verticalHeader()->setVisible(false);
    // Rows as high as their text, as in the main window: more quotes in view.
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionsMovable(true);

    m_summary = new QLabel;
    m_summary->setObjectName(QStringLiteral("lblSummary"));

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QuoteViewer::close);

    auto* main = new QVBoxLayout(this);
    main->addWidget(m_summary);
    main->addWidget(m_table, 1);
    main->addWidget(buttons);

    m_timer = new QTimer(this);
    m_timer->setInterval(kRefreshMs);
    connect(m_timer, &QTimer::timeout, this, [this] {
        // While an update runs the sets are being rebuilt; the rows shown stay the last whole ones.
        if (!m_app.updating()) {
            refresh();
        }
    });
    m_timer->start();

    refresh();
    // The first time, wide enough for every column's contents (the screen permitting).
    const QMargins m = main->contentsMargins();
    resize(std::max(fontMetrics().averageCharWidth() * 60, widthForColumns(m_table) + m.left() + m.right()),
           fontMetrics().height() * 24);
    giveMnemonics(buttons);
    rememberPlacement(this, objectName());
}

QuoteViewer::~QuoteViewer() = default;

void QuoteViewer::setRefreshInterval(int ms)
{
    m_timer->setInterval(ms);
}

void QuoteViewer::refresh()
{
    m_quotes->reload();
    int alarmed = 0;
    for (int row = 0; row < m_quotes->rowCount(); ++row) {
        alarmed += m_quotes->data(m_quotes->index(row, 0), QuoteTableModel::AlarmedRole).toBool() ? 1 : 0;
    }
    if (m_quotes->rowCount() == 0) {
        m_summary->setText(tr("No quotes yet: they come with the next update."));
    } else {
        m_summary->setText(tr("%n quote(s)", nullptr, m_quotes->rowCount()) +
                           (alarmed ? tr(", %n with an alarm", nullptr, alarmed) : QString()));
    }
}

} // namespace kestrova::gui
