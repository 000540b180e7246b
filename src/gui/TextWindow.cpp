#include "gui/TextWindow.h"

#include "gui/Mnemonics.h"

#include <QClipboard>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace kestrova::gui {

TextWindow::TextWindow(const QString& objectName, const QString& title, QWidget* parent) : QDialog(parent)
{
    setObjectName(objectName);
    setWindowTitle(title);
    setAttribute(Qt::WA_DeleteOnClose);
    m_text = new QPlainTextEdit(this);
    m_text->setReadOnly(true);
    m_text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_text->setLineWrapMode(QPlainTextEdit::NoWrap);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    QPushButton* copy = buttons->addButton(QStringLiteral("&Copy"), QDialogButtonBox::ActionRole);
    connect(copy, &QPushButton::clicked, this,
            [this] { QGuiApplication::clipboard()->setText(m_text->toPlainText()); });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_text);
    layout->addWidget(buttons);
    const QFontMetrics fm(m_text->font());
    resize(fm.averageCharWidth() * 90, fm.height() * 28);
    giveMnemonics(buttons);
}

void TextWindow::setText(const QString& text)
{
    m_text->setPlainText(text);
}

QString TextWindow::text() const
{
    return m_text->toPlainText();
}

} // namespace kestrova::gui
