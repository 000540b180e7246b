#include "gui/TerminalWindow.h"

#include "support/StatusLine.h"

#include <QFontDatabase>
#include <QPlainTextEdit>
#include <QScrollBar>

namespace kestrova::gui {

QString displayText(const QString& text)
{
    QString shown = text;
    shown.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    shown.replace(u'\r', u'\n');
    return shown;
}

TerminalWindow::TerminalWindow(QWidget* parent) : ResizingPane(parent, Qt::Window)
{
    setObjectName(QStringLiteral("frmTerminal"));
    setWindowTitle(QStringLiteral("Kestrova Terminal"));
    m_box = new QPlainTextEdit;
    m_box->setObjectName(QStringLiteral("txtTerm"));
    m_box->setReadOnly(true);
    m_box->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_box->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    const int line = m_box->fontMetrics().height();
    const int margin = line / 2;
    const QSize design(m_box->fontMetrics().averageCharWidth() * 80 + 2 * margin, line * 24 + 2 * margin);
    resizer().setMinFrmWidth(static_cast<qint16>(design.width() / 3));
    resizer().setMinFrmHeight(static_cast<qint16>(design.height() / 3));
    setMinimumSize(design / 3);
    setControl(m_box, QRect(margin, margin, design.width() - 2 * margin, design.height() - 2 * margin), design);
}

void TerminalWindow::echo(const QString& text)
{
    const qsizetype before = m_text.size();
    // The text shown so far stays as it is unless the cap cuts its front or a leading
    // backspace eats into it; then the box is redrawn, else the new piece is appended.
    bool redraw = before >= support::kTextCap;
    qsizetype piece = 0;
    for (const QChar c : text) {
        if (c != QChar(8)) {
            ++piece;
        } else if (piece > 0) {
            --piece;
        } else {
            redraw = true;
        }
    }
    support::terminalAppend(m_text, text);
    QScrollBar* bar = m_box->verticalScrollBar();
    const bool atEnd = bar->value() == bar->maximum();
    if (redraw) {
        m_box->setPlainText(displayText(support::controlNames(m_text)));
    } else {
        QTextCursor c(m_box->document());
        c.movePosition(QTextCursor::End);
        c.insertText(displayText(support::controlNames(m_text.mid(before))));
    }
    if (atEnd) {
        bar->setValue(bar->maximum());
    }
}

} // namespace kestrova::gui
