#pragma once

#include "support/CResize.h"

#include <QWidget>

#include <functional>

namespace kestrova::gui {

// A window (or a pane of one) whose single control follows its size through CResize:
// the control keeps the right and bottom margins it was given, and the pane never gets
// smaller than its minimum. The control is placed by hand once; from then on CResize
// does the rest.
class ResizingPane : public QWidget
{
    Q_OBJECT
public:
    explicit ResizingPane(QWidget* parent = nullptr, Qt::WindowFlags flags = {});

    // Takes the control, placed at `geometry` within a pane of size `designSize`, and
    // records its margins.
    void setControl(QWidget* control, const QRect& geometry, const QSize& designSize);
    QWidget* control() const { return m_control; }
    support::CResize& resizer() { return m_resize; }
    // Where a failed resize is reported ("CResize::ResizeCtrl: ...").
    std::function<void(const QString&)> onError;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QWidget* m_control = nullptr;
    support::CResize m_resize;
};

} // namespace kestrova::gui
