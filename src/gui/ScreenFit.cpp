#include "gui/ScreenFit.h"

#include <QApplication>
#include <QEvent>
#include <QScreen>
#include <QStyle>
#include <QWidget>
#include <QWindow>

namespace kestrova::gui {

namespace {

// The window frame the window manager adds. Known once the window has been on screen;
// before that, a title bar and thin borders as most window managers draw them.
QMargins frameOf(const QWidget* window)
{
    if (const QWindow* handle = window->windowHandle(); handle && window->testAttribute(Qt::WA_WState_Created)) {
        const QMargins m = handle->frameMargins();
        if (!m.isNull()) {
            return m;
        }
    }
    const int border = 4;
    const int title = window->style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, window) + border;
    return {border, title, border, border};
}

bool isFitted(const QWidget* w)
{
    if (!w->isWindow() || w->isMinimized() || w->isMaximized() || w->isFullScreen()) {
        return false;
    }
    switch (w->windowType()) {
    case Qt::Window:
    case Qt::Dialog:
    case Qt::Tool:
        return true;
    default:
        return false; // popups, tool tips, splash screens: placed by whoever shows them
    }
}

class ScreenFitFilter : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        // Only the show the program asks for; a window the user restores stays where it was.
        if (event->type() == QEvent::Show && !event->spontaneous() && watched->isWidgetType()) {
            auto* w = static_cast<QWidget*>(watched);
            if (isFitted(w)) {
                fitOnScreen(w);
            }
        }
        return false;
    }
};

} // namespace

void fitOnScreen(QWidget* window)
{
    const QWidget* anchor = window->parentWidget() ? window->parentWidget()->window() : nullptr;
    QScreen* screen = anchor && anchor->isVisible() ? anchor->screen() : window->screen();
    if (!screen) {
        screen = QGuiApplication::primaryScreen();
    }
    if (!screen) {
        return;
    }
    const QRect area = screen->availableGeometry();
    const QMargins frame = frameOf(window);
    const QRect inner = area.marginsRemoved(frame);

    QSize size = window->size().boundedTo(inner.size());
    size = size.expandedTo(window->minimumSize());
    if (const QSize need = window->minimumSizeHint(); need.isValid() && window->layout()) {
        size = size.expandedTo(need.boundedTo(inner.size()));
    }
    if (size != window->size()) {
        window->resize(size);
    }

    // A window's position is that of its frame; its size is without the frame.
    const QSize framed = size.grownBy(frame);
    QPoint at = window->pos();
    if (!window->testAttribute(Qt::WA_Moved)) {
        const QRect over = anchor && anchor->isVisible() ? anchor->frameGeometry() : area;
        at = over.center() - QPoint(framed.width() / 2, framed.height() / 2);
    }
    // Right and bottom edges first, so a window larger than the area keeps its title bar
    // (and its top-left corner) in reach.
    at.setX(std::min(at.x(), area.right() + 1 - framed.width()));
    at.setY(std::min(at.y(), area.bottom() + 1 - framed.height()));
    at.setX(std::max(at.x(), area.left()));
    at.setY(std::max(at.y(), area.top()));
    if (at != window->pos()) {
        window->move(at);
    }
}

void fitWindowsWhenShown(QObject* owner)
{
    qApp->installEventFilter(new ScreenFitFilter(owner));
}

} // namespace kestrova::gui
