#include "gui/GuiHost.h"

#include "support/EventWait.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
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

GuiHost::GuiHost(QObject* parent) : QObject(parent) {}

void GuiHost::appendStatusLine(const QString& line)
{
    Q_EMIT statusLineAppended(line);
}

void GuiHost::setStatusText(const QString& text)
{
    Q_EMIT statusTextChanged(text);
}

void GuiHost::setProgress(const QString& percent, const QString& text)
{
    Q_EMIT progressChanged(percent, text);
}

void GuiHost::terminalEcho(const QString& text)
{
    Q_EMIT terminalEchoed(text);
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
    bool ok = false;
    const QString s = QInputDialog::getText(m_parent, QApplication::applicationDisplayName(), prompt, QLineEdit::Normal,
                                            defaultText, &ok);
    return ok ? s : QString();
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
}

bool GuiHost::openUrl(const QString& url)
{
    openedUrls << url;
    if (scripted) {
        return true;
    }
    return QDesktopServices::openUrl(QUrl(url));
}

void GuiHost::yield(int maxWaitMs)
{
    support::waitForEvents(maxWaitMs);
}

} // namespace kestrova::gui
