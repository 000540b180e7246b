// The portfolio editor and the entry form, driven through their widgets.
#include "GuiRig.h"

#include "core/PortfolioEntries.h"
#include "core/PortfolioFile.h"
#include "core/Quote.h"
#include "gui/PortfolioDialog.h"
#include "gui/SecurityDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QtTest>

using namespace kestrova;
using testing::child;
using testing::GuiRig;
using testing::onModal;
using testing::retype;

namespace {

// Fills the entry form the way a person does: type, a choice by arrow keys, ticks.
void fillIbmOption(gui::SecurityDialog* form)
{
    auto* type = child<QComboBox>(form, "cboType");
    type->setFocus();
    QTest::keyClick(type, Qt::Key_Down); // Stock -> Option
    retype(form, "txtTicker", QStringLiteral("IBM 250117C00150000"));
    retype(form, "txtName", QStringLiteral("IBM Jan 150 call"));
    auto* server = child<QComboBox>(form, "cboServer");
    server->setFocus();
    QTest::keyClick(server, Qt::Key_End); // the last service: the demo market
    auto* digits = child<QSpinBox>(form, "spnDigits");
    digits->setFocus();
    digits->selectAll();
    QTest::keyClicks(digits, QStringLiteral("3"));
    retype(form, "txtShares", QStringLiteral("1,500"));
    retype(form, "txtCostBasis", QStringLiteral("2.3125"));
    retype(form, "txtHighLimit", QStringLiteral("4.5"));
    retype(form, "txtLowLimit", QStringLiteral("1.25"));
    retype(form, "txtHighChg", QStringLiteral("12.5"));
    retype(form, "txtLowChg", QStringLiteral("-7.5"));
    retype(form, "txtVolume", QStringLiteral("250000"));
    testing::toggle(child<QCheckBox>(form, "chkMarketOnly"));
    testing::toggle(child<QCheckBox>(form, "chkNews")); // news off
}

core::PortfolioRecord expectedIbmOption()
{
    core::PortfolioRecord r;
    r.ticker = QStringLiteral("IBM 250117C00150000");
    r.name = QStringLiteral("IBM Jan 150 call");
    r.securityType = 1;
    r.server = 12;
    r.digits = 3;
    r.shares = 1500;
    r.costBasis = support::Currency::fromTicks(23125);
    r.highLimit = 4.5f;
    r.lowLimit = 1.25f;
    r.highChgLimit = 12.5f;
    r.lowChgLimit = -7.5f;
    r.volumeLimit = 250000;
    r.toPager = 1;
    r.marketOnly = 1;
    r.news = 0;
    return r;
}

// Field by field, so a failure says which one differs.
void compareRecord(const core::PortfolioRecord& a, const core::PortfolioRecord& b)
{
    QCOMPARE(a.ticker, b.ticker);
    QCOMPARE(a.name, b.name);
    QCOMPARE(a.securityType, b.securityType);
    QCOMPARE(a.legacyOption, b.legacyOption);
    QCOMPARE(a.server, b.server);
    QCOMPARE(a.digits, b.digits);
    QCOMPARE(a.shares, b.shares);
    QCOMPARE(a.costBasis.ticks(), b.costBasis.ticks());
    QCOMPARE(a.highLimit, b.highLimit);
    QCOMPARE(a.lowLimit, b.lowLimit);
    QCOMPARE(a.highChgLimit, b.highChgLimit);
    QCOMPARE(a.lowChgLimit, b.lowChgLimit);
    QCOMPARE(a.volumeLimit, b.volumeLimit);
    QCOMPARE(a.toPager, b.toPager);
    QCOMPARE(a.marketOnly, b.marketOnly);
    QCOMPARE(a.news, b.news);
    QVERIFY(a == b);
}

void clickOk(QDialog* dialog)
{
    auto* box = dialog->findChild<QDialogButtonBox*>();
    QPushButton* ok =
        box->button(QDialogButtonBox::Ok) ? box->button(QDialogButtonBox::Ok) : box->button(QDialogButtonBox::Save);
    QTest::mouseClick(ok, Qt::LeftButton);
}

} // namespace

class TestPortfolioDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { testing::clearSettingsStore(); }

    void entryAddedSavedReopenedIdentical()
    {
        GuiRig rig;
        rig.start();
        gui::PortfolioDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        auto filled = onModal<gui::SecurityDialog>([](gui::SecurityDialog* form) {
            fillIbmOption(form);
            clickOk(form);
        });
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdAdd"), Qt::LeftButton);
        QVERIFY(*filled);
        QCOMPARE(dlg.list()->rowCount(), 1);
        QCOMPARE(dlg.list()->item(0, 0)->text(), QStringLiteral("IBM 250117C00150000"));
        QCOMPARE(dlg.list()->item(0, 5)->text(), QStringLiteral("4.500"));
        QCOMPARE(rig.app->state().portfolio.count, qint16(0)); // nothing reaches the engine before Save
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdSave"), Qt::LeftButton);
        QCOMPARE(dlg.result(), int(QDialog::Accepted));
        QVERIFY(rig.app->state().fileModified);
        QCOMPARE(rig.app->state().portfolio.count, qint16(1));
        compareRecord(rig.app->state().portfolio.records[0], expectedIbmOption());

        const QString file = rig.path(QStringLiteral("mine.pgr"));
        QVERIFY(rig.app->saveAs(file));

        // A second program start with that file shows the same entry in the same form.
        GuiRig again;
        again.start(file);
        QCOMPARE(again.app->state().portfolio.count, qint16(1));
        compareRecord(again.app->state().portfolio.records[0], expectedIbmOption());
        gui::PortfolioDialog reopened(nullptr, *again.app, again.host);
        reopened.show();
        QStringList shown;
        auto looked = onModal<gui::SecurityDialog>([&shown](gui::SecurityDialog* form) {
            for (const char* name : {"txtTicker", "txtName", "txtShares", "txtCostBasis", "txtHighLimit", "txtLowLimit",
                                     "txtHighChg", "txtLowChg", "txtVolume"}) {
                shown << child<QLineEdit>(form, name)->text();
            }
            shown << child<QComboBox>(form, "cboType")->currentText()
                  << QString::number(child<QSpinBox>(form, "spnDigits")->value());
            QTest::keyClick(form, Qt::Key_Escape);
        });
        reopened.list()->setFocus();
        QTest::keyClick(reopened.list(), Qt::Key_Return); // Enter in the list edits the entry
        QVERIFY(*looked);
        QCOMPARE(shown, (QStringList{"IBM 250117C00150000", "IBM Jan 150 call", "1500", "2.3125", "4.5", "1.25", "12.5",
                                     "-7.5", "250000", "Option", "3"}));
        QVERIFY(!again.app->state().fileModified);
    }

    void badFieldKeepsFormOpen_data()
    {
        QTest::addColumn<QByteArray>("field");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("message");
        // clang-format off
        QTest::newRow("symbol too long") << QByteArray("txtTicker") << QString(22, u'Q') << "Ticker: holds at most 21 characters";
        QTest::newRow("price not a number") << QByteArray("txtHighLimit") << "12,5a" << "High Limit: \"12,5a\" is not a number.";
        QTest::newRow("negative shares") << QByteArray("txtShares") << "-3" << "Shares: may not be negative.";
        QTest::newRow("volume with decimals") << QByteArray("txtVolume") << "10.5" << "Volume Limit: enter a whole number of shares.";
        QTest::newRow("ticker already there") << QByteArray("txtTicker") << " msft" << "msft is already in the portfolio.";
        // clang-format on
    }
    void badFieldKeepsFormOpen()
    {
        QFETCH(QByteArray, field);
        QFETCH(QString, typed);
        QFETCH(QString, message);
        GuiRig rig;
        rig.start();
        core::PortfolioRecord msft;
        msft.ticker = QStringLiteral("MSFT");
        QCOMPARE(core::addEntry(rig.app->state().portfolio, msft), QString());
        const core::PortfolioTable before = rig.app->state().portfolio;

        gui::PortfolioDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        bool stayedOpen = false;
        QString focused;
        auto acted = onModal<gui::SecurityDialog>([&](gui::SecurityDialog* form) {
            retype(form, "txtTicker", QStringLiteral("AAPL"));
            retype(form, field.constData(), typed);
            form->findChild<QLineEdit*>(QStringLiteral("txtName"))->setFocus();
            clickOk(form);
            stayedOpen = form->isVisible();
            focused = form->focusWidget() ? form->focusWidget()->objectName() : QString();
            QTest::mouseClick(form->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Cancel), Qt::LeftButton);
        });
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdAdd"), Qt::LeftButton);
        QVERIFY(*acted);
        QVERIFY(stayedOpen);
        QCOMPARE(rig.host.shownMessages, QStringList{message});
        QCOMPARE(focused, QString::fromLatin1(field)); // the field at fault has the focus
        QCOMPARE(dlg.list()->rowCount(), 1);
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdSave"), Qt::LeftButton);
        QCOMPARE(rig.app->state().portfolio.count, before.count);
        QVERIFY(rig.app->state().portfolio.records[0] == before.records[0]);
        QVERIFY(!rig.app->state().fileModified);
    }

    void fiftyFirstEntryRefused()
    {
        GuiRig rig;
        rig.start();
        core::PortfolioRecord r;
        for (int i = 0; i < core::PortfolioTable::kMaxInUse; ++i) {
            r.ticker = QStringLiteral("T%1").arg(i);
            QCOMPARE(core::addEntry(rig.app->state().portfolio, r), QString());
        }
        gui::PortfolioDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        QCOMPARE(child<QLabel>(&dlg, "lblCount")->text(), QStringLiteral("50 of 50 entries"));
        dlg.list()->setFocus();
        QTest::keyClick(dlg.list(), Qt::Key_Insert); // the keyboard's way to Add
        QCOMPARE(rig.host.shownMessages, QStringList{QStringLiteral("Too Many Tickers (50 Max)")});
        QVERIFY(!QApplication::activeModalWidget());
        QCOMPARE(dlg.list()->rowCount(), 50);
    }

    void removeMoveAndCancel()
    {
        GuiRig rig;
        rig.start();
        core::PortfolioRecord r;
        for (const char* t : {"A", "B", "C"}) {
            r.ticker = QString::fromLatin1(t);
            core::addEntry(rig.app->state().portfolio, r);
        }
        const core::PortfolioTable before = rig.app->state().portfolio;
        gui::PortfolioDialog dlg(nullptr, *rig.app, rig.host);
        dlg.show();
        dlg.list()->setFocus();
        QTest::keyClick(dlg.list(), Qt::Key_Down); // select B
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdUp"), Qt::LeftButton);
        QCOMPARE(dlg.table().records[0].ticker, QStringLiteral("B"));
        QTest::mouseClick(child<QPushButton>(&dlg, "cmdRemove"), Qt::LeftButton);
        QCOMPARE(dlg.table().count, qint16(2));
        QCOMPARE(dlg.list()->item(0, 0)->text(), QStringLiteral("A"));
        QTest::keyClick(&dlg, Qt::Key_Escape);
        QCOMPARE(dlg.result(), int(QDialog::Rejected));
        QCOMPARE(rig.app->state().portfolio.count, qint16(3));
        QCOMPARE(rig.app->state().portfolio.records[1].ticker, QStringLiteral("B"));
        QVERIFY(!rig.app->state().fileModified);
    }

    void holdingFiguresFollowTheTyping()
    {
        GuiRig rig;
        rig.start();
        auto quote = std::make_shared<core::Quote>();
        quote->setTicker(QStringLiteral("IBM"));
        quote->setDigits(2);
        quote->setLast(QStringLiteral("120"));
        rig.app->stockQuotes().Add(quote, QStringLiteral("IBM"));
        core::PortfolioTable table;
        gui::SecurityDialog form(nullptr, *rig.app, rig.host, table, -1);
        form.show();
        auto* market = child<QLabel>(&form, "lblMarketValue");
        retype(&form, "txtShares", QStringLiteral("10"));
        retype(&form, "txtCostBasis", QStringLiteral("100"));
        QCOMPARE(market->text(), QStringLiteral("no quote yet")); // no ticker typed yet
        retype(&form, "txtTicker", QStringLiteral("ibm"));
        QCOMPARE(market->text(), QStringLiteral("1,200.00"));
        QCOMPARE(child<QLabel>(&form, "lblCostValue")->text(), QStringLiteral("1,000.00"));
        QCOMPARE(child<QLabel>(&form, "lblGain")->text(), QStringLiteral("+200.00 (+20.00%)"));
        retype(&form, "txtCostBasis", QStringLiteral("abc"));
        QCOMPARE(market->text(), QStringLiteral("-"));
    }

    // The last price reads as the quote table shows prices, with the digits the form shows.
    void lastPriceAsEveryPrice_data()
    {
        QTest::addColumn<QString>("last");
        QTest::addColumn<int>("digits");
        QTest::addColumn<QString>("shown");
        QTest::newRow("a single's 149.54") << "149.54" << 2 << "149.54";
        QTest::newRow("four digits chosen") << "149.54" << 4 << "149.5400";
        QTest::newRow("no thousands comma") << "1234.5" << 2 << "1234.50";
    }
    void lastPriceAsEveryPrice()
    {
        QFETCH(QString, last);
        QFETCH(int, digits);
        QFETCH(QString, shown);
        GuiRig rig;
        rig.start();
        auto quote = std::make_shared<core::Quote>();
        quote->setTicker(QStringLiteral("IBM"));
        quote->setDigits(2);
        quote->setLast(last);
        rig.app->stockQuotes().Add(quote, QStringLiteral("IBM"));
        core::PortfolioTable table;
        gui::SecurityDialog form(nullptr, *rig.app, rig.host, table, -1);
        retype(&form, "txtTicker", QStringLiteral("IBM"));
        child<QSpinBox>(&form, "spnDigits")->setValue(digits);
        QCOMPARE(child<QLabel>(&form, "lblLastPrice")->text(), shown);
    }
};

QTEST_MAIN(TestPortfolioDialog)
#include "test_portfoliodialog.moc"
