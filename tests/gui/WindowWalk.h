#pragma once

#include "gui/GuiHost.h"
#include "gui/MainWindow.h"
#include "gui/StatusWindow.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QMenu>
#include <QMenuBar>
#include <QPointer>
#include <QSet>
#include <QTabWidget>
#include <QTableView>
#include <QTest>
#include <QTimer>

#include <functional>

namespace kestrova::testing {

// Opens every window the desktop program reaches, as a person exploring it would: the main
// window, the status window as work shows it, every command of every menu (the menu bar's,
// the quote table's, the tray's), and in every window each button that opens another one
// (its text ends in "..."). Windows are found, not named, so a window added later is walked
// too. Each is handed to `visit` once it is on screen, once per page when it has tabs.
// Commands that end the program, start a new setup or go out to the network are left alone.
class WindowWalk
{
public:
    using Visit = std::function<void(QWidget* window, const QString& where)>;

    WindowWalk(gui::MainWindow& main, Visit visit) : m_main(main), m_visit(std::move(visit)) {}

    // The menus walked, for checks of their own.
    QList<QMenu*> menus() const
    {
        QList<QMenu*> out;
        for (QAction* a : m_main.menuBar()->actions()) {
            if (a->menu()) {
                out << a->menu();
            }
        }
        for (QMenu* m : m_main.findChildren<QMenu*>()) {
            if (!out.contains(m)) {
                out << m; // context and tray menus
            }
        }
        return out;
    }

    void run()
    {
        m_main.show();
        QTest::qWait(20);
        visitWindow(&m_main, QStringLiteral("main window"));
        // The status window, as a piece of work shows it.
        m_main.host().setBusy(true);
        m_main.host().setStatusText(QStringLiteral("Getting Stock Quotes"));
        m_main.host().setProgress(QStringLiteral(" 40%"), QStringLiteral("Getting Stocks - IBM"));
        visitWindow(m_main.host().statusWindow(), QStringLiteral("status window"));
        m_main.host().setBusy(false);
        m_main.host().setStatusText(QString());
        // Commands of the quote table act on its current row.
        if (m_main.quoteTable()->model()->rowCount() > 0) {
            m_main.quoteTable()->setCurrentIndex(m_main.quoteTable()->model()->index(0, 0));
        }

        QTimer poll;
        poll.setInterval(20);
        QObject::connect(&poll, &QTimer::timeout, [this] { serveModal(); });
        poll.start();
        for (QMenu* menu : menus()) {
            for (QAction* a : menu->actions()) {
                if (walked(a)) {
                    openFrom(menu->title().remove(u'&') + QStringLiteral(" > ") + a->text().remove(u'&'),
                             [a] { a->trigger(); });
                }
            }
        }
        poll.stop();
    }

private:
    static bool walked(const QAction* a)
    {
        static const QStringList kLeftAlone = {QStringLiteral("mnuExit"), QStringLiteral("mnuQuitPopup"),
                                               QStringLiteral("mnuNew"), QStringLiteral("mnuCheckMail")};
        return !a->isSeparator() && !a->menu() && a->isEnabled() && !a->isCheckable() &&
               !kLeftAlone.contains(a->objectName());
    }

    static bool opensWindow(const QAbstractButton* b)
    {
        return b->isVisible() && b->isEnabled() && b->text().endsWith(QStringLiteral("..."));
    }

    // Runs a command; the windows it opened without blocking are visited, their own
    // window-opening buttons pressed, and then closed.
    void openFrom(const QString& where, const std::function<void()>& command)
    {
        QSet<QWidget*> before;
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (w->isVisible()) {
                before.insert(w);
            }
        }
        command();
        QTest::qWait(20);
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (!w->isVisible() || before.contains(w) || seen(w)) {
                continue;
            }
            m_seen << w;
            visitWindow(w, w->windowTitle() + QStringLiteral(" (") + where + u')');
            for (QAbstractButton* b : w->findChildren<QAbstractButton*>()) {
                if (opensWindow(b)) {
                    openFrom(where + QStringLiteral(" > ") + b->text().remove(u'&'), [b] { b->click(); });
                }
            }
            w->close();
        }
    }

    // A dialog opened with exec() blocks the command, so it is looked after from the event
    // loop: visited, its window-opening buttons pressed one by one, then cancelled.
    void serveModal()
    {
        QWidget* modal = QApplication::activeModalWidget();
        if (!modal || m_busy.contains(modal)) {
            return;
        }
        if (m_pending.contains(modal) && !seen(modal)) {
            m_pending.remove(modal); // an earlier window's, at the same address
        }
        if (!seen(modal)) {
            m_seen << modal;
            const QString where = modal->windowTitle();
            visitWindow(modal, where);
            QList<QPointer<QAbstractButton>> pending;
            for (QAbstractButton* b : modal->findChildren<QAbstractButton*>()) {
                if (opensWindow(b)) {
                    pending << b;
                }
            }
            m_pending.insert(modal, pending);
        }
        QList<QPointer<QAbstractButton>>& pending = m_pending[modal];
        while (!pending.isEmpty() && !pending.first()) {
            pending.removeFirst();
        }
        if (!pending.isEmpty()) {
            QPointer<QAbstractButton> b = pending.takeFirst();
            // Pressed from a timer of its own: the window it opens blocks that timer, not this one.
            m_busy.insert(modal);
            QPointer<QWidget> guard(modal);
            QTimer::singleShot(0, b, [this, b, guard] {
                b->click();
                m_busy.remove(guard.data());
            });
            return;
        }
        m_pending.remove(modal);
        if (auto* dialog = qobject_cast<QDialog*>(modal)) {
            dialog->reject();
        } else {
            modal->close();
        }
    }

    void visitWindow(QWidget* window, const QString& where)
    {
        if (!window->isVisible()) {
            window->show();
        }
        QTest::qWait(10);
        auto* tabs = window->findChild<QTabWidget*>();
        if (!tabs) {
            m_visit(window, where);
            return;
        }
        const int was = tabs->currentIndex();
        for (int i = 0; i < tabs->count(); ++i) {
            tabs->setCurrentIndex(i);
            QApplication::processEvents();
            m_visit(window, where + QStringLiteral(" / ") + tabs->tabText(i).remove(u'&'));
        }
        tabs->setCurrentIndex(was);
    }

    // Windows come and go: a pointer of one gone may be a new one's.
    bool seen(QWidget* w) const { return m_seen.contains(QPointer<QWidget>(w)); }

    gui::MainWindow& m_main;
    Visit m_visit;
    QList<QPointer<QWidget>> m_seen;
    QSet<QWidget*> m_busy;
    QHash<QWidget*, QList<QPointer<QAbstractButton>>> m_pending;
};

} // namespace kestrova::testing
