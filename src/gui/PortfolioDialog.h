#pragma once

#include "core/PortfolioTable.h"

#include <QDialog>

class QLabel;
class QPushButton;
class QTableWidget;

namespace kestrova::app {
class Application;
}

namespace kestrova::gui {

class GuiHost;

// The portfolio editor: the entries in table order, with add, edit, remove and reorder.
// It works on a copy of the portfolio table; Save hands the copy to the engine in one
// step, Cancel drops it.
class PortfolioDialog : public QDialog
{
    Q_OBJECT
public:
    PortfolioDialog(QWidget* parent, app::Application& app, GuiHost& host);

    const core::PortfolioTable& table() const { return m_table; }
    // The buttons and the list, for keyboard use and for tests.
    QTableWidget* list() const { return m_list; }

    void addEntry();
    void editEntry();
    void removeEntry();
    void moveEntry(int step);
    void accept() override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void refresh(int selectSlot);
    void updateButtons();
    int currentSlot() const;

    app::Application& m_app;
    GuiHost& m_host;
    core::PortfolioTable m_table;
    QTableWidget* m_list;
    QLabel* m_count;
    QPushButton* m_add;
    QPushButton* m_edit;
    QPushButton* m_remove;
    QPushButton* m_up;
    QPushButton* m_down;
};

} // namespace kestrova::gui
