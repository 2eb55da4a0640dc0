// SPDX-License-Identifier: GPL-3.0-or-later
// Screen casts seen through the PipeWire registry graph: a capture node of the compositor or portal, linked to a
// consumer, is a recording.
#include "input/screencastgraph.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Registry ids.
constexpr std::uint32_t sessionManager = 30;
constexpr std::uint32_t compositor = 31;
constexpr std::uint32_t capture = 40;
constexpr std::uint32_t consumer = 41;
constexpr std::uint32_t castLink = 50;

} // namespace

class TestScreenCast final : public QObject
{
    Q_OBJECT

private slots:
    void graph_data();
    void graph();
};

void TestScreenCast::graph_data()
{
    QTest::addColumn<QString>("nodeName");
    QTest::addColumn<QString>("mediaClass");
    QTest::addColumn<std::uint32_t>("client");
    QTest::addColumn<bool>("linked");
    QTest::addColumn<std::uint32_t>("removed");
    QTest::addColumn<bool>("casting");

    const QString cast = u"Stream/Output/Video"_s;
    QTest::newRow("GNOME or KDE screen cast, read") << u"gnome-shell"_s << cast << compositor << true << 0u << true;
    QTest::newRow("screen cast session nobody reads") << u"gnome-shell"_s << cast << compositor << false << 0u << false;
    QTest::newRow("screen cast whose link went") << u"gnome-shell"_s << cast << compositor << true << castLink << false;
    QTest::newRow("screen cast whose node went") << u"gnome-shell"_s << cast << compositor << true << capture << false;
    QTest::newRow("wlroots portal source, read")
        << u"xdg-desktop-portal-wlr"_s << u"Video/Source"_s << compositor << true << 0u << true;
    QTest::newRow("camera by its device name")
        << u"v4l2_input.pci-0000_00_14.0-usb-0_1_1.0"_s << u"Video/Source"_s << compositor << true << 0u << false;
    QTest::newRow("camera by the session manager")
        << u"Integrated Camera"_s << u"Video/Source"_s << sessionManager << true << 0u << false;
    QTest::newRow("a recorder's own capture stream")
        << u"obs"_s << u"Stream/Input/Video"_s << compositor << true << 0u << false;
    QTest::newRow("audio") << u"Firefox"_s << u"Stream/Output/Audio"_s << compositor << true << 0u << false;
}

void TestScreenCast::graph()
{
    QFETCH(QString, nodeName);
    QFETCH(QString, mediaClass);
    QFETCH(std::uint32_t, client);
    QFETCH(bool, linked);
    QFETCH(std::uint32_t, removed);
    QFETCH(bool, casting);

    ScreenCastGraph graph;
    graph.addClient(sessionManager, "WirePlumber");
    graph.addClient(compositor, "gnome-shell");
    graph.addNode(capture, client, nodeName.toStdString(), mediaClass.toStdString());
    graph.addNode(consumer, compositor, "obs", "Stream/Input/Video");
    if (linked)
        graph.addLink(castLink, capture, consumer);
    if (removed != 0)
        graph.remove(removed);
    QCOMPARE(graph.isCasting(), casting);
}

QTEST_GUILESS_MAIN(TestScreenCast)
#include "testscreencast.moc"
