// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/devicebackend.h"
#include "input/keyeventprocessor.h"
#include "input/keyhelperbackend.h"
#include "input/keyhelperprotocol.h"
#include "input/keyhelperstream.h"
#include "testsupport.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <linux/input.h>
#include <signal.h>

#include <vector>

using namespace Qt::StringLiterals;
using Kind = KeyHelperProtocol::Kind;
using KeyHelperProtocol::makeRecord;
using KeyHelperProtocol::Record;

namespace {

QByteArray bytes(const std::vector<Record>& records)
{
    QByteArray out(qsizetype(records.size() * KeyHelperProtocol::recordSize), Qt::Uninitialized);
    for (std::size_t i = 0; i < records.size(); ++i)
        KeyHelperProtocol::encode(records[i], out.data() + i * KeyHelperProtocol::recordSize);
    return out;
}

const Record hello = makeRecord(Kind::hello, 0, KeyHelperProtocol::protocolVersion);

/** A device announced with `held` down and the Caps Lock LED as given. */
std::vector<Record> announce(std::uint16_t device, std::vector<std::uint16_t> held = {}, bool capsLed = false)
{
    std::vector<Record> records { makeRecord(Kind::stateBegin, device) };
    for (std::uint16_t code : held)
        records.push_back(makeRecord(Kind::stateKey, device, code));
    records.push_back(makeRecord(Kind::stateEnd, device, 0, capsLed ? 1 : 0));
    return records;
}

std::vector<Record> operator+(std::vector<Record> a, const std::vector<Record>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

QList<int> heldCodes(const KeyEventProcessor& processor)
{
    QList<int> held;
    for (int code = 0; code < KeyHelperProtocol::keyCodeCount; ++code) {
        if (processor.isHeld(code))
            held.append(code);
    }
    return held;
}

/** A launcher that plays `output` as the helper would, then ends with `exitCode` (or waits for its input to close). */
KeyHelperBackend::Launch playing(const QTemporaryDir& dir, const QByteArray& output, std::optional<int> exitCode)
{
    const QString file = dir.filePath(u"helper.out"_s);
    QFile out(file);
    if (!out.open(QIODevice::WriteOnly) || out.write(output) != output.size())
        qFatal("cannot write %s", qPrintable(file));
    const QString tail = exitCode ? u"exit %1"_s.arg(*exitCode) : u"cat >/dev/null"_s;
    return { u"/bin/sh"_s, { u"-c"_s, u"cat \"$0\"; "_s + tail, file } };
}

} // namespace

class TestKeyHelperBackend : public QObject
{
    Q_OBJECT

private slots:
    void streamFollowsTheRecords_data();
    void streamFollowsTheRecords();
    void streamScrollsAndPressesButtons_data();
    void streamScrollsAndPressesButtons();
    void backendTellsWhyTheHelperEnded_data();
    void backendTellsWhyTheHelperEnded();
    void backendStopsTheHelperThroughItsInput();
    void deviceBackendUsesTheLeastPrivilege();
};

void TestKeyHelperBackend::streamFollowsTheRecords_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QList<int>>("held");
    QTest::addColumn<bool>("broken");

    const auto key = [](std::uint16_t device, std::uint16_t code, std::int16_t value) {
        return std::vector<Record> { makeRecord(Kind::key, device, code, value) };
    };
    QTest::newRow("keys held at announcement") << bytes(std::vector { hello } + announce(1, { KEY_LEFTSHIFT, KEY_A }))
                                               << QList<int> { KEY_A, KEY_LEFTSHIFT } << false;
    QTest::newRow("press, repeat, release") << bytes(
        std::vector { hello } + announce(1) + key(1, KEY_A, 1) + key(1, KEY_A, 2) + key(1, KEY_B, 1) + key(1, KEY_A, 0))
                                            << QList<int> { KEY_B } << false;
    QTest::newRow("resync replaces the held keys")
        << bytes(std::vector { hello } + announce(1) + key(1, KEY_A, 1) + announce(1, { KEY_C }))
        << QList<int> { KEY_C } << false;
    QTest::newRow("removal lets go of that device only") << bytes(std::vector { hello } + announce(1, { KEY_A })
        + announce(2, { KEY_A, KEY_B }) + std::vector { makeRecord(Kind::removed, 2) })
                                                         << QList<int> { KEY_A } << false;

    // Each of these breaks the protocol after a key was made held: the stream ends and lets go of everything.
    const std::vector<Record> typing = std::vector { hello } + announce(1, { KEY_A });
    QTest::newRow("no hello") << bytes(announce(1, { KEY_A })) << QList<int> {} << true;
    QTest::newRow("a later version") << bytes(
        std::vector { makeRecord(Kind::hello, 0, KeyHelperProtocol::protocolVersion + 1) } + announce(1, { KEY_A }))
                                     << QList<int> {} << true;
    QTest::newRow("code out of range") << bytes(typing + key(1, 768, 1)) << QList<int> {} << true;
    QTest::newRow("device never announced") << bytes(typing + key(7, KEY_B, 1)) << QList<int> {} << true;
    QTest::newRow("other records inside a block")
        << bytes(typing + std::vector { makeRecord(Kind::stateBegin, 1) } + key(1, KEY_B, 1)) << QList<int> {} << true;
    QTest::newRow("another device's state inside a block") << bytes(
        typing + announce(2) + std::vector { makeRecord(Kind::stateBegin, 1), makeRecord(Kind::stateKey, 2, KEY_B) })
                                                           << QList<int> {} << true;
    std::vector<Record> many { hello };
    for (int device = 1; device <= KeyHelperStream::maxDevices + 1; ++device)
        many = many + announce(std::uint16_t(device), { KEY_A });
    QTest::newRow("too many devices") << bytes(many) << QList<int> {} << true;
}

void TestKeyHelperBackend::streamFollowsTheRecords()
{
    QFETCH(QByteArray, stream);
    QFETCH(QList<int>, held);
    QFETCH(bool, broken);

    TestSupport::FakeInputBackend backend;
    KeyEventProcessor processor(backend);
    KeyHelperStream reader(processor);
    QCOMPARE(reader.feed(stream.constData(), std::size_t(stream.size())), !broken);
    QCOMPARE(heldCodes(processor), held);
    reader.finish();
    QCOMPARE(heldCodes(processor), QList<int> {});
    QCOMPARE(processor.flags(), ModifierFlags(0));
}

void TestKeyHelperBackend::streamScrollsAndPressesButtons_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QString>("reports");
    QTest::addColumn<bool>("broken");

    const auto scroll = [](std::uint16_t device, std::uint16_t direction) {
        return std::vector<Record> { makeRecord(Kind::scroll, device, direction) };
    };
    const std::vector<Record> mouse = std::vector { hello } + announce(1, { BTN_RIGHT });
    QTest::newRow("buttons and steps; a removed mouse lets go")
        << bytes(mouse + scroll(1, 0) + scroll(1, 3) + std::vector { makeRecord(Kind::key, 1, BTN_SIDE, 1) }
               + std::vector { makeRecord(Kind::removed, 1) })
        << u"right down, up, right, back down, right up, back up"_s << false;
    // A helper of version 1 is still read; it sends no scroll records, so one from it is garbage.
    const std::vector<Record> first { makeRecord(Kind::hello, 0, 1) };
    QTest::newRow("version 1 without scrolling")
        << bytes(first + announce(1, { BTN_LEFT })) << u"left down, left up"_s << false;
    QTest::newRow("version 1 scrolling") << bytes(first + announce(1, { BTN_LEFT }) + scroll(1, 0))
                                         << u"left down, left up"_s << true;
    QTest::newRow("direction out of range") << bytes(mouse + scroll(1, 4)) << u"right down, right up"_s << true;
}

void TestKeyHelperBackend::streamScrollsAndPressesButtons()
{
    QFETCH(QByteArray, stream);
    QFETCH(QString, reports);
    QFETCH(bool, broken);

    static const QStringList buttons { u"left"_s, u"right"_s, u"middle"_s, u"back"_s, u"forward"_s };
    static const QStringList directions { u"up"_s, u"down"_s, u"left"_s, u"right"_s };
    TestSupport::FakeInputBackend backend;
    QStringList told;
    connect(&backend, &InputBackend::pointerButton, &backend,
        [&](PointerButton b, bool down) { told << buttons.at(int(b)) + (down ? u" down"_s : u" up"_s); });
    connect(&backend, &InputBackend::scrolled, &backend, [&](ScrollDirection d) { told << directions.at(int(d)); });
    KeyEventProcessor processor(backend);
    KeyHelperStream reader(processor);
    QCOMPARE(reader.feed(stream.constData(), std::size_t(stream.size())), !broken);
    reader.finish();
    QCOMPARE(told.join(u", "_s), reports);
}

void TestKeyHelperBackend::backendTellsWhyTheHelperEnded_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("told");
    QTest::addColumn<int>("runs");

    const QByteArray keyA = bytes(std::vector { hello } + announce(1, { KEY_A }));
    QTest::newRow("password dialog closed") << QByteArray() << 126 << u"dialog was closed"_s << 1;
    QTest::newRow("not authorized") << QByteArray() << 127 << u"refused"_s << 1;
    QTest::newRow("failed on its own") << QByteArray() << 1 << u"could not start"_s << 1;
    QTest::newRow("garbage after a key") << keyA + QByteArray(8, '\x7f') << 0 << u"does not understand"_s << 1;
    // Ended after it started: restarted once, then told.
    QTest::newRow("ended with a key down") << keyA << 0 << u"stopped"_s << 2;
}

void TestKeyHelperBackend::backendTellsWhyTheHelperEnded()
{
    QFETCH(QByteArray, output);
    QFETCH(int, exitCode);
    QFETCH(QString, told);
    QFETCH(int, runs);

    QTemporaryDir dir;
    KeyHelperBackend backend(playing(dir, output, exitCode));
    QCOMPARE(backend.access(), InputBackend::Access::denied);
    QSignalSpy downs(&backend, &InputBackend::keyDown);
    QSignalSpy ups(&backend, &InputBackend::keyUp);
    QSignalSpy failed(&backend, &InputBackend::accessRequestFailed);
    for (int request = 1; request <= 2; ++request) {
        // Asked again, it gets its restart back.
        backend.requestAccess();
        QTRY_COMPARE_WITH_TIMEOUT(failed.size(), request, 10000);
        QVERIFY2(failed.last().at(0).toString().contains(told), qPrintable(failed.last().at(0).toString()));
        QCOMPARE(downs.size(), output.isEmpty() ? 0 : request * runs);
        QCOMPARE(ups.size(), downs.size());
        QCOMPARE(backend.source(), InputBackend::Source::none);
    }
    QCOMPARE(KeyHelperBackend(std::nullopt).access(), InputBackend::Access::unavailable);
}

void TestKeyHelperBackend::backendStopsTheHelperThroughItsInput()
{
    QTemporaryDir dir;
    KeyHelperBackend backend(
        playing(dir, bytes(std::vector { hello } + announce(1, { KEY_CAPSLOCK }, true)), std::nullopt));
    backend.requestAccess();
    QTRY_COMPARE(backend.access(), InputBackend::Access::granted);
    QVERIFY(backend.start());
    QTRY_VERIFY(backend.capsLockOn());
    const qint64 pid = backend.processId();

    backend.stop();
    QVERIFY(!backend.capsLockOn());
    // The shell standing in for the helper ends once its input closes, as the helper does.
    QTRY_VERIFY_WITH_TIMEOUT(::kill(pid_t(pid), 0) != 0, 5000);
}

void TestKeyHelperBackend::deviceBackendUsesTheLeastPrivilege()
{
    for (const bool readable : { true, false }) {
        auto* direct = new TestSupport::FakeInputBackend;
        auto* helper = new TestSupport::FakeInputBackend;
        direct->accessNow = readable ? InputBackend::Access::granted : InputBackend::Access::denied;
        helper->accessNow = InputBackend::Access::denied;
        helper->requestable = true;
        helper->sourceWhenRunning = InputBackend::Source::helper;
        DeviceBackend devices { std::unique_ptr<InputBackend>(direct), std::unique_ptr<InputBackend>(helper) };
        QCOMPARE(devices.canRequestAccess(), !readable);
        QCOMPARE(devices.start(), readable);
        QSignalSpy downs(&devices, &InputBackend::keyDown);
        if (!readable) {
            devices.requestAccess();
            QCOMPARE(helper->requests, 1);
        }
        // Readable keyboards are read directly, even once the helper is allowed; otherwise the helper takes over.
        helper->grant();
        emit direct->keyDown(0);
        emit helper->keyDown(1);
        QCOMPARE(devices.source(), readable ? InputBackend::Source::devices : InputBackend::Source::helper);
        QCOMPARE(downs.size(), 1);
    }
}

QTEST_GUILESS_MAIN(TestKeyHelperBackend)
#include "testkeyhelperbackend.moc"
