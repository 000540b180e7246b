#include "DesktopRig.h"

#include <QDir>
#include <QPixmap>
#include <QTableView>
#include <QtTest>

using namespace kestrova;

// Pictures of the desktop program as a person sees it (a real X server under xvfb-run),
// saved into the build folder for review and for the README.
class TestScreenshot : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void mainWindowAfterDemoUpdate()
    {
        testing::DemoDesktop d;
        QVERIFY2(d.start(), qPrintable(d.why));
        testing::DesktopRig& rig = d.open();
        rig.window->show();
        QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));

        rig.window->runUpdate();
        auto* table = rig.child<QTableView>("grdQuotes");
        QVERIFY(table->model()->rowCount() > 0);
        QTest::qWait(200);

        const QString dir = qEnvironmentVariable("KESTROVA_SCREENSHOT_DIR", QDir::tempPath());
        QDir().mkpath(dir);
        const QString file = QDir(dir).filePath(QStringLiteral("main-window.png"));
        const QPixmap shot = rig.window->grab();
        QVERIFY(shot.width() >= rig.window->width() && shot.height() >= rig.window->height());
        QVERIFY(shot.save(file));
        QVERIFY(!QPixmap(file).isNull());
        qInfo("saved %s", qPrintable(file));
    }
};

QTEST_MAIN(TestScreenshot)
#include "test_screenshot.moc"
