#pragma once

#include "gui/ResizingPane.h"

class QPlainTextEdit;

namespace kestrova::gui {

// frmTerminal: the raw modem and socket traffic as the engine echoes it, capped the way
// the engine caps it. Created on first echo and free to stay hidden; echoing goes on.
class TerminalWindow : public ResizingPane
{
    Q_OBJECT
public:
    explicit TerminalWindow(QWidget* parent = nullptr);

    void echo(const QString& text);
    // The text as the cap and backspace rules left it (line feeds dropped, CRs kept).
    const QString& text() const { return m_text; }
    QPlainTextEdit* textBox() const { return m_box; }

private:
    QString m_text;
    QPlainTextEdit* m_box;
};

// What a capped engine text (CR LF or CR line ends) looks like in a plain-text box.
QString displayText(const QString& text);

} // namespace kestrova::gui
