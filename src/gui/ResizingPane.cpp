#include "gui/ResizingPane.h"

#include "support/VbError.h"

#include <QResizeEvent>

namespace kestrova::gui {

namespace {

// The pane as CResize sees its window. A minimised window cannot be sized.
class PaneFrame final : public support::ResizeFrame
{
public:
    PaneFrame(QWidget& pane, QSize size) : m_pane(pane), m_size(size) {}
    double Width() const override { return m_size.width(); }
    double Height() const override { return m_size.height(); }
    void setWidth(double value) override
    {
        checkSizable();
        m_size.setWidth(static_cast<int>(value));
        m_pane.resize(m_size);
    }
    void setHeight(double value) override
    {
        checkSizable();
        m_size.setHeight(static_cast<int>(value));
        m_pane.resize(m_size);
    }

private:
    void checkSizable() const
    {
        if (m_pane.window()->isMinimized()) {
            throw support::VbError(384, QStringLiteral("A form can't be moved or sized while minimized or maximized"));
        }
    }
    QWidget& m_pane;
    QSize m_size;
};

class WidgetControl final : public support::ResizeControl
{
public:
    explicit WidgetControl(QWidget& w) : m_w(w) {}
    double Left() const override { return m_w.x(); }
    double Top() const override { return m_w.y(); }
    double Width() const override { return m_w.width(); }
    double Height() const override { return m_w.height(); }
    void setTop(double value) override { m_w.move(m_w.x(), static_cast<int>(value)); }
    void setWidth(double value) override { m_w.resize(static_cast<int>(value), m_w.height()); }
    void setHeight(double value) override { m_w.resize(m_w.width(), static_cast<int>(value)); }

private:
    QWidget& m_w;
};

} // namespace

ResizingPane::ResizingPane(QWidget* parent, Qt::WindowFlags flags) : QWidget(parent, flags) {}

void ResizingPane::setControl(QWidget* control, const QRect& geometry, const QSize& designSize)
{
    m_control = control;
    control->setParent(this);
    control->setGeometry(geometry);
    PaneFrame frame(*this, designSize);
    WidgetControl ctl(*control);
    try {
        m_resize.GetPositions(frame, ctl);
    } catch (const support::VbError& e) {
        if (onError) {
            onError(QStringLiteral("CResize::GetPositions: ") + e.description());
        }
    }
    resize(designSize);
}

void ResizingPane::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (!m_control) {
        return;
    }
    PaneFrame frame(*this, event->size());
    WidgetControl ctl(*m_control);
    const QString error = m_resize.ResizeCtrl(frame, ctl);
    if (!error.isEmpty() && onError) {
        onError(error);
    }
}

} // namespace kestrova::gui
