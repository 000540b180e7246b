#include "DesktopRig.h"
#include "WindowWalk.h"

#include "gui/Desktop.h"
#include "gui/TerminalWindow.h"

#include <QDir>
#include <QPixmap>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTableView>
#include <QtTest>

using namespace kestrova;

namespace {

QString screenshotDir()
{
    const QString dir = qEnvironmentVariable("KESTROVA_SCREENSHOT_DIR", QDir::tempPath());
    QDir().mkpath(dir);
    return dir;
}

QString suffix()
{
    return qEnvironmentVariable("KESTROVA_SCREENSHOT_SUFFIX");
}

// The title the X server has for a window (what the window manager draws), read with xprop.
QString shownTitle(QWidget* window)
{
    QProcess xprop;
    xprop.start(QStringLiteral("xprop"), {QStringLiteral("-id"), QString::number(window->winId()),
                                          QStringLiteral("-notype"), QStringLiteral("_NET_WM_NAME")});
    if (!xprop.waitForFinished(5000)) {
        return QStringLiteral("(xprop did not run)");
    }
    const QString out = QString::fromUtf8(xprop.readAllStandardOutput()).trimmed();
    const QRegularExpressionMatch m = QRegularExpression(QStringLiteral("^_NET_WM_NAME = \"(.*)\"$")).match(out);
    return m.hasMatch() ? m.captured(1) : out;
}

} // namespace

// Pictures of the desktop program as a person sees it (a real X server under xvfb-run),
// saved into the build folder for review and for the README.
class TestScreenshot : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { gui::setDesktopIdentity(); }

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

        // The caption names the program once, however the platform dresses titles.
        if (QStandardPaths::findExecutable(QStringLiteral("xprop")).isEmpty()) {
            QSKIP("xprop (x11-utils) is not installed");
        }
        QTRY_COMPARE(shownTitle(rig.window.get()), QStringLiteral("Kestrova - ") + d.demo.portfolioFile());

        const QString file = QDir(screenshotDir()).filePath(QStringLiteral("main-window") + suffix() + ".png");
        const QPixmap shot = rig.window->grab();
        QVERIFY(shot.width() >= rig.window->width() && shot.height() >= rig.window->height());
        QVERIFY(shot.save(file));
        QVERIFY(!QPixmap(file).isNull());
        qInfo("saved %s", qPrintable(file));
    }

    // A first start, with no setup yet: main-window-first-start.png.
    void mainWindowFirstStart()
    {
        testing::DesktopRig rig;
        rig.window->startup();
        rig.window->show();
        QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));
        QTest::qWait(100);
        QVERIFY(rig.window->grab().save(
            QDir(screenshotDir()).filePath(QStringLiteral("main-window-first-start") + suffix() + ".png")));
    }

    // The main window made as small as it goes, after an update: main-window-minimum.png.
    void mainWindowAtMinimumSize()
    {
        testing::DemoDesktop d;
        QVERIFY2(d.start(), qPrintable(d.why));
        testing::DesktopRig& rig = d.open();
        rig.window->show();
        QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));
        rig.window->runUpdate();
        rig.window->resize(rig.window->minimumSizeHint());
        QTest::qWait(300);
        qInfo("minimum %dx%d", rig.window->width(), rig.window->height());
        QVERIFY(rig.window->grab().save(
            QDir(screenshotDir()).filePath(QStringLiteral("main-window-minimum") + suffix() + ".png")));
    }

    // Every window the program opens, each page of the tabbed ones, as it first opens:
    // window-<where>.png, for a person to look over.
    void everyWindow()
    {
        testing::DemoDesktop d;
        QVERIFY2(d.start(), qPrintable(d.why));
        testing::DesktopRig& rig = d.open();
        rig.window->show();
        QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));
        rig.window->runUpdate();
        // Some traffic for the terminal window: a TAP block with its control characters.
        rig.host.terminalEcho(QStringLiteral("-->\x02"
                                             "5551234\rIBM 151.25\r\x03"
                                             "1B3\r"));
        rig.host.terminalEcho(QStringLiteral("<--:\x06\r\x1b\x04\r"));
        QStringList saved;
        testing::WindowWalk walk(*rig.window, [&](QWidget* window, const QString& where) {
            QTest::qWait(60); // the style and the charts finish painting
            // Named by the window and its page, not by its title (which may carry a port).
            const qsizetype page = where.indexOf(QStringLiteral(" / "));
            QString name = (window->objectName().isEmpty() ? where : window->objectName()) +
                           (page >= 0 ? where.mid(page) : QString());
            name = name.toLower();
            name.replace(QRegularExpression(QStringLiteral("[^a-z0-9]+")), QStringLiteral("-"));
            const QString file =
                QDir(screenshotDir()).filePath(QStringLiteral("window-") + name + suffix() + QStringLiteral(".png"));
            if (window->grab().save(file)) {
                saved << file;
            }
        });
        walk.run();
        QVERIFY(saved.size() > 10);
        qInfo("saved %lld pictures", qlonglong(saved.size()));
    }
};

QTEST_MAIN(TestScreenshot)
#include "test_screenshot.moc"
