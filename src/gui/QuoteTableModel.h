#pragma once

#include <QAbstractTableModel>
#include <QIcon>

#include <memory>
#include <vector>

namespace kestrova::core {
class Quote;
class Quotes;
struct PortfolioTable;
} // namespace kestrova::core

namespace kestrova::gui {

// The main window's quote table over the engine's two quote sets (stocks first, then
// options). The model holds the engine's own quote objects, not copies of their fields:
// an update rebuilds the sets while it runs, so the rows keep the previous update's
// objects alive until reload() takes the new ones when the run has ended.
class QuoteTableModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { Symbol, Name, Last, Change, PercentChange, Volume, Time, Value, Gain, Alarm, News, ColumnCount };
    // The quote behind a row, for views that open something about it (news, a chart).
    static constexpr int TickerRole = Qt::UserRole + 1;
    static constexpr int AlarmedRole = Qt::UserRole + 2;
    static constexpr int SortRole = Qt::UserRole + 3;

    // With a portfolio, every security of it has a row from the start (prices blank until
    // an update brings its quote); without, the rows are the sets' quotes alone.
    QuoteTableModel(const core::Quotes& stocks, const core::Quotes& options, QObject* parent = nullptr,
                    const core::PortfolioTable* portfolio = nullptr);
    ~QuoteTableModel() override;

    // Takes the sets' current members (an update run has ended, the portfolio changed).
    void reload();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    // Whether any quote carries holdings (shares); without them Value and Gain are empty.
    bool hasHoldings() const;
    std::shared_ptr<const core::Quote> quoteAt(int row) const;
    QString tickerAt(int row) const;

    // The alarms a quote has raised, as words ("High", "Low", "Volume", "+%", "-%"),
    // led by "New" when one of them was raised by the last update.
    static QString alarmText(const core::Quote& q);

private:
    QVariant display(const core::Quote& q, int column) const;
    QVariant sortKey(const core::Quote& q, int column) const;

    const core::Quotes& m_stocks;
    const core::Quotes& m_options;
    const core::PortfolioTable* m_portfolio;
    std::vector<std::shared_ptr<const core::Quote>> m_rows;
    int m_sortColumn = -1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    QIcon m_alarmIcon;
    QIcon m_newsIcon;
};

} // namespace kestrova::gui
