// SPDX-License-Identifier: GPL-3.0-or-later
// Where the keyboard goes on the screens, over plain rectangles.
#include "panel/screenplacement.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace ScreenPlacement;

namespace {

constexpr double ratio = 2.5;
constexpr double minimum = 700;
constexpr double maximum = 8192;

// A laptop panel with a dock at the bottom, and a wider monitor to its right.
const QList<Screen> twoScreens { { u"eDP-1"_s, QRect(0, 0, 1280, 800), QRect(0, 0, 1280, 770) },
    { u"HDMI-1"_s, QRect(1280, 0, 1920, 1080), QRect(1280, 0, 1920, 1080) } };

} // namespace

class TestScreenPlacement final : public QObject
{
    Q_OBJECT

private slots:
    void choosingTheScreen_data()
    {
        QTest::addColumn<QString>("choice");
        QTest::addColumn<QString>("primary");
        QTest::addColumn<QPointF>("pointer");
        QTest::addColumn<QString>("current");
        QTest::addColumn<qsizetype>("shown");
        QTest::addColumn<qsizetype>("afterChange");

        const QPointF onLaptop(100, 100);
        const QPointF onMonitor(2000, 500);
        QTest::newRow("pointer") << u"pointer"_s << u"eDP-1"_s << onMonitor << u"eDP-1"_s << qsizetype(1)
                                 << qsizetype(0);
        QTest::newRow("pointer off every screen")
            << u"pointer"_s << u"eDP-1"_s << QPointF(-500, 300) << u"gone"_s << qsizetype(0) << qsizetype(0);
        QTest::newRow("primary") << u"primary"_s << u"HDMI-1"_s << onLaptop << u"eDP-1"_s << qsizetype(1)
                                 << qsizetype(1);
        QTest::newRow("primary unknown") << u"primary"_s << QString() << onMonitor << u"HDMI-1"_s << qsizetype(0)
                                         << qsizetype(0);
        QTest::newRow("named") << u"HDMI-1"_s << u"eDP-1"_s << onLaptop << u"eDP-1"_s << qsizetype(1) << qsizetype(1);
        QTest::newRow("named but missing")
            << u"DP-3"_s << u"eDP-1"_s << onMonitor << u"eDP-1"_s << qsizetype(1) << qsizetype(0);
        QTest::newRow("garbage") << u""_s << u"eDP-1"_s << onLaptop << u"gone"_s << qsizetype(0) << qsizetype(0);
    }
    void choosingTheScreen()
    {
        QFETCH(QString, choice);
        QFETCH(QString, primary);
        QFETCH(QPointF, pointer);
        QFETCH(QString, current);
        QFETCH(qsizetype, shown);
        QFETCH(qsizetype, afterChange);
        QCOMPARE(chooseScreen(twoScreens, choice, primary, pointer), shown);
        QCOMPARE(screenAfterChange(twoScreens, choice, current, primary, pointer), afterChange);
        QCOMPARE(chooseScreen({}, choice, primary, pointer), -1);
    }

    void placingOnAScreen_data()
    {
        QTest::addColumn<Place>("place");
        QTest::addColumn<QRectF>("area");
        QTest::addColumn<QRectF>("frame");

        const QRectF laptop(0, 0, 1280, 770);
        QTest::newRow("bottom centre") << Place { {}, { 0.5, 1 }, 1000 } << laptop << QRectF(140, 370, 1000, 400);
        QTest::newRow("other origin") << Place { {}, { 0, 0 }, 1000 } << QRectF(1280, 100, 1920, 980)
                                      << QRectF(1280, 100, 1000, 400);
        QTest::newRow("fractions clamped") << Place { {}, { -3, 7 }, 1000 } << laptop << QRectF(0, 370, 1000, 400);
        QTest::newRow("below minimum grows") << Place { {}, { 1, 0 }, 10 } << laptop << QRectF(580, 0, 700, 280);
        QTest::newRow("too wide shrinks")
            << Place { {}, { 0.5, 0.5 }, 900 } << QRectF(0, 0, 640, 800) << QRectF(0, 272, 640, 256);
        QTest::newRow("too tall shrinks")
            << Place { {}, { 0.5, 1 }, 1000 } << QRectF(0, 0, 3000, 300) << QRectF(1125, 0, 750, 300);
        QTest::newRow("no width") << Place { {}, { 0, 0 }, qQNaN() } << laptop << QRectF(0, 0, 700, 280);
    }
    void placingOnAScreen()
    {
        QFETCH(Place, place);
        QFETCH(QRectF, area);
        QFETCH(QRectF, frame);
        const QRectF placed = frameFor(place, area, ratio, minimum, maximum);
        QCOMPARE(placed, frame);
        QVERIFY(area.contains(placed));
    }

    void shrinksToFitAndGrowsBack()
    {
        // Kept through a small screen, the remembered width and place come back whole on a large one.
        const Place wide { u"HDMI-1"_s, { 0.25, 1 }, 1500 };
        const QRectF small(0, 0, 640, 800);
        const QRectF large(0, 0, 1920, 1080);
        const QRectF shrunk = frameFor(wide, small, ratio, minimum, maximum);
        QCOMPARE(shrunk.width(), 640.0);
        const Place kept = placeOf(shrunk, u"HDMI-1"_s, small, wide.width, wide);
        QCOMPARE(kept, wide);
        QCOMPARE(frameFor(kept, large, ratio, minimum, maximum), QRectF(105, 480, 1500, 600));
        // Where it can move, the fraction is read from the frame.
        QCOMPARE(placeOf(QRectF(105, 480, 1500, 600), u"x"_s, large, 1500, {}).position, QPointF(0.25, 1));
    }

    void setupKeyIgnoresOrder()
    {
        const QString key = setupKey(twoScreens);
        QCOMPARE(setupKey({ twoScreens[1], twoScreens[0] }), key);
        // The free area is no part of it; a screen's name, place and size are.
        QList<Screen> changed = twoScreens;
        changed[0].available = QRect(0, 30, 1280, 770);
        QCOMPARE(setupKey(changed), key);
        for (const QRect& other : { QRect(0, 0, 1920, 1080), QRect(1280, 0, 1280, 800) }) {
            changed = twoScreens;
            changed[0].geometry = other;
            QVERIFY(setupKey(changed) != key);
        }
        QVERIFY(setupKey({ twoScreens[0] }) != key);
    }

    void mapRoundTripAndBound()
    {
        PlaceMap map;
        for (int i = 0; i < maximumSetups + 3; ++i)
            map.remember(u"setup %1"_s.arg(i), Place { u"s"_s, { 0.125, 1 }, 900.5 + i });
        // Used again, the first kept becomes the newest; the three oldest went.
        map.remember(u"setup 3"_s, Place { u"t"_s, { 0, 0.75 }, 1200 });
        QCOMPARE(map.size(), maximumSetups);
        QVERIFY(!map.place(u"setup 2"_s));

        const PlaceMap read = PlaceMap::fromJson(map.toJson());
        QCOMPARE(read.setups(), map.setups());
        QCOMPARE(read.setups().last(), u"setup 3"_s);
        QCOMPARE(read.place(u"setup 3"_s), std::optional(Place { u"t"_s, { 0, 0.75 }, 1200 }));
        QCOMPARE(read.place(u"setup 18"_s), std::optional(Place { u"s"_s, { 0.125, 1 }, 918.5 }));
    }

    void garbageMaps_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("setups");
        const QString good = u"\"ok\":{\"screen\":\"A\",\"x\":0.5,\"y\":2,\"width\":900}"_s;
        QTest::newRow("empty") << QString() << QStringList();
        QTest::newRow("no json") << u"{\"ok\":{"_s << QStringList();
        QTest::newRow("an array") << u"[1,2]"_s << QStringList();
        QTest::newRow("wrong types") << u"{%1,\"a\":3,\"b\":{\"screen\":1,\"x\":0,\"y\":0,\"width\":900},"
                                        "\"c\":{\"screen\":\"A\",\"x\":\"0\",\"y\":0,\"width\":900},"
                                        "\"d\":{\"screen\":\"A\",\"x\":0,\"y\":0}}"_s.arg(good)
                                     << QStringList { u"ok"_s };
        QTest::newRow("huge numbers") << u"{%1,\"e\":{\"screen\":\"A\",\"x\":0,\"y\":0,\"width\":1e300},"
                                         "\"f\":{\"screen\":\"A\",\"x\":0,\"y\":0,\"width\":-5},"
                                         "\"g\":{\"screen\":\"A\",\"x\":1e308,\"y\":-1e308,\"width\":900,"
                                         "\"used\":1e300}}"_s.arg(good)
                                      << QStringList { u"ok"_s, u"g"_s };
        QTest::newRow("too long") << QString(2 << 20, u' ') + u"{%1}"_s.arg(good) << QStringList();
    }
    void garbageMaps()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, setups);
        const PlaceMap map = PlaceMap::fromJson(text);
        QCOMPARE(map.setups(), setups);
        // What is kept is usable as it is.
        for (const QString& setup : map.setups()) {
            const Place p = *map.place(setup);
            QVERIFY(p.position.x() >= 0 && p.position.x() <= 1 && p.position.y() >= 0 && p.position.y() <= 1);
            QVERIFY(QRectF(0, 0, 1280, 800).contains(frameFor(p, QRectF(0, 0, 1280, 800), ratio, minimum, maximum)));
        }
    }
};

QTEST_GUILESS_MAIN(TestScreenPlacement)
#include "testscreenplacement.moc"
