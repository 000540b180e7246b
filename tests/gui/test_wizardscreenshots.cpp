// Pictures of the set-up assistant's pages as a person sees them (real X server under
// xvfb-run), filled in as a new user would; the README shows them. Each page must open at
// least at the size its layout needs, and no text may be cut off.
#include "DesktopRig.h"
#include "GuiRig.h"
#include "HttpPeer.h"
#include "TestUtil.h"

#include "gui/LookupLabel.h"
#include "gui/SetupWizard.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QWizard>
#include <QtTest>

using namespace kestrova;

namespace {

// A quote service in Stooq's CSV shape that knows two symbols, as the real one would
// answer them.
QByteArray answer(const QByteArray& head)
{
    QByteArray csv = "Symbol,Date,Time,Open,High,Low,Close,Volume,Name\r\n";
    const QByteArray path = head.split(' ').value(1).toLower();
    if (path.contains("ibm.us")) {
        csv += "IBM.US,2026-11-23,16:00:00,239.10,242.05,238.60,241.30,3812400,International Business Machines\r\n";
    }
    if (path.contains("msft.us")) {
        csv += "MSFT.US,2026-11-23,16:00:00,421.50,425.90,420.10,424.87,18230100,Microsoft Corporation\r\n";
    }
    if (path.contains("xyzq.us")) {
        csv += "XYZQ.US,N/D,N/D,N/D,N/D,N/D,N/D,N/D,XYZQ.US\r\n";
    }
    return testing::httpResponse(200, csv, "text/csv");
}

void writeSources(const QString& dataDir, const QString& url)
{
    QString text =
        QString::fromUtf8(testing::readFile(qEnvironmentVariable("KESTROVA_SOURCE_DIR") + "/data/sources.json"));
    text.replace(QLatin1String("https://stooq.com/q/l/"), url);
    text.replace(QRegularExpression(QStringLiteral("\"order\": \\[[^\\]]*\\]")),
                 QStringLiteral("\"order\": [\"Stooq\"]"));
    testing::writeFile(QDir(dataDir).filePath(QStringLiteral("sources.json")), text.toUtf8());
}

// No label cut off: each shows its whole text in the room it has.
void checkLabelsFit(QWidget* page)
{
    for (QLabel* l : page->findChildren<QLabel*>()) {
        if (!l->isVisible() || l->text().isEmpty() || l->wordWrap() || !l->pixmap().isNull()) {
            continue;
        }
        QVERIFY2(l->width() >= l->minimumSizeHint().width(), qPrintable(l->text() + QStringLiteral(" is cut off")));
    }
}

} // namespace

class TestWizardScreenshots : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

private Q_SLOTS:
    void initTestCase() { qputenv("HOME", m_home.path().toLocal8Bit()); }

    void pages()
    {
        testing::HttpPeer stooq(answer);
        testing::DesktopRig rig;
        writeSources(rig.dir.path(), stooq.url(QStringLiteral("/q/l/")));
        rig.window->startup();
        gui::SetupWizard w(rig.window.get(), *rig.app, rig.host);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        const QString suffix = qEnvironmentVariable("KESTROVA_SCREENSHOT_SUFFIX");

        QTest::keyClicks(w.findChild<QPlainTextEdit*>(QStringLiteral("txtSymbols")), QStringLiteral("IBM MSFT XYZQ"));
        QTRY_VERIFY(w.findChild<gui::LookupLabel*>(QStringLiteral("lookup_XYZQ")));
        QTest::keyClicks(w.findChild<QLineEdit*>(QStringLiteral("high_IBM")), QStringLiteral("250"));
        QTest::keyClicks(w.findChild<QLineEdit*>(QStringLiteral("low_IBM")), QStringLiteral("220"));
        QTest::keyClicks(w.findChild<QLineEdit*>(QStringLiteral("move_MSFT")), QStringLiteral("3"));
        QTRY_VERIFY(w.findChild<gui::LookupLabel*>(QStringLiteral("lookup_XYZQ"))->warning());
        QTRY_VERIFY(w.findChild<gui::LookupLabel*>(QStringLiteral("lookup_MSFT"))->text().endsWith(u')'));
        QTest::qWait(50);
        QVERIFY(w.size().width() >= w.minimumSizeHint().width());
        checkLabelsFit(w.currentPage());
        testing::saveScreenshot(&w, QStringLiteral("setup-watch") + suffix);

        w.next();
        testing::toggle(w.findChild<QCheckBox*>(QStringLiteral("chkEmail")));
        QTest::keyClicks(w.findChild<QLineEdit*>(QStringLiteral("smtp.recipient")), QStringLiteral("me@gmail.com"));
        // Leaving the field (xvfb has no window manager to give the window the focus).
        Q_EMIT w.findChild<QLineEdit*>(QStringLiteral("smtp.recipient"))->editingFinished();
        QTRY_COMPARE(w.findChild<QLineEdit*>(QStringLiteral("smtp.host"))->text(), QStringLiteral("smtp.gmail.com"));
        QTest::qWait(50);
        checkLabelsFit(w.currentPage());
        testing::saveScreenshot(&w, QStringLiteral("setup-notify") + suffix);

        w.next();
        QCOMPARE(w.currentId(), int(gui::SetupWizard::WhenPageId));
        QTest::qWait(50);
        checkLabelsFit(w.currentPage());
        testing::saveScreenshot(&w, QStringLiteral("setup-when") + suffix);
    }
};

QTEST_MAIN(TestWizardScreenshots)
#include "test_wizardscreenshots.moc"
