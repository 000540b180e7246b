// frmSchedule driven through its widgets: its edge cases and what reaches the options.
#include "GuiRig.h"

#include "gui/ScheduleDialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QFocusEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QtTest>

using namespace kestrova;
using testing::GuiRig;

class TestScheduleDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { testing::clearSettingsStore(); }

    void save_data()
    {
        QTest::addColumn<QStringList>("typed"); // field=text
        QTest::addColumn<QStringList>("messages");
        QTest::addColumn<bool>("saved");
        QTest::addColumn<int>("interval");
        const QString shortWarning = QStringLiteral("It is not recommended to update less than 5 minutes...");
        const QString example = QStringLiteral("Invalid Time: ex. 03:42:00 pm");
        // clang-format off
        QTest::newRow("start equal to stop") << QStringList{"mskStartTime=11:00 am", "mskStopTime=11:00 am"} << QStringList{} << true << 15;
        QTest::newRow("interval 4 after the warning") << QStringList{"txtFrequency=4"} << QStringList{shortWarning} << true << 4;
        QTest::newRow("interval 1 after the warning") << QStringList{"txtFrequency=1"} << QStringList{shortWarning} << true << 1;
        QTest::newRow("integer part of 7.9") << QStringList{"txtFrequency=7.9"} << QStringList{} << true << 7;
        QTest::newRow("start after stop") << QStringList{"mskStartTime=4:30 pm", "mskStopTime=9:00 am", "txtFrequency=3"} << QStringList{"Start time must be less than Stop time."} << false << 15;
        QTest::newRow("close time: the text right after the colon") << QStringList{"mskCloseTime=13:75 pm"} << QStringList{"Invalid Time:13:75 pm"} << false << 15;
        QTest::newRow("start time: the example") << QStringList{"mskStartTime=25:00"} << QStringList{example} << false << 15;
        QTest::newRow("open time empty") << QStringList{"mskOpenTime="} << QStringList{example} << false << 15;
        QTest::newRow("interval of no minutes") << QStringList{"txtFrequency=0"} << QStringList{"The update interval must be a number of minutes from 1 to 1440."} << false << 15;
        // clang-format on
    }
    void save()
    {
        QFETCH(QStringList, typed);
        QFETCH(QStringList, messages);
        QFETCH(bool, saved);
        QFETCH(int, interval);
        GuiRig rig;
        rig.start();
        const core::ScheduleOptions before = rig.app->state().options.schedule;
        gui::ScheduleDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        testing::toggle(dlg.findChild<QCheckBox*>(QStringLiteral("chkOther")));
        testing::toggle(dlg.findChild<QCheckBox*>(QStringLiteral("chkWednesday")));
        testing::toggle(dlg.findChild<QCheckBox*>(QStringLiteral("chkMktClose")));
        for (const QString& t : typed) {
            QVERIFY(testing::child<QLineEdit>(&dlg, t.section(u'=', 0, 0))->isEnabled());
            testing::retype(&dlg, t.section(u'=', 0, 0), t.section(u'=', 1));
        }
        QTest::mouseClick(dlg.findChild<QPushButton*>(QStringLiteral("cmdSave")), Qt::LeftButton);
        QCOMPARE(rig.host.shownMessages, messages);
        QCOMPARE(dlg.isVisible(), !saved);
        QCOMPARE(rig.app->state().fileModified, saved);
        const core::ScheduleOptions& s = rig.app->state().options.schedule;
        if (saved) {
            QVERIFY(s.interval);
            QVERIFY(!s.days[2]);
            QVERIFY(s.marketClose);
            QCOMPARE(s.intervalMinutes, qint16(interval));
            return;
        }
        // Refused: nothing of the form reached the options.
        QCOMPARE(s.interval, before.interval);
        QCOMPARE(s.days, before.days);
        QCOMPARE(s.startTime, before.startTime);
        QCOMPARE(s.intervalMinutes, before.intervalMinutes);
        QTest::keyClick(&dlg, Qt::Key_Escape);
        QCOMPARE(dlg.result(), int(QDialog::Rejected));
        QVERIFY(!rig.app->state().fileModified);
    }

    // A time field that is left with no time in it says so at once, naming the field; the
    // close-time field shows the rejected text right after the colon, the others an example.
    void timeFieldSaysSoWhenLeft_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("message"); // empty: none
        const QString example = QStringLiteral("Invalid Time: ex. 03:42:00 pm");
        // clang-format off
        QTest::newRow("start") << "mskStartTime" << "25:00" << "Start time: " + example;
        QTest::newRow("stop") << "mskStopTime" << "4:61 pm" << "Stop time: " + example;
        QTest::newRow("open") << "mskOpenTime" << "9" << "Market open time: " + example;
        QTest::newRow("midday emptied") << "mskMiddayTime" << "" << "Midday time: " + example;
        QTest::newRow("close") << "mskCloseTime" << "13:75 pm" << "Market close time: Invalid Time:13:75 pm";
        QTest::newRow("a time") << "mskStartTime" << "10:15 am" << "";
        // clang-format on
    }
    void timeFieldSaysSoWhenLeft()
    {
        QFETCH(QString, field);
        QFETCH(QString, typed);
        QFETCH(QString, message);
        GuiRig rig;
        rig.start();
        rig.app->state().options.schedule.interval = true;
        gui::ScheduleDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        auto* edit = testing::child<QLineEdit>(&dlg, field);
        testing::retype(&dlg, field, typed);
        QCOMPARE(rig.host.shownMessages, QStringList()); // nothing while typing
        // The offscreen window is never active, so leaving the field is told to it directly.
        QFocusEvent out(QEvent::FocusOut, Qt::TabFocusReason);
        QApplication::sendEvent(edit, &out);
        const QStringList expected = message.isEmpty() ? QStringList() : QStringList{message};
        QTest::qWait(50);
        QCOMPARE(rig.host.shownMessages, expected);
        // Leaving again with the same text says nothing new.
        QApplication::sendEvent(edit, &out);
        QTest::qWait(50);
        QCOMPARE(rig.host.shownMessages, expected);
    }

    void intervalSwitchEnablesItsFields()
    {
        GuiRig rig;
        rig.start();
        rig.app->state().options.schedule.interval = true;
        gui::ScheduleDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        auto* frequency = dlg.findChild<QLineEdit*>(QStringLiteral("txtFrequency"));
        QVERIFY(frequency->isEnabled());
        testing::toggle(dlg.findChild<QCheckBox*>(QStringLiteral("chkOther")));
        for (const char* name : {"txtFrequency", "mskStartTime", "mskStopTime"}) {
            QVERIFY(!dlg.findChild<QLineEdit*>(QString::fromLatin1(name))->isEnabled());
        }
        QVERIFY(dlg.findChild<QLineEdit*>(QStringLiteral("mskCloseTime"))->isEnabled());
        // Letters that cannot be part of a time never reach the field.
        auto* open = dlg.findChild<QLineEdit*>(QStringLiteral("mskOpenTime"));
        open->setFocus();
        open->selectAll();
        QTest::keyClicks(open, QStringLiteral("9x:3y0 am"));
        QCOMPARE(open->text(), QStringLiteral("9:30 am"));
    }
};

QTEST_MAIN(TestScheduleDialog)
#include "test_scheduledialog.moc"
