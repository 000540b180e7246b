#pragma once

#include <QDialog>

class QLabel;
class QSortFilterProxyModel;
class QTableView;
class QTimer;

namespace kestrova::app {
class Application;
}

namespace kestrova::gui {

class QuoteTableModel;

// The last update's quotes with every field they carry, sortable by any column; rows whose
// alarm fired carry the alarm icon and the alarm's name as well as a tint. It re-reads the
// quote sets on its own timer (never while an update is filling them) and whenever an
// update ends.
class QuoteViewer : public QDialog
{
    Q_OBJECT
public:
    QuoteViewer(QWidget* parent, app::Application& app);
    ~QuoteViewer() override;

    QTableView* table() const { return m_table; }
    // Takes the quote sets as they stand now.
    void refresh();
    void setRefreshInterval(int ms);

private:
    app::Application& m_app;
    QuoteTableModel* m_quotes;
    QSortFilterProxyModel* m_sorted;
    QTableView* m_table;
    QLabel* m_summary;
    QTimer* m_timer;
};

} // namespace kestrova::gui
