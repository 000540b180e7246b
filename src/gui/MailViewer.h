#pragma once

#include <QDialog>

class QLabel;
class QPlainTextEdit;
class QTreeWidget;

namespace kestrova::app {
class Application;
}

namespace kestrova::gui {

// The mail the last check found: date, sender, subject, size and whether it is new, and
// below it the selected message (its text when downloaded, else its headers). Stays open
// beside the main window and follows each check (refresh).
class MailViewer : public QDialog
{
    Q_OBJECT
public:
    MailViewer(QWidget* parent, app::Application& app);

    QTreeWidget* list() const { return m_list; }
    QPlainTextEdit* message() const { return m_message; }
    void refresh();

private:
    void showSelected();

    app::Application& m_app;
    QLabel* m_summary;
    QTreeWidget* m_list;
    QPlainTextEdit* m_message;
};

} // namespace kestrova::gui
