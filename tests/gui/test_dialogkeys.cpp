// Every dialog and viewer from the keyboard alone, and back where the user left it.
#include "GuiRig.h"

#include "core/Options.h"
#include "core/PortfolioEntries.h"
#include "gui/MailViewer.h"
#include "gui/Mnemonics.h"
#include "gui/ModemDialog.h"
#include "gui/NewsViewer.h"
#include "gui/OptionsDialog.h"
#include "gui/PortfolioDialog.h"
#include "gui/QuoteViewer.h"
#include "gui/ScheduleDialog.h"
#include "gui/SecurityDialog.h"
#include "gui/SendPageDialog.h"

#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QtTest>

#include <map>

using namespace kestrova;
using testing::GuiRig;

namespace {

// One of each window, over a setup with one entry so the entry form can edit it.
struct Windows
{
    GuiRig rig;
    core::PortfolioTable table;
    core::Options modemTarget;

    Windows()
    {
        rig.start();
        core::EntryInput in;
        in.ticker = QStringLiteral("IBM");
        core::PortfolioRecord rec;
        parseEntry(in, rec);
        addEntry(rig.app->state().portfolio, rec);
        table = rig.app->state().portfolio;
        modemTarget = rig.app->state().options;
    }

    std::unique_ptr<QDialog> make(const QString& name)
    {
        app::Application& app = *rig.app;
        const std::map<QString, std::function<QDialog*()>> makers = {
            {"portfolio", [&] { return new gui::PortfolioDialog(nullptr, app, rig.host); }},
            {"entry", [&] { return new gui::SecurityDialog(nullptr, app, rig.host, table, 0); }},
            {"options", [&] { return new gui::OptionsDialog(nullptr, app, rig.host); }},
            {"schedule", [&] { return new gui::ScheduleDialog(nullptr, app, rig.host); }},
            {"modem", [&] { return new gui::ModemDialog(nullptr, rig.host, modemTarget, false); }},
            {"send page", [&] { return new gui::SendPageDialog(nullptr, app, rig.host); }},
            {"quotes", [&] { return new gui::QuoteViewer(nullptr, app); }},
            {"news", [&] { return new gui::NewsViewer(nullptr, app, rig.host); }},
            {"mail", [&] { return new gui::MailViewer(nullptr, app); }},
        };
        return std::unique_ptr<QDialog>(makers.at(name)());
    }
};

QString textOf(QWidget* w)
{
    if (auto* label = qobject_cast<QLabel*>(w)) {
        return label->text();
    }
    if (auto* button = qobject_cast<QAbstractButton*>(w)) {
        return button->text();
    }
    if (auto* group = qobject_cast<QGroupBox*>(w); group && group->isCheckable()) {
        return group->title();
    }
    return {};
}

bool takesInput(QWidget* w)
{
    return qobject_cast<QLineEdit*>(w) || qobject_cast<QComboBox*>(w) || qobject_cast<QAbstractSpinBox*>(w) ||
           qobject_cast<QPlainTextEdit*>(w);
}

// Each page of a tabbed dialog is one screenful; the rest of the dialog is seen with all of them.
QList<QWidget*> screenfuls(QDialog* dlg)
{
    auto* tabs = dlg->findChild<QTabWidget*>();
    if (!tabs) {
        return {dlg};
    }
    QList<QWidget*> out;
    for (int i = 0; i < tabs->count(); ++i) {
        out << tabs->widget(i);
    }
    return out;
}

// Shown on that screenful: in the page, or outside the tabs and shown with every page.
bool onScreenful(QWidget* w, QDialog* dlg, QWidget* page)
{
    if (page->isAncestorOf(w)) {
        return w->isVisibleTo(page);
    }
    auto* tabs = dlg->findChild<QTabWidget*>();
    return page != dlg && !tabs->isAncestorOf(w) && w->isVisibleTo(dlg);
}

// The tab stop before w: a field that a check box switches on follows that box, so the
// box's letter and then Tab reach it.
QWidget* tabStopBefore(QWidget* w)
{
    for (QWidget* at = w->previousInFocusChain(); at && at != w; at = at->previousInFocusChain()) {
        if ((at->focusPolicy() & Qt::TabFocus) && at->isVisibleTo(w->window())) {
            return at;
        }
    }
    return nullptr;
}

// A widget that is part of another (a combo box's or spin box's own line edit).
bool inner(QWidget* w)
{
    return qobject_cast<QComboBox*>(w->parentWidget()) || qobject_cast<QAbstractSpinBox*>(w->parentWidget());
}

} // namespace

class TestDialogKeys : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { testing::clearSettingsStore(); }

    void windows_data()
    {
        QTest::addColumn<QString>("name");
        // What Enter presses: the button that commits the dialog; in a viewer, Close (Enter
        // in the news list opens the story instead, which test_viewers covers).
        QTest::addColumn<int>("enterRole");
        const int accept = QDialogButtonBox::AcceptRole;
        const int close = QDialogButtonBox::RejectRole;
        const std::pair<const char*, int> rows[] = {{"portfolio", accept}, {"entry", accept}, {"options", accept},
                                                    {"schedule", accept},  {"modem", accept}, {"send page", accept},
                                                    {"quotes", close},     {"news", close},   {"mail", close}};
        for (const auto& [name, role] : rows) {
            QTest::newRow(name) << QString::fromLatin1(name) << role;
        }
    }

    void enterPressesTheDefault_data() { windows_data(); }
    void enterPressesTheDefault()
    {
        QFETCH(QString, name);
        QFETCH(int, enterRole);
        Windows windows;
        auto dlg = windows.make(name);
        dlg->show();
        QVERIFY(QTest::qWaitForWindowExposed(dlg.get()));
        QList<QPushButton*> defaults;
        for (QPushButton* b : dlg->findChildren<QPushButton*>()) {
            if (b->isDefault()) {
                defaults << b;
            }
        }
        QCOMPARE(defaults.size(), 1);
        auto* box = qobject_cast<QDialogButtonBox*>(defaults[0]->parentWidget());
        QVERIFY2(box, qPrintable(defaults[0]->text() + QStringLiteral(" is the default")));
        QCOMPARE(int(box->buttonRole(defaults[0])), enterRole);
    }

    // An underlined letter that reaches nothing, or two on one screenful, leave the user
    // to the mouse; so does an input field that takes no label's letter.
    void mnemonics_data() { windows_data(); }
    void mnemonics()
    {
        QFETCH(QString, name);
        Windows windows;
        auto dlg = windows.make(name);
        dlg->show();
        for (QWidget* page : screenfuls(dlg.get())) {
            std::map<QChar, QString> taken;
            QSet<QWidget*> labelled;
            QSet<QWidget*> checkBoxes;
            for (QWidget* w : dlg->findChildren<QWidget*>()) {
                if (!onScreenful(w, dlg.get(), page)) {
                    continue;
                }
                const QString text = textOf(w);
                const QChar key = gui::mnemonicOf(text);
                if (auto* label = qobject_cast<QLabel*>(w); label && !key.isNull()) {
                    QVERIFY2(label->buddy(), qPrintable(text + QStringLiteral(" has no field")));
                    labelled.insert(label->buddy());
                }
                if (auto* check = qobject_cast<QCheckBox*>(w); check && !key.isNull()) {
                    checkBoxes.insert(check);
                }
                if (key.isNull()) {
                    continue;
                }
                const auto [at, fresh] = taken.emplace(key, text);
                QVERIFY2(fresh,
                         qPrintable(at->second + QStringLiteral(" and ") + text + QStringLiteral(" share ") + key));
            }
            for (QWidget* w : dlg->findChildren<QWidget*>()) {
                // Read-only text is something to read, not a field to reach.
                auto* text = qobject_cast<QPlainTextEdit*>(w);
                if (takesInput(w) && !inner(w) && !(text && text->isReadOnly()) && onScreenful(w, dlg.get(), page)) {
                    QVERIFY2(labelled.contains(w) || checkBoxes.contains(tabStopBefore(w)),
                             qPrintable(name + QStringLiteral(": no label leads to ") + w->objectName()));
                }
            }
        }
    }

    // Tab from the first field visits every enabled field of what is shown, each once,
    // and comes back round; Escape then closes the window without saving anything.
    void tabReachesEveryField_data() { windows_data(); }
    void tabReachesEveryField()
    {
        QFETCH(QString, name);
        Windows windows;
        auto dlg = windows.make(name);
        dlg->show();
        QApplication::setActiveWindow(dlg.get());
        QVERIFY(QTest::qWaitForWindowActive(dlg.get()));
        QWidget* first = QApplication::focusWidget();
        QVERIFY2(first && dlg->isAncestorOf(first), "nothing has the focus when it opens");

        QSet<QWidget*> fields;
        for (QWidget* w : dlg->findChildren<QWidget*>()) {
            if ((takesInput(w) || qobject_cast<QAbstractButton*>(w)) && w->isVisible() && w->isEnabled() &&
                (w->focusPolicy() & Qt::TabFocus) && !inner(w)) {
                fields.insert(w);
            }
        }
        QSet<QWidget*> seen;
        QWidget* at = first;
        for (int step = 0; step < 200; ++step) {
            seen.insert(at);
            // A multi-line field takes Tab as text only when it asks to; ours pass it on.
            QTest::keyClick(at, Qt::Key_Tab);
            at = QApplication::focusWidget();
            QVERIFY(at);
            if (at == first) {
                break;
            }
        }
        QCOMPARE(at, first);
        for (QWidget* w : std::as_const(fields)) {
            // Radio buttons of one group take one Tab stop; the arrows move within it.
            if (qobject_cast<QAbstractButton*>(w) && static_cast<QAbstractButton*>(w)->autoExclusive()) {
                continue;
            }
            QVERIFY2(seen.contains(w),
                     qPrintable(name + QStringLiteral(": Tab never reaches ") + w->objectName() + u' ' + textOf(w)));
        }

        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QVERIFY(!dlg->isVisible());
    }

    // Moved and resized, closed, opened again: the same place and size.
    void placementRemembered_data() { windows_data(); }
    void placementRemembered()
    {
        QFETCH(QString, name);
        Windows windows;
        QRect left;
        {
            auto dlg = windows.make(name);
            dlg->show();
            QVERIFY(QTest::qWaitForWindowExposed(dlg.get()));
            const QSize bigger = dlg->size().expandedTo(dlg->minimumSizeHint()) + QSize(37, 23);
            dlg->setGeometry(QRect(QPoint(61, 47), bigger));
            QTRY_COMPARE(dlg->size(), bigger);
            left = dlg->geometry();
            dlg->close();
        }
        auto again = windows.make(name);
        again->show();
        QVERIFY(QTest::qWaitForWindowExposed(again.get()));
        QCOMPARE(again->geometry(), left);
    }
};

QTEST_MAIN(TestDialogKeys)
#include "test_dialogkeys.moc"
