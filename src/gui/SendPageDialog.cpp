#include "gui/SendPageDialog.h"

#include "app/Application.h"
#include "delivery/ManualPage.h"
#include "gui/GuiHost.h"
#include "gui/Mnemonics.h"
#include "gui/WindowPlacement.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextCursor>
#include <QVBoxLayout>

namespace kestrova::gui {

SendPageDialog::SendPageDialog(QWidget* parent, app::Application& app, GuiHost& host)
    : QDialog(parent), m_app(app), m_host(host)
{
    setObjectName(QStringLiteral("SendPageDialog"));
    setWindowTitle(tr("Send a Page"));

    m_user = new QLabel(delivery::ManualPage::addressee(app.state().options));
    m_user->setObjectName(QStringLiteral("lblUser"));
    m_user->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_message = new QPlainTextEdit;
    m_message->setObjectName(QStringLiteral("txtMessage"));
    m_message->setTabChangesFocus(true);
    m_message->installEventFilter(this);
    m_message->setMinimumHeight(fontMetrics().height() * 5);
    m_count = new QLabel;
    m_count->setObjectName(QStringLiteral("lblChar"));
    m_result = new QLabel;
    m_result->setObjectName(QStringLiteral("lblResult"));
    m_result->setWordWrap(true);

    auto* top = new QFormLayout;
    top->addRow(tr("To:"), m_user);
    auto* messageLabel = new QLabel(tr("&Message:"));
    messageLabel->setBuddy(m_message);

    m_send = new QPushButton(QIcon::fromTheme(QStringLiteral("mail-send")), tr("&Send Now"));
    m_send->setObjectName(QStringLiteral("cmdSend"));
    m_clear = new QPushButton(QIcon::fromTheme(QStringLiteral("edit-clear")), tr("C&lear"));
    m_clear->setObjectName(QStringLiteral("cmdClear"));
    auto* buttons = new QDialogButtonBox;
    buttons->addButton(m_send, QDialogButtonBox::AcceptRole);
    buttons->addButton(m_clear, QDialogButtonBox::ResetRole);
    m_cancel = buttons->addButton(QDialogButtonBox::Cancel);
    m_cancel->setObjectName(QStringLiteral("cmdCancel"));
    connect(m_send, &QPushButton::clicked, this, &SendPageDialog::send);
    connect(m_clear, &QPushButton::clicked, m_message, &QPlainTextEdit::clear);
    connect(m_cancel, &QPushButton::clicked, this, &SendPageDialog::reject);
    connect(m_message, &QPlainTextEdit::textChanged, this, &SendPageDialog::textChanged);

    auto* main = new QVBoxLayout(this);
    main->addLayout(top);
    main->addWidget(messageLabel);
    main->addWidget(m_message, 1);
    main->addWidget(m_count);
    main->addWidget(m_result);
    main->addWidget(buttons);

    textChanged();
    // Only now does the button belong to the dialog; set earlier, the dialog would pick the
    // button after the focus (Clear) for a stray Enter.
    m_send->setDefault(true);
    m_message->setFocus();
    resize(sizeHint().expandedTo(QSize(fontMetrics().averageCharWidth() * 60, 0)));
    giveMnemonics(buttons);
    rememberPlacement(this, objectName());
}

bool SendPageDialog::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_message && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            // A page is one line: Enter only beeps and leaves a blank where it was pressed.
            QApplication::beep();
            m_message->insertPlainText(QStringLiteral(" "));
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void SendPageDialog::textChanged()
{
    const QString text = m_message->toPlainText();
    const QString accepted = delivery::ManualPage::acceptTyped(text);
    if (accepted != text) {
        // Pasted line breaks become blanks, as a typed Enter does.
        const int position = m_message->textCursor().position();
        const QSignalBlocker block(m_message);
        m_message->setPlainText(accepted);
        QTextCursor cursor = m_message->textCursor();
        cursor.setPosition(std::min(position, static_cast<int>(accepted.size())));
        m_message->setTextCursor(cursor);
    }
    m_count->setText(delivery::ManualPage::characterCountText(accepted));
    const bool hasText = delivery::ManualPage::hasText(accepted);
    m_send->setEnabled(!m_sending && hasText);
    // A disabled button says why.
    m_send->setToolTip(hasText ? QString() : delivery::ManualPage::kNoText);
}

void SendPageDialog::send()
{
    // A text of blanks is the engine's to refuse; its answer shows below the text.
    const QString text = m_message->toPlainText();
    if (m_sending) {
        return;
    }
    m_sending = true;
    m_send->setEnabled(false);
    m_clear->setEnabled(false);
    m_message->setReadOnly(true);
    m_result->setText(tr("Sending..."));
    const delivery::ManualPageResult r = m_app.sendManualPage(text);
    m_sending = false;
    m_lastResult = r.text;
    m_message->setReadOnly(false);
    m_clear->setEnabled(true);
    textChanged();
    m_result->setText(r.text.isEmpty() ? tr("The page was not sent.") : r.text);
    if (r.sent) {
        accept();
    }
}

void SendPageDialog::reject()
{
    if (m_sending) {
        // Cancel during a send stops the send; the dialog closes once it has stopped.
        m_app.cancelFlag().set();
        return;
    }
    QDialog::reject();
}

void SendPageDialog::closeEvent(QCloseEvent* event)
{
    if (m_sending) {
        m_app.cancelFlag().set();
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}

} // namespace kestrova::gui
