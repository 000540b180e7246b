#include "gui/StatusWindow.h"

#include "settings/Preferences.h"
#include "settings/SettingsStore.h"
#include "support/CancelFlag.h"
#include "support/Format.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QShowEvent>
#include <QVBoxLayout>

namespace kestrova::gui {

StatusWindow::StatusWindow(QWidget* parent) : QWidget(parent, Qt::Tool)
{
    setObjectName(QStringLiteral("frmStatus"));
    setWindowTitle(QStringLiteral("Kestrova Status"));
    m_text = new QLabel(this);
    m_text->setObjectName(QStringLiteral("lblStatus"));
    m_text->setMinimumWidth(fontMetrics().averageCharWidth() * 40);
    m_text->setTextFormat(Qt::PlainText);
    m_detail = new QLabel(this);
    m_detail->setObjectName(QStringLiteral("lblProgress"));
    m_detail->setTextFormat(Qt::PlainText);
    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("prgStatus"));
    m_progress->setRange(0, 100);
    m_cancelButton = new QPushButton(QStringLiteral("&Cancel"), this);
    m_cancelButton->setObjectName(QStringLiteral("cmdCancel"));
    connect(m_cancelButton, &QPushButton::clicked, this, &StatusWindow::cancel);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_cancelButton);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_text);
    layout->addWidget(m_detail);
    layout->addWidget(m_progress);
    layout->addLayout(buttons);
    resetProgress();
}

void StatusWindow::setStatusText(const QString& text)
{
    m_text->setText(text);
}

QString StatusWindow::statusText() const
{
    return m_text->text();
}

void StatusWindow::setProgress(const QString& percent, const QString& text)
{
    m_detail->setText(text);
    const double value = support::leadingNumber(percent.trimmed());
    if (percent.trimmed().isEmpty()) {
        m_progress->setRange(0, 0);
        return;
    }
    m_progress->setRange(0, 100);
    m_progress->setValue(static_cast<int>(std::clamp(value, 0.0, 100.0)));
}

void StatusWindow::resetProgress()
{
    m_detail->clear();
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
}

int StatusWindow::progressValue() const
{
    return m_progress->value();
}

void StatusWindow::cancel()
{
    // Every wait polls the flag, so the operation ends at its next round (a fraction of a
    // second), not when this handler returns.
    if (m_cancel) {
        m_cancel->set();
    }
    m_text->setText(QStringLiteral("Cancelling..."));
    Q_EMIT cancelRequested();
}

void StatusWindow::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (m_placed) {
        return;
    }
    m_placed = true;
    settings::SettingsStore store;
    const settings::Preferences prefs = settings::readPreferences(store, {});
    if (prefs.statusLeft && prefs.statusTop) {
        const QPoint stored(*prefs.statusLeft, *prefs.statusTop);
        // A position from a screen that is no longer attached would hide the Cancel button.
        if (QGuiApplication::screenAt(stored)) {
            move(stored);
            return;
        }
    }
    const QWidget* anchor = parentWidget() ? parentWidget()->window() : nullptr;
    const QRect area = anchor && anchor->isVisible() ? anchor->frameGeometry()
                       : screen()                    ? screen()->availableGeometry()
                                                     : QRect();
    if (area.isValid()) {
        move(area.center() - rect().center());
    }
}

void StatusWindow::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    if (event->spontaneous()) {
        return;
    }
    settings::SettingsStore store;
    settings::saveStatusPosition(store, pos().x(), pos().y());
}

} // namespace kestrova::gui
