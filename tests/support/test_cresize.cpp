#include "support/CResize.h"
#include "support/VbError.h"

#include <QtTest>

using namespace kestrova::support;

namespace {

// Plain geometry in twips, as a window and its control hand it over.
struct Frame final : ResizeFrame
{
    double w = 0;
    double h = 0;
    bool minimised = false;
    double Width() const override { return w; }
    double Height() const override { return h; }
    void setWidth(double v) override
    {
        check();
        w = v;
    }
    void setHeight(double v) override
    {
        check();
        h = v;
    }
    void check() const
    {
        if (minimised) {
            throw VbError(384, QStringLiteral("A form can't be moved or sized while minimized or maximized"));
        }
    }
};

struct Control final : ResizeControl
{
    double left = 0, top = 0, width = 0, height = 0;
    double Left() const override { return left; }
    double Top() const override { return top; }
    double Width() const override { return width; }
    double Height() const override { return height; }
    void setTop(double v) override { top = v; }
    void setWidth(double v) override { width = v; }
    void setHeight(double v) override { height = v; }
};

} // namespace

class TestCResize : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void resizeCtrl_data()
    {
        // The control sits at 100,50 with 800 x 600 in a 1000 x 800 window: margins 100 and 150.
        QTest::addColumn<QString>("flags"); // W FixedWidth, H FixedHeight, R FixedToRight, B FixedToBottom, M minimised
        QTest::addColumn<QSizeF>("minimum");
        QTest::addColumn<QSizeF>("window");      // the window's size when resized
        QTest::addColumn<QSizeF>("windowAfter"); // after the minimum was applied
        QTest::addColumn<QRectF>("control");     // left, top, width, height afterwards
        QTest::addColumn<QString>("error");

        // clang-format off
        QTest::newRow("grows with the window") << "" << QSizeF() << QSizeF(1200, 900) << QSizeF(1200, 900) << QRectF(100, 50, 1000, 700) << "";
        QTest::newRow("narrower than left + margin: width 0")
            << "" << QSizeF() << QSizeF(150, 800) << QSizeF(150, 800) << QRectF(100, 50, 0, 600) << "";
        QTest::newRow("shorter than top + margin: height 0")
            << "" << QSizeF() << QSizeF(1000, 100) << QSizeF(1000, 100) << QRectF(100, 50, 800, 0) << "";
        QTest::newRow("FixedHeight + FixedToBottom slides down")
            << "HB" << QSizeF() << QSizeF(1000, 900) << QSizeF(1000, 900) << QRectF(100, 150, 800, 600) << "";
        QTest::newRow("sliding above the window top stops at 0")
            << "HB" << QSizeF() << QSizeF(1000, 500) << QSizeF(1000, 500) << QRectF(100, 0, 800, 600) << "";
        QTest::newRow("FixedToRight changes nothing")
            << "R" << QSizeF() << QSizeF(1200, 900) << QSizeF(1200, 900) << QRectF(100, 50, 1000, 700) << "";
        QTest::newRow("FixedWidth keeps the width") << "W" << QSizeF() << QSizeF(1200, 900) << QSizeF(1200, 900) << QRectF(100, 50, 800, 700) << "";
        QTest::newRow("minimum window size") << "" << QSizeF(400, 300) << QSizeF(200, 100) << QSizeF(400, 300) << QRectF(100, 50, 200, 100) << "";
        QTest::newRow("16-bit overflow is reported, steps before it stay")
            << "" << QSizeF(500, 500) << QSizeF(400, 40000) << QSizeF(500, 40000) << QRectF(100, 50, 800, 600)
            << "CResize::ResizeCtrl: Overflow";
        QTest::newRow("minimised window cannot be sized")
            << "M" << QSizeF(400, 300) << QSizeF(200, 100) << QSizeF(200, 100) << QRectF(100, 50, 800, 600)
            << "CResize::ResizeCtrl: A form can't be moved or sized while minimized or maximized";
        // clang-format on
    }
    void resizeCtrl()
    {
        QFETCH(QString, flags);
        QFETCH(QSizeF, minimum);
        QFETCH(QSizeF, window);
        QFETCH(QSizeF, windowAfter);
        QFETCH(QRectF, control);
        QFETCH(QString, error);

        Frame frame;
        frame.w = 1000;
        frame.h = 800;
        Control ctl;
        ctl.left = 100;
        ctl.top = 50;
        ctl.width = 800;
        ctl.height = 600;
        CResize r;
        r.setFixedWidth(flags.contains(u'W'));
        r.setFixedHeight(flags.contains(u'H'));
        r.setFixedToRight(flags.contains(u'R'));
        r.setFixedToBottom(flags.contains(u'B'));
        r.setMinFrmWidth(qint16(minimum.width()));
        r.setMinFrmHeight(qint16(minimum.height()));
        r.GetPositions(frame, ctl);
        QCOMPARE(r.rightMargin(), qint16(100));
        QCOMPARE(r.bottomMargin(), qint16(150));

        frame.w = window.width();
        frame.h = window.height();
        frame.minimised = flags.contains(u'M');
        QCOMPARE(r.ResizeCtrl(frame, ctl), error);

        QCOMPARE(QSizeF(frame.w, frame.h), windowAfter);
        QCOMPARE(QRectF(ctl.left, ctl.top, ctl.width, ctl.height), control);
    }
};

QTEST_APPLESS_MAIN(TestCResize)
#include "test_cresize.moc"
