// Every window the desktop program opens, found by walking its menus and buttons: each
// reachable from the keyboard without clashes, and each inside the screen.
#include "DesktopRig.h"
#include "WindowWalk.h"

#include "gui/Desktop.h"
#include "gui/Mnemonics.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QTabBar>
#include <QToolButton>
#include <QtTest>

#include <map>

using namespace kestrova;
using testing::DesktopRig;

namespace {

// What a person sees of a window's underlined letters: each visible control with the text
// that carries its letter. Tool buttons go by their icon and shortcut, not by a letter.
QList<std::pair<QWidget*, QString>> keyedControls(QWidget* window)
{
    QList<std::pair<QWidget*, QString>> out;
    for (QWidget* w : window->findChildren<QWidget*>()) {
        if (!w->isVisible() || w->window() != window) {
            continue;
        }
        if (auto* b = qobject_cast<QAbstractButton*>(w); b && !qobject_cast<QToolButton*>(w)) {
            if (!b->text().isEmpty()) {
                out.append({w, b->text()});
            }
        } else if (auto* label = qobject_cast<QLabel*>(w); label && label->buddy()) {
            out.append({w, label->text()});
        } else if (auto* group = qobject_cast<QGroupBox*>(w); group && group->isCheckable()) {
            out.append({w, group->title()});
        } else if (auto* tabs = qobject_cast<QTabBar*>(w)) {
            for (int i = 0; i < tabs->count(); ++i) {
                out.append({w, tabs->tabText(i)});
            }
        } else if (auto* bar = qobject_cast<QMenuBar*>(w)) {
            for (QAction* a : bar->actions()) {
                out.append({w, a->text()});
            }
        }
    }
    return out;
}

// A portfolio with a few securities, so every command that acts on one has one.
struct Desktop
{
    DesktopRig rig;
    Desktop()
    {
        const QString file =
            testing::writePortfolio(rig.path(QStringLiteral("WATCH.PGR")), {}, {"IBM", "MSFT", "VFIAX"});
        rig.window->startup(file);
    }
};

} // namespace

class TestEveryWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { gui::setDesktopIdentity(); }

    // Alt and a letter reach one control of a window; a button without a letter, or two
    // controls with one, leave the user to the mouse.
    void everyWindowHasItsOwnLetters()
    {
        Desktop d;
        QStringList problems;
        QStringList windows;
        testing::WindowWalk walk(*d.rig.window, [&](QWidget* window, const QString& where) {
            windows << where;
            std::map<QChar, QString> taken;
            for (const auto& [w, text] : keyedControls(window)) {
                const QChar key = gui::mnemonicOf(text);
                const bool button =
                    qobject_cast<QPushButton*>(w) || qobject_cast<QCheckBox*>(w) || qobject_cast<QRadioButton*>(w);
                if (key.isNull()) {
                    if (button) {
                        problems << where + QStringLiteral(": \"") + text + QStringLiteral("\" has no letter");
                    }
                    continue;
                }
                const auto [at, fresh] = taken.emplace(key, text);
                if (!fresh) {
                    problems << where + QStringLiteral(": \"") + at->second + QStringLiteral("\" and \"") + text +
                                    QStringLiteral("\" share Alt+") + key.toUpper();
                }
            }
        });
        walk.run();
        // Within an open menu the letter alone picks an item.
        for (QMenu* menu : walk.menus()) {
            std::map<QChar, QString> taken;
            for (QAction* a : menu->actions()) {
                const QChar key = gui::mnemonicOf(a->text());
                if (a->isSeparator() || key.isNull()) {
                    continue;
                }
                const auto [at, fresh] = taken.emplace(key, a->text());
                if (!fresh) {
                    problems << menu->title() + QStringLiteral(" menu: \"") + at->second + QStringLiteral("\" and \"") +
                                    a->text() + QStringLiteral("\" share ") + key.toUpper();
                }
            }
        }
        for (const QString& p : std::as_const(problems)) {
            qWarning("%s", qPrintable(p)); // a failure message is cut short; the list is not
        }
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
        // The walk reaches the dialogs behind the menus and behind other dialogs' buttons.
        for (const char* title : {"Portfolio", "Add Security", "Options / Pager", "Modem Settings", "Update Schedule",
                                  "Send a Page", "Quotes", "Kestrova Terminal", "IBM - Price History"}) {
            QVERIFY2(windows.filter(QLatin1String(title)).size() > 0,
                     qPrintable(QStringLiteral("never opened: ") + QLatin1String(title) + QStringLiteral("\nopened: ") +
                                windows.join(QStringLiteral(", "))));
        }
    }

    // Whatever size a window works out for itself, it opens inside the screen's free area.
    void everyWindowOpensOnTheScreen()
    {
        Desktop d;
        QStringList problems;
        testing::WindowWalk walk(*d.rig.window, [&](QWidget* window, const QString& where) {
            const QRect area = window->screen()->availableGeometry();
            if (!area.contains(window->frameGeometry())) {
                problems << QStringLiteral("%1: %2,%3 %4x%5 outside %6x%7")
                                .arg(where)
                                .arg(window->frameGeometry().x())
                                .arg(window->frameGeometry().y())
                                .arg(window->frameGeometry().width())
                                .arg(window->frameGeometry().height())
                                .arg(area.width())
                                .arg(area.height());
            }
        });
        walk.run();
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
    }
};

QTEST_MAIN(TestEveryWindow)
#include "test_everywindow.moc"
