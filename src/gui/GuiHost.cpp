#include "gui/GuiHost.h"

#include "gui/Mnemonics.h"
#include "gui/StatusWindow.h"
#include "gui/TerminalWindow.h"
#include "support/EventWait.h"
#include "support/StatusLine.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QUrl>

namespace kestrova::gui {

namespace {

using support::MsgAnswer;
using support::MsgButtons;
using support::MsgIcon;

MsgAnswer defaultAnswer(MsgButtons buttons)
{
    switch (buttons) {
    case MsgButtons::YesNo:
    case MsgButtons::YesNoCancel:
        return MsgAnswer::No;
    case MsgButtons::OkCancel:
    case MsgButtons::RetryCancel:
        return MsgAnswer::Cancel;
    case MsgButtons::Ok:
        break;
    }
    return MsgAnswer::Ok;
}

QMessageBox::StandardButtons standardButtons(MsgButtons buttons)
{
    switch (buttons) {
    case MsgButtons::OkCancel:
        return QMessageBox::Ok | QMessageBox::Cancel;
    case MsgButtons::YesNo:
        return QMessageBox::Yes | QMessageBox::No;
    case MsgButtons::YesNoCancel:
        return QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel;
    case MsgButtons::RetryCancel:
        return QMessageBox::Retry | QMessageBox::Cancel;
    case MsgButtons::Ok:
        break;
    }
    return QMessageBox::Ok;
}

QMessageBox::Icon boxIcon(MsgIcon icon)
{
    switch (icon) {
    case MsgIcon::Critical:
        return QMessageBox::Critical;
    case MsgIcon::Question:
        return QMessageBox::Question;
    case MsgIcon::Exclamation:
        return QMessageBox::Warning;
    case MsgIcon::Information:
        return QMessageBox::Information;
    case MsgIcon::None:
        break;
    }
    return QMessageBox::NoIcon;
}

MsgAnswer fromStandard(int button)
{
    switch (button) {
    case QMessageBox::Cancel:
        return MsgAnswer::Cancel;
    case QMessageBox::Yes:
        return MsgAnswer::Yes;
    case QMessageBox::No:
        return MsgAnswer::No;
    case QMessageBox::Retry:
        return MsgAnswer::Retry;
    default:
        return MsgAnswer::Ok;
    }
}

} // namespace

GuiHost::GuiHost(QObject* parent) : QObject(parent)
{
    // Between two steps of one operation the status text is cleared for a moment; the
    // window waits a little before it goes, so it does not flicker.
    m_hideStatus.setSingleShot(true);
    m_hideStatus.setInterval(400);
    connect(&m_hideStatus, &QTimer::timeout, this, [this] {
        if (m_statusWindow) {
            m_statusWindow->hide();
            // The next piece of work starts from a clean window, not from this one's last step.
            m_statusWindow->setStatusText(QString());
            m_statusWindow->resetProgress();
        }
        m_statusText.clear();
    });
}

GuiHost::~GuiHost()
{
    // Windows without a parent window are ours; the others go with their parent.
    if (m_statusWindow && !m_statusWindow->parent()) {
        delete m_statusWindow.data();
    }
    if (m_terminalWindow && !m_terminalWindow->parent()) {
        delete m_terminalWindow.data();
    }
}

void GuiHost::setStatusList(QPlainTextEdit* list)
{
    m_statusListBox = list;
    if (list) {
        list->setPlainText(displayText(m_statusList));
    }
}

void GuiHost::setCancelFlag(support::CancelFlag* flag)
{
    m_cancel = flag;
    if (m_statusWindow) {
        m_statusWindow->setCancelFlag(flag);
    }
}

void GuiHost::setShowStatus(bool show)
{
    m_showStatus = show;
    updateStatusWindow();
}

StatusWindow* GuiHost::statusWindow()
{
    if (!m_statusWindow) {
        m_statusWindow = new StatusWindow(m_parent);
        m_statusWindow->setCancelFlag(m_cancel);
    }
    return m_statusWindow;
}

TerminalWindow* GuiHost::terminalWindow()
{
    if (!m_terminalWindow) {
        m_terminalWindow = new TerminalWindow(m_parent);
    }
    return m_terminalWindow;
}

void GuiHost::closeWindows()
{
    m_hideStatus.stop();
    if (m_statusWindow) {
        m_statusWindow->close();
    }
    if (m_terminalWindow) {
        m_terminalWindow->close();
    }
}

void GuiHost::appendStatusLine(const QString& line)
{
    const bool cut = m_statusList.size() >= support::kTextCap;
    support::appendCapped(m_statusList, line);
    if (m_statusListBox) {
        QScrollBar* bar = m_statusListBox->verticalScrollBar();
        const bool atEnd = bar->value() == bar->maximum();
        if (cut) {
            m_statusListBox->setPlainText(displayText(m_statusList));
        } else {
            QTextCursor c(m_statusListBox->document());
            c.movePosition(QTextCursor::End);
            c.insertText(displayText(line));
        }
        // The caret goes to the end, so the newest line is in view unless the user has
        // scrolled back to read an older one.
        if (atEnd) {
            m_statusListBox->moveCursor(QTextCursor::End);
            bar->setValue(bar->maximum());
        }
    }
    Q_EMIT statusLineAppended(line);
}

void GuiHost::setStatusText(const QString& text)
{
    const bool nextStep = text != m_statusText;
    m_statusText = text;
    if (m_statusWindow || !text.isEmpty()) {
        StatusWindow* w = statusWindow();
        w->setStatusText(text);
        // A new step's progress starts afresh: "Initializing Modem..." is not 100 % of
        // the option quotes fetched before it.
        if (nextStep) {
            w->resetProgress();
        }
    }
    updateStatusWindow();
    Q_EMIT statusTextChanged(text);
}

void GuiHost::setProgress(const QString& percent, const QString& text)
{
    statusWindow()->setProgress(percent, text);
    updateStatusWindow();
    Q_EMIT progressChanged(percent, text);
}

void GuiHost::terminalEcho(const QString& text)
{
    terminalWindow()->echo(text);
    Q_EMIT terminalEchoed(text);
}

void GuiHost::updateStatusWindow()
{
    // The window belongs to work in progress, which the engine brackets with setBusy: a
    // status text left standing after the work has ended must not keep it on screen.
    const bool working = m_busyDepth > 0;
    if (m_showStatus && working) {
        m_hideStatus.stop();
        StatusWindow* w = statusWindow();
        if (!w->isVisible()) {
            w->show();
        }
    } else if (m_statusWindow && m_statusWindow->isVisible() && !m_hideStatus.isActive()) {
        m_hideStatus.start();
    }
}

MsgAnswer GuiHost::messageBox(const QString& text, MsgButtons buttons, MsgIcon icon)
{
    shownMessages << text;
    if (!scriptedAnswers.empty()) {
        const MsgAnswer a = scriptedAnswers.front();
        scriptedAnswers.pop_front();
        return a;
    }
    if (scripted) {
        return defaultAnswer(buttons);
    }
    QMessageBox box(boxIcon(icon), QApplication::applicationDisplayName(), text, standardButtons(buttons), m_parent);
    // What a box says (an address, a file name, an error) can be copied.
    box.setTextInteractionFlags(Qt::TextSelectableByMouse);
    giveMnemonics(box.findChild<QDialogButtonBox*>());
    return fromStandard(box.exec());
}

QString GuiHost::inputBox(const QString& prompt, const QString& defaultText)
{
    shownPrompts << prompt;
    if (!scriptedInputs.empty()) {
        QString s = scriptedInputs.front();
        scriptedInputs.pop_front();
        return s;
    }
    if (scripted) {
        return {};
    }
    QInputDialog dlg(m_parent);
    dlg.setWindowTitle(QApplication::applicationDisplayName());
    dlg.setLabelText(prompt);
    dlg.setTextValue(defaultText);
    dlg.setOkButtonText(QStringLiteral("&OK"));
    dlg.setCancelButtonText(QStringLiteral("&Cancel"));
    return dlg.exec() == QDialog::Accepted ? dlg.textValue() : QString();
}

QString GuiHost::openFileName(const QString& title, const QString& filter)
{
    shownPrompts << title;
    if (!scriptedFiles.empty()) {
        QString s = scriptedFiles.front();
        scriptedFiles.pop_front();
        return s;
    }
    if (scripted) {
        return {};
    }
    return QFileDialog::getOpenFileName(m_parent, title, {}, filter);
}

QString GuiHost::saveFileName(const QString& title, const QString& filter, const QString& defaultSuffix)
{
    shownPrompts << title;
    if (!scriptedFiles.empty()) {
        QString s = scriptedFiles.front();
        scriptedFiles.pop_front();
        return s;
    }
    if (scripted) {
        return {};
    }
    QFileDialog dlg(m_parent, title, {}, filter);
    dlg.setAcceptMode(QFileDialog::AcceptSave);
    dlg.setDefaultSuffix(defaultSuffix);
    if (dlg.exec() != QDialog::Accepted || dlg.selectedFiles().isEmpty()) {
        return {};
    }
    return dlg.selectedFiles().constFirst();
}

void GuiHost::setBusy(bool busy)
{
    // Nested operations each ask for the busy pointer; only the outermost one sets it.
    if (busy) {
        if (m_busyDepth++ == 0) {
            QApplication::setOverrideCursor(Qt::WaitCursor);
        }
    } else if (m_busyDepth > 0 && --m_busyDepth == 0) {
        QApplication::restoreOverrideCursor();
    }
    updateStatusWindow();
}

bool GuiHost::openUrl(const QString& url)
{
    openedUrls << url;
    if (scripted) {
        return scriptedBrowserOpens;
    }
    return QDesktopServices::openUrl(QUrl(url));
}

void GuiHost::yield(int maxWaitMs)
{
    support::waitForEvents(maxWaitMs);
}

} // namespace kestrova::gui
