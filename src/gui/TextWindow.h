#pragma once

#include <QDialog>

class QPlainTextEdit;

namespace kestrova::gui {

// A read-only text beside the main window (diagnostics, the raw page of the last fetch),
// with a button that copies it for a problem report.
class TextWindow : public QDialog
{
    Q_OBJECT
public:
    TextWindow(const QString& objectName, const QString& title, QWidget* parent = nullptr);

    void setText(const QString& text);
    QString text() const;

private:
    QPlainTextEdit* m_text;
};

} // namespace kestrova::gui
