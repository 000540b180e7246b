// The news and mail viewers, opened through the Dialogs seam as the main window opens them.
#include "GuiRig.h"

#include "core/Quote.h"
#include "gui/Dialogs.h"
#include "gui/MailViewer.h"
#include "gui/NewsViewer.h"
#include "gui/QuoteViewer.h"

#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QTableView>
#include <QTreeWidget>
#include <QtTest>

using namespace kestrova;
using testing::addStory;
using testing::GuiRig;

namespace {

QStringList column(QTreeWidget* list, int c, bool visibleOnly = true)
{
    QStringList out;
    for (int i = 0; i < list->topLevelItemCount(); ++i) {
        if (!visibleOnly || !list->topLevelItem(i)->isHidden()) {
            out << list->topLevelItem(i)->text(c);
        }
    }
    return out;
}

// The visible window of a kind, as the main window would have opened it.
template <class T> T* topLevel()
{
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (auto* v = qobject_cast<T*>(w); v && v->isVisible()) {
            return v;
        }
    }
    return nullptr;
}

} // namespace

class TestViewers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { testing::clearSettingsStore(); }

    void newsBySecurityAndDate()
    {
        GuiRig rig;
        QVERIFY(QFile::copy(qEnvironmentVariable("KESTROVA_SOURCE_DIR") + QStringLiteral("/data/server.dat"),
                            rig.path(QStringLiteral("server.dat"))));
        rig.start();
        addStory(*rig.app, "IBM", "12/30/2025", "09:00", "IBM closes the year", false);
        addStory(*rig.app, "MSFT", "11/23/2026", "10:15", "Microsoft ships", true);
        addStory(*rig.app, "IBM", "01/02/2026", "08:30", "IBM opens the year", false);
        gui::Dialogs dialogs(nullptr, *rig.app, rig.host);
        dialogs.newsViewer();
        auto* viewer = topLevel<gui::NewsViewer>();
        QVERIFY(viewer && viewer->isVisible());
        // Newest first, by date rather than by the text of the date.
        QCOMPARE(column(viewer->list(), 3),
                 (QStringList{"Microsoft ships", "IBM opens the year", "IBM closes the year"}));
        QCOMPARE(column(viewer->list(), 5), (QStringList{"New", "", ""}));

        auto* security = viewer->findChild<QComboBox*>(QStringLiteral("cboSecurity"));
        security->setFocus();
        QTest::keyClick(security, Qt::Key_Down); // "All securities" -> IBM
        QCOMPARE(column(viewer->list(), 3), (QStringList{"IBM opens the year", "IBM closes the year"}));

        viewer->list()->setFocus();
        QTest::keyClick(viewer->list(), Qt::Key_Down);
        QTest::keyClick(viewer->list(), Qt::Key_Return);
        QCOMPARE(rig.host.openedUrls, QStringList{rig.app->newsPageUrl(QStringLiteral("IBM"))});
        QVERIFY(rig.host.openedUrls.first().endsWith(QLatin1String("IBM")));

        // An update brings another story; asking for the viewer again shows the same window.
        addStory(*rig.app, "IBM", "11/23/2026", "11:00", "IBM raises guidance", true);
        dialogs.refreshViewers();
        viewer->showMinimized();
        dialogs.newsViewer();
        QVERIFY(!viewer->isMinimized());
        QCOMPARE(column(viewer->list(), 3).first(), QStringLiteral("IBM raises guidance"));
        QCOMPARE(security->currentText(), QStringLiteral("IBM")); // the choice survives a refresh
        dialogs.closeAll();
    }

    void quotesWithEveryFieldAndAlarms()
    {
        GuiRig rig;
        rig.start();
        auto add = [&rig](const char* ticker, const char* last, float high, const char* bid) {
            auto q = std::make_shared<core::Quote>();
            q->setTicker(QString::fromLatin1(ticker));
            q->setDigits(2);
            q->setHighLimit(high);
            q->setLast(QString::fromLatin1(last));
            q->setBid(QString::fromLatin1(bid));
            q->setShares(10);
            rig.app->stockQuotes().Add(q, q->ticker());
        };
        add("IBM", "151.25", 150, "151.10");
        add("AAPL", "99.5", 0, "99.40");
        gui::Dialogs dialogs(nullptr, *rig.app, rig.host);
        dialogs.quoteViewer();
        auto* viewer = topLevel<gui::QuoteViewer>();
        QVERIFY(viewer);
        QTableView* table = viewer->table();
        QAbstractItemModel* model = table->model();
        auto columnOf = [model](const QString& title) {
            for (int c = 0; c < model->columnCount(); ++c) {
                if (model->headerData(c, Qt::Horizontal).toString() == title) {
                    return c;
                }
            }
            return -1;
        };
        for (const char* title : {"Bid", "Ask", "Prev Close", "52W High", "EPS", "P/E", "Open Int", "High Limit",
                                  "Volume Limit", "Alarm"}) {
            QVERIFY2(columnOf(QString::fromLatin1(title)) >= 0, title);
        }
        // A fired alarm shows as an icon and a word, not by colour alone.
        QCOMPARE(model->index(0, 0).data().toString(), QStringLiteral("IBM"));
        QCOMPARE(model->index(0, columnOf(QStringLiteral("Alarm"))).data().toString(), QStringLiteral("New High"));
        QVERIFY(!model->index(0, 0).data(Qt::DecorationRole).value<QIcon>().isNull());
        QVERIFY(model->index(1, 0).data(Qt::DecorationRole).isNull());
        QCOMPARE(model->index(0, columnOf(QStringLiteral("High Limit"))).data().toString(), QStringLiteral("150.00"));
        QCOMPARE(model->index(1, columnOf(QStringLiteral("High Limit"))).data().toString(), QString());
        // A volume past what can be shown reads "n/a" here as everywhere, not a grouped 0.
        rig.app->stockQuotes().Item(QStringLiteral("AAPL"))->setVolume(QStringLiteral("3000000000"));
        rig.app->stockQuotes().Item(QStringLiteral("IBM"))->setVolume(QStringLiteral("1234567"));
        QCOMPARE(model->index(1, columnOf(QStringLiteral("Volume"))).data().toString(), QStringLiteral("n/a"));
        QCOMPARE(model->index(0, columnOf(QStringLiteral("Volume"))).data().toString(), QStringLiteral("1,234,567"));

        // A click on the Bid header sorts by bid (numbers, not text).
        QHeaderView* header = table->horizontalHeader();
        const int bid = columnOf(QStringLiteral("Bid"));
        table->scrollTo(model->index(0, bid));
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          QPoint(header->sectionViewportPosition(bid) + 4, header->height() / 2));
        QCOMPARE(model->index(0, 0).data().toString(), QStringLiteral("AAPL"));

        // Its own timer picks up a new quote set; minimised, asking again restores it.
        add("MSFT", "410", 0, "409.9");
        viewer->setRefreshInterval(20);
        QTRY_COMPARE(model->rowCount(), 3);
        viewer->showMinimized();
        dialogs.quoteViewer();
        QVERIFY(!viewer->isMinimized());
        dialogs.closeAll();
    }

    void mailboxEmptyOrHeld()
    {
        GuiRig rig;
        rig.start();
        {
            // The main window answers an empty mailbox with a box; a viewer already open says it too.
            gui::MailViewer empty(nullptr, *rig.app);
            QCOMPARE(empty.findChild<QLabel*>(QStringLiteral("lblSummary"))->text(),
                     QStringLiteral("Mailbox is empty"));
            QCOMPARE(empty.list()->topLevelItemCount(), 0);
        }

        core::MailBox& box = rig.app->state().mailBox;
        box.messageCount = 2;
        box.mailWaiting = true;
        box.records[1] = {QStringLiteral(" mon, 23 nov 2026 09:12 "),
                          QStringLiteral("<a@x>"),
                          QStringLiteral("From: alice\r\nSubject: lunch\r\n"),
                          QStringLiteral("alice smith"),
                          QStringLiteral("lunch"),
                          QString(),
                          false,
                          1536};
        box.records[2] = {QStringLiteral("mon, 23 nov 2026 10:40"),
                          QStringLiteral("<b@x>"),
                          QStringLiteral("From: bob\r\n"),
                          QStringLiteral("bob"),
                          QStringLiteral("ibm alarm"),
                          QStringLiteral("The whole message"),
                          true,
                          40960};
        rig.host.shownMessages.clear();
        gui::MailViewer viewer(nullptr, *rig.app);
        viewer.show();
        QCOMPARE(column(viewer.list(), 2), (QStringList{"alice smith", "bob"}));
        QCOMPARE(column(viewer.list(), 4), (QStringList{"1.5 KB", "40.0 KB"}));
        QCOMPARE(column(viewer.list(), 5), (QStringList{"", "New"}));
        QCOMPARE(viewer.message()->toPlainText(), QStringLiteral("From: alice\nSubject: lunch\n"));
        viewer.list()->setFocus();
        QTest::keyClick(viewer.list(), Qt::Key_Down);
        QCOMPARE(viewer.message()->toPlainText(), QStringLiteral("The whole message"));
        QVERIFY(rig.host.shownMessages.isEmpty());
    }

    // The first time a viewer opens, it is as wide as its columns' contents: no column cut
    // short, none out of view. (Only the screen's own size may hold it back.)
    void columnsFitOnFirstOpen_data()
    {
        QTest::addColumn<QString>("viewer");
        QTest::newRow("quotes") << "quotes";
        QTest::newRow("news") << "news";
        QTest::newRow("mail") << "mail";
    }
    void columnsFitOnFirstOpen()
    {
        QFETCH(QString, viewer);
        testing::clearSettingsStore(); // no place remembered from an earlier opening
        GuiRig rig;
        rig.start();
        auto q = std::make_shared<core::Quote>();
        q->setTicker(QStringLiteral("VFIAX"));
        q->setName(QStringLiteral("Vanguard 500 Index Fund Admiral Shares, the whole market in one fund"));
        q->setDigits(2);
        q->setLast(QStringLiteral("432.10"));
        rig.app->stockQuotes().Add(q, QStringLiteral("VFIAX"));
        addStory(*rig.app, "IBM", "11/23/2026", "09:05",
                 "IBM agrees to buy a cloud security firm for $2.1 billion in cash, its largest purchase in five years",
                 true);
        core::MailBox& box = rig.app->state().mailBox;
        box.messageCount = 1;
        box.records[1] = {QStringLiteral("Mon, 23 Nov 2026 08:12"),
                          QStringLiteral("<a@example.com>"),
                          QStringLiteral("From: Broker Desk\r\n"),
                          QStringLiteral("Broker Desk <statements@broker.example.com>"),
                          QStringLiteral("Your November statement is ready, with the year's tax documents attached"),
                          QString(),
                          true,
                          40960};
        gui::Dialogs dialogs(nullptr, *rig.app, rig.host);
        QAbstractItemView* view = nullptr;
        QHeaderView* header = nullptr;
        if (viewer == QLatin1String("quotes")) {
            dialogs.quoteViewer();
            view = topLevel<gui::QuoteViewer>()->table();
            header = topLevel<gui::QuoteViewer>()->table()->horizontalHeader();
        } else if (viewer == QLatin1String("news")) {
            dialogs.newsViewer();
            view = topLevel<gui::NewsViewer>()->list();
            header = topLevel<gui::NewsViewer>()->list()->header();
        } else {
            dialogs.mailViewer();
            view = topLevel<gui::MailViewer>()->list();
            header = topLevel<gui::MailViewer>()->list()->header();
        }
        QVERIFY(QTest::qWaitForWindowExposed(view->window()));
        for (int c = 0; c < header->count(); ++c) {
            if (!header->isSectionHidden(c)) {
                QVERIFY2(header->sectionSize(c) >= view->sizeHintForColumn(c),
                         qPrintable(QStringLiteral("column %1: %2 < %3")
                                        .arg(c)
                                        .arg(header->sectionSize(c))
                                        .arg(view->sizeHintForColumn(c))));
            }
        }
        QVERIFY2(header->length() <= view->viewport()->width(),
                 qPrintable(QStringLiteral("%1 > %2").arg(header->length()).arg(view->viewport()->width())));
        dialogs.closeAll();
    }
};

QTEST_MAIN(TestViewers)
#include "test_viewers.moc"
