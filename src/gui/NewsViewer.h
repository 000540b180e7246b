#pragma once

#include <QDialog>

class QComboBox;
class QLabel;
class QPushButton;
class QTreeWidget;

namespace kestrova::app {
class Application;
}

namespace kestrova::gui {

class GuiHost;

// The headlines of the news store by security and date, newest first. A headline opens the
// news page it was found on in the browser. Stays open beside the main window and follows
// each update (refresh).
class NewsViewer : public QDialog
{
    Q_OBJECT
public:
    NewsViewer(QWidget* parent, app::Application& app, GuiHost& host);

    QTreeWidget* list() const { return m_list; }
    void refresh();
    void openSelected();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void applyFilter();

    app::Application& m_app;
    GuiHost& m_host;
    QComboBox* m_security;
    QTreeWidget* m_list;
    QLabel* m_empty;
    QPushButton* m_open;
};

} // namespace kestrova::gui
