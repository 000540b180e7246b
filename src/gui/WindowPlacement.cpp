#include "gui/WindowPlacement.h"

#include "settings/SettingsStore.h"

#include <QEvent>
#include <QHeaderView>
#include <QObject>
#include <QScrollBar>
#include <QTableView>
#include <QTreeView>
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

int widthForColumns(const QAbstractItemView* view)
{
    const QHeaderView* header = nullptr;
    if (const auto* table = qobject_cast<const QTableView*>(view)) {
        header = table->horizontalHeader();
    } else if (const auto* tree = qobject_cast<const QTreeView*>(view)) {
        header = tree->header();
    }
    if (!header || !view->model()) {
        return view->sizeHint().width();
    }
    int width = 0;
    for (int c = 0; c < view->model()->columnCount(); ++c) {
        if (!header->isSectionHidden(c)) {
            width += std::max(header->sectionSizeHint(c), view->sizeHintForColumn(c));
        }
    }
    return width + 2 * view->frameWidth() + view->verticalScrollBar()->sizeHint().width();
}

} // namespace kestrova::gui
