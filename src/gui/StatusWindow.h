#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace kestrova::support {
class CancelFlag;
}

namespace kestrova::gui {

// frmStatus: what a long operation is doing right now, how far it has come, and the
// Cancel button that every wait of the engine polls. It remembers where the user put it.
class StatusWindow : public QWidget
{
    Q_OBJECT
public:
    explicit StatusWindow(QWidget* parent = nullptr);

    void setCancelFlag(support::CancelFlag* flag) { m_cancel = flag; }
    void setStatusText(const QString& text);
    // percent is the engine's text (" 40%"); an unreadable one makes the bar a busy bar.
    void setProgress(const QString& percent, const QString& text);
    void resetProgress();
    QString statusText() const;
    int progressValue() const;

Q_SIGNALS:
    void cancelRequested();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void cancel();

    support::CancelFlag* m_cancel = nullptr;
    QLabel* m_text;
    QLabel* m_detail;
    QProgressBar* m_progress;
    QPushButton* m_cancelButton;
    bool m_placed = false;
};

} // namespace kestrova::gui
