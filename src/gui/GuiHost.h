#pragma once

#include "support/Host.h"

#include <QObject>
#include <QPointer>
#include <QStringList>

#include <deque>

#include <QWidget>

namespace kestrova::gui {

// The desktop face of support::Host. Status lines, status-window texts, progress and
// terminal traffic are handed on as signals to whichever window shows them; message,
// input and file boxes are real dialogs unless a test has scripted the answers, in which
// case no modal box opens at all (GUI tests never sleep waiting for a box).
class GuiHost : public QObject, public support::Host
{
    Q_OBJECT
public:
    explicit GuiHost(QObject* parent = nullptr);

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
    QString saveFileName(const QString& title, const QString& filter, const QString& defaultSuffix);

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

Q_SIGNALS:
    void statusLineAppended(const QString& line);
    void statusTextChanged(const QString& text);
    void progressChanged(const QString& percent, const QString& text);
    void terminalEchoed(const QString& text);

private:
    QPointer<QWidget> m_parent;
    int m_busyDepth = 0;
};

} // namespace kestrova::gui
