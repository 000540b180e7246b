#pragma once

#include <QDialog>

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace kestrova::app {
class Application;
}

namespace kestrova::gui {

class GuiHost;

// The send-a-page dialog: a one-line free text, its length as it is typed, and Send Now
// by whichever route is configured. While a page goes out, Cancel stops it (the modem is
// still hung up); the status window shows the progress.
class SendPageDialog : public QDialog
{
    Q_OBJECT
public:
    SendPageDialog(QWidget* parent, app::Application& app, GuiHost& host);

    // What the last send reported ("Pager: Message Sent", "Digital Pager: Message 1 Sent").
    QString lastResult() const { return m_lastResult; }
    bool sending() const { return m_sending; }

    void send();
    void reject() override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void textChanged();

    app::Application& m_app;
    GuiHost& m_host;
    QLabel* m_user;
    QPlainTextEdit* m_message;
    QLabel* m_count;
    QLabel* m_result;
    QPushButton* m_send;
    QPushButton* m_clear;
    QPushButton* m_cancel;
    QString m_lastResult;
    bool m_sending = false;
};

} // namespace kestrova::gui
