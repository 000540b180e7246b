#include "gui/WindowPlacement.h"

#include "settings/SettingsStore.h"

#include <QEvent>
#include <QObject>
#include <QWidget>

namespace kestrova::gui {

namespace {

const QString kSection = QStringLiteral("Windows");

class PlacementKeeper : public QObject
{
public:
    PlacementKeeper(QWidget* window, QString name) : QObject(window), m_window(window), m_name(std::move(name)) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (watched == m_window && event->type() == QEvent::Hide && !m_window->isMinimized()) {
            settings::SettingsStore store;
            store.save(kSection, m_name, QString::fromLatin1(m_window->saveGeometry().toBase64()));
        }
        return false;
    }

private:
    QWidget* m_window;
    QString m_name;
};

} // namespace

void rememberPlacement(QWidget* window, const QString& name)
{
    const settings::SettingsStore store;
    const QByteArray saved = QByteArray::fromBase64(store.get(kSection, name).toLatin1());
    if (!saved.isEmpty()) {
        // restoreGeometry keeps a window on a screen that still exists; a layout that
        // grew since then still gets the room it needs through the minimum size.
        window->restoreGeometry(saved);
    }
    window->installEventFilter(new PlacementKeeper(window, name));
}

} // namespace kestrova::gui
