#pragma once

#include "support/Host.h"

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <QWidget>

#include <deque>

class QPlainTextEdit;

namespace kestrova::support {
class CancelFlag;
}

namespace kestrova::gui {

class StatusWindow;
class TerminalWindow;

// The desktop face of support::Host. Status lines go to the main window's status list
// (txtStatus) under the 16,384/4,096 cap; status texts and progress to the status window,
// which is shown while long work runs (between setBusy(true) and setBusy(false), when
// ShowStatus is on) and whose Cancel button sets the cancel flag; terminal traffic to the
// terminal window, created on first echo. All of them are also handed on as signals.
// Message, input and file boxes are real dialogs unless a test has scripted the answers,
// in which case no modal box opens at all (GUI tests never sleep waiting for a box).
class GuiHost : public QObject, public support::Host
{
    Q_OBJECT
public:
    explicit GuiHost(QObject* parent = nullptr);
    ~GuiHost() override;

    void appendStatusLine(const QString& line) override;
    void setStatusText(const QString& text) override;
    void setProgress(const QString& percent, const QString& text) override;
    void terminalEcho(const QString& text) override;
    support::MsgAnswer messageBox(const QString& text, support::MsgButtons buttons = support::MsgButtons::Ok,
                                  support::MsgIcon icon = support::MsgIcon::None) override;
    QString inputBox(const QString& prompt, const QString& defaultText = {}) override;
    void setBusy(bool busy) override;
    bool openUrl(const QString& url) override;
    void yield(int maxWaitMs = 100) override;

    // File choosers of the File menu, through the same scripted hook as the boxes.
    QString openFileName(const QString& title, const QString& filter);
    QString saveFileName(const QString& title, const QString& filter, const QString& defaultSuffix) override;

    // The status list the lines go to; its text is kept in statusListText() with the CR LF
    // line ends the engine writes.
    void setStatusList(QPlainTextEdit* list);
    const QString& statusListText() const { return m_statusList; }
    // The flag the status window's Cancel button sets (the application's).
    void setCancelFlag(support::CancelFlag* flag);
    // ShowStatus: whether the status window comes up during long work.
    void setShowStatus(bool show);
    bool showStatus() const { return m_showStatus; }
    StatusWindow* statusWindow();
    TerminalWindow* terminalWindow();
    // Closes the status and terminal windows (the exit path).
    void closeWindows();

    // The window that boxes are centred on.
    void setDialogParent(QWidget* parent) { m_parent = parent; }
    QWidget* dialogParent() const { return m_parent; }

    // Test hooks: when a queue is non-empty its front answers the next box of that kind
    // instead of a modal dialog. Every box's text is recorded in shownMessages/shownPrompts.
    bool scripted = false; // when set, an empty queue answers with the box's default
    std::deque<support::MsgAnswer> scriptedAnswers;
    std::deque<QString> scriptedInputs;
    std::deque<QString> scriptedFiles;
    QStringList shownMessages;
    QStringList shownPrompts;
    QStringList openedUrls;
    bool scriptedBrowserOpens = true; // what openUrl answers when scripted

Q_SIGNALS:
    void statusLineAppended(const QString& line);
    void statusTextChanged(const QString& text);
    void progressChanged(const QString& percent, const QString& text);
    void terminalEchoed(const QString& text);

private:
    void updateStatusWindow();

    QPointer<QWidget> m_parent;
    QPointer<QPlainTextEdit> m_statusListBox;
    QPointer<StatusWindow> m_statusWindow;
    QPointer<TerminalWindow> m_terminalWindow;
    support::CancelFlag* m_cancel = nullptr;
    QString m_statusList;
    QString m_statusText;
    QTimer m_hideStatus;
    bool m_showStatus = true;
    int m_busyDepth = 0;
};

} // namespace kestrova::gui
