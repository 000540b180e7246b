// Pictures of every dialog as a person sees them (real X server under xvfb-run), saved
// into the build folder; each dialog must open at least at the size its layout needs.
#include "GuiRig.h"

#include "core/PortfolioEntries.h"
#include "core/Quote.h"
#include "gui/MailViewer.h"
#include "gui/ModemDialog.h"
#include "gui/NewsViewer.h"
#include "gui/OptionsDialog.h"
#include "gui/PortfolioDialog.h"
#include "gui/QuoteViewer.h"
#include "gui/ScheduleDialog.h"
#include "gui/SecurityDialog.h"
#include "gui/SendPageDialog.h"

#include <QPlainTextEdit>
#include <QTabWidget>
#include <QtTest>

#include <map>

using namespace kestrova;
using testing::GuiRig;

namespace {

// A small setup a new user might have after a few minutes with the program.
void sampleSetup(GuiRig& rig)
{
    struct Row
    {
        const char* ticker;
        const char* name;
        qint16 type;
        const char *shares, *cost, *high, *low, *last, *change, *pct, *volume;
    };
    const Row rows[] = {
        {"IBM", "International Business Machines", 0, "100", "142.50", "180", "120", "151.25", "+7.40", "+5.14",
         "4,812,300"},
        {"VFIAX", "Vanguard 500 Index Admiral", 2, "35.5", "410", "", "380", "432.10", "-1.25", "-0.29", ""},
        {"ES Z6", "E-mini S&P 500 Dec 2026", 3, "1", "5900", "6200", "5600", "6012.75", "+18.50", "+0.31", "1,204,118"},
    };
    for (const Row& r : rows) {
        core::EntryInput in;
        in.type = r.type;
        in.ticker = QString::fromLatin1(r.ticker);
        in.name = QString::fromLatin1(r.name);
        in.shares = QString::fromLatin1(r.shares);
        in.costBasis = QString::fromLatin1(r.cost);
        in.highLimit = QString::fromLatin1(r.high);
        in.lowLimit = QString::fromLatin1(r.low);
        in.highChgLimit = QStringLiteral("5");
        in.lowChgLimit = QStringLiteral("-5");
        core::PortfolioRecord rec;
        QVERIFY(!core::parseEntry(in, rec));
        QCOMPARE(core::addEntry(rig.app->state().portfolio, rec), QString());
        auto q = std::make_shared<core::Quote>();
        q->setTicker(rec.ticker);
        q->setDigits(2);
        q->setName(rec.name);
        q->setSecurityType(rec.securityType);
        q->setShares(rec.shares);
        q->setCostBasis(rec.costBasis);
        q->setLast(QString::fromLatin1(r.last));
        q->setChange(QString::fromLatin1(r.change));
        q->setPercentChg(QString::fromLatin1(r.pct));
        q->setVolume(QString::fromLatin1(r.volume));
        q->setUpdate(QStringLiteral("4:00 pm"));
        // IBM is past its 5 % change limit, so its row shows a fired alarm.
        q->setHighChgLimit(5);
        q->setHighChgAlarm(r.type == 0);
        rig.app->stockQuotes().Add(q, rec.ticker);
    }
    testing::addStory(*rig.app, "IBM", "11/23/2026", "09:05", "IBM to buy a cloud security firm for $2.1 billion",
                      true);
    testing::addStory(*rig.app, "VFIAX", "11/20/2026", "16:30", "Index funds take in record November inflows", false);
    testing::addStory(*rig.app, "IBM", "11/19/2026", "07:45", "IBM quantum unit signs three new research partners",
                      false);
    core::MailBox& box = rig.app->state().mailBox;
    box.messageCount = 2;
    box.records[1] = {QStringLiteral("Mon, 23 Nov 2026 08:12"),
                      QStringLiteral("<a@example.com>"),
                      QStringLiteral("From: Alice Smith\r\nSubject: Lunch on Friday?\r\n"),
                      QStringLiteral("Alice Smith"),
                      QStringLiteral("Lunch on Friday?"),
                      QString(),
                      false,
                      1536};
    box.records[2] = {QStringLiteral("Mon, 23 Nov 2026 10:40"),
                      QStringLiteral("<b@example.com>"),
                      QStringLiteral("From: Broker Desk\r\n"),
                      QStringLiteral("Broker Desk"),
                      QStringLiteral("Your November statement"),
                      QStringLiteral("Your statement is ready."),
                      true,
                      40960};

    core::Options& o = rig.app->state().options;
    o.paging.enabled = true;
    o.paging.pagerId = QStringLiteral("5551234");
    o.paging.phone = QStringLiteral("1-800-555-0100");
    o.smtp.enabled = true;
    o.smtp.hostName = QStringLiteral("smtp.example.com");
    o.smtp.port = 587;
    o.smtp.security = 1;
    o.smtp.user = QStringLiteral("watcher");
    o.smtp.password = QStringLiteral("not-shown");
    o.smtp.from = QStringLiteral("kestrova@example.com");
    o.smtp.recipient = QStringLiteral("5551234@pager.example.net");
    o.push.enabled = true;
    o.push.url = QStringLiteral("https://ntfy.example.net/my-stocks");
    o.schedule.marketOpen = true;
    o.schedule.marketClose = true;
    o.schedule.interval = true;
}

void shoot(QWidget* dialog, const QString& name)
{
    dialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(dialog));
    QTest::qWait(50); // let the style finish painting
    const QSize need = dialog->minimumSizeHint();
    QVERIFY2(dialog->width() >= need.width() && dialog->height() >= need.height(), qPrintable(name));
    testing::saveScreenshot(dialog, name + qEnvironmentVariable("KESTROVA_SCREENSHOT_SUFFIX"));
}

} // namespace

class TestDialogScreenshots : public QObject
{
    Q_OBJECT

    GuiRig m_rig;

private Q_SLOTS:
    void initTestCase()
    {
        testing::clearSettingsStore();
        m_rig.start();
        sampleSetup(m_rig);
    }

    // Every dialog and viewer, and the options dialog on each of its pages.
    void dialogs_data()
    {
        QTest::addColumn<QString>("name"); // the picture's file name
        QTest::addColumn<int>("tab");      // the options dialog's page
        for (const char* name : {"portfolio-editor", "security", "schedule", "modem", "send-page", "quote-viewer",
                                 "news-viewer", "mail-viewer"}) {
            QTest::newRow(name) << QString::fromLatin1(name) << -1;
        }
        const char* const tabs[] = {"pager",           "email-paging", "push",        "mail-check", "connection",
                                    "quotes-and-news", "sources",      "serial-port", "program"};
        for (int i = 0; i < 9; ++i) {
            QTest::newRow(tabs[i]) << QStringLiteral("options-") + QLatin1String(tabs[i]) << i;
        }
    }
    void dialogs()
    {
        QFETCH(QString, name);
        QFETCH(int, tab);
        app::Application& app = *m_rig.app;
        core::PortfolioTable table = app.state().portfolio;
        core::Options edited = app.state().options;
        const std::map<QString, std::function<QDialog*()>> makers = {
            {"portfolio-editor", [&] { return new gui::PortfolioDialog(nullptr, app, m_rig.host); }},
            {"security", [&] { return new gui::SecurityDialog(nullptr, app, m_rig.host, table, 0); }},
            {"schedule", [&] { return new gui::ScheduleDialog(nullptr, app, m_rig.host); }},
            {"modem", [&] { return new gui::ModemDialog(nullptr, m_rig.host, edited, false); }},
            {"send-page", [&] { return new gui::SendPageDialog(nullptr, app, m_rig.host); }},
            {"quote-viewer", [&] { return new gui::QuoteViewer(nullptr, app); }},
            {"news-viewer", [&] { return new gui::NewsViewer(nullptr, app, m_rig.host); }},
            {"mail-viewer", [&] { return new gui::MailViewer(nullptr, app); }},
        };
        std::unique_ptr<QDialog> dlg;
        if (tab >= 0) {
            auto* options = new gui::OptionsDialog(nullptr, app, m_rig.host);
            options->tabs()->setCurrentIndex(tab);
            dlg.reset(options);
        } else {
            dlg.reset(makers.at(name)());
        }
        if (name == QLatin1String("send-page")) {
            dlg->findChild<QPlainTextEdit*>()->setPlainText(QStringLiteral("Meeting moved to 3 pm, call Sam"));
        }
        shoot(dlg.get(), name);
    }
};

QTEST_MAIN(TestDialogScreenshots)
#include "test_dialogscreenshots.moc"
