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

Record hello()
{
    return makeRecord(Kind::hello, 0, KeyHelperProtocol::protocolVersion);
}

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
KeyHelperBackend::Launch playing(const QString& file, std::optional<int> exitCode)
{
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
    void streamTakesRecordsCutAnywhere();
    void backendRestartsOnceThenReports();
    void backendTellsWhyTheHelperDidNotStart_data();
    void backendTellsWhyTheHelperDidNotStart();
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
    QTest::newRow("keys held at announcement") << bytes(std::vector { hello() } + announce(1, { KEY_LEFTSHIFT, KEY_A }))
                                               << QList<int> { KEY_A, KEY_LEFTSHIFT } << false;
    QTest::newRow("press, repeat, release")
        << bytes(std::vector { hello() } + announce(1) + key(1, KEY_A, 1) + key(1, KEY_A, 2) + key(1, KEY_B, 1)
               + key(1, KEY_A, 0))
        << QList<int> { KEY_B } << false;
    QTest::newRow("resync replaces the held keys")
        << bytes(std::vector { hello() } + announce(1) + key(1, KEY_A, 1) + announce(1, { KEY_C }))
        << QList<int> { KEY_C } << false;
    QTest::newRow("removal lets go of that device only")
        << bytes(std::vector { hello() } + announce(1, { KEY_A }) + announce(2, { KEY_A, KEY_B })
               + std::vector { makeRecord(Kind::removed, 2) })
        << QList<int> { KEY_A } << false;
    QTest::newRow("a removed id may come back")
        << bytes(std::vector { hello() } + announce(1) + std::vector { makeRecord(Kind::removed, 1) }
               + announce(1, { KEY_D }))
        << QList<int> { KEY_D } << false;

    // Each of these breaks the protocol after a key was made held: the stream ends and lets go of everything.
    const std::vector<Record> typing = std::vector { hello() } + announce(1, { KEY_A });
    QTest::newRow("no hello") << bytes(announce(1, { KEY_A })) << QList<int> {} << true;
    QTest::newRow("another version")
        << bytes(std::vector { makeRecord(Kind::hello, 0, 2) } + announce(1, { KEY_A })) << QList<int> {} << true;
    QTest::newRow("unknown kind") << bytes(typing + std::vector { makeRecord(Kind(99), 1) }) << QList<int> {} << true;
    QTest::newRow("reserved byte set") << bytes(typing + std::vector { Record { Kind::key, 1, 1, KEY_B, 1 } })
                                       << QList<int> {} << true;
    QTest::newRow("code out of range") << bytes(typing + key(1, 768, 1)) << QList<int> {} << true;
    QTest::newRow("value out of range") << bytes(typing + key(1, KEY_B, 3)) << QList<int> {} << true;
    QTest::newRow("device never announced") << bytes(typing + key(7, KEY_B, 1)) << QList<int> {} << true;
    QTest::newRow("state key outside a block")
        << bytes(typing + std::vector { makeRecord(Kind::stateKey, 1, KEY_B) }) << QList<int> {} << true;
    QTest::newRow("other records inside a block")
        << bytes(typing + std::vector { makeRecord(Kind::stateBegin, 1) } + key(1, KEY_B, 1)) << QList<int> {}
        << true;
    QTest::newRow("second hello") << bytes(typing + std::vector { hello() }) << QList<int> {} << true;
    std::vector<Record> many { hello() };
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
    QCOMPARE(reader.error().isEmpty(), !broken);
    reader.finish();
    QCOMPARE(heldCodes(processor), QList<int> {});
    QCOMPARE(processor.flags(), ModifierFlags(0));
}

void TestKeyHelperBackend::streamTakesRecordsCutAnywhere()
{
    const QByteArray stream
        = bytes(std::vector { hello() } + announce(3, { KEY_LEFTCTRL }, true)
            + std::vector { makeRecord(Kind::key, 3, KEY_C, 1), makeRecord(Kind::capsLockLed, 3, 0, 0) });
    for (int piece : { 1, 3, 7, 9, 13 }) {
        TestSupport::FakeInputBackend backend;
        KeyEventProcessor processor(backend);
        KeyHelperStream reader(processor);
        for (qsizetype at = 0; at < stream.size(); at += piece)
            QVERIFY(reader.feed(stream.constData() + at, std::size_t(std::min<qsizetype>(piece, stream.size() - at))));
        QCOMPARE(heldCodes(processor), (QList<int> { KEY_LEFTCTRL, KEY_C }));
        QVERIFY(!reader.capsLockOn());
        QCOMPARE(reader.deviceCount(), 1);
    }
}

void TestKeyHelperBackend::backendRestartsOnceThenReports()
{
    QTemporaryDir dir;
    const QString file = dir.filePath(u"helper.out"_s);
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    // A key still down when the helper ends.
    out.write(bytes(std::vector { hello() } + announce(1, { KEY_A })));
    out.close();

    KeyHelperBackend backend(playing(file, 0));
    QCOMPARE(backend.access(), InputBackend::Access::denied);
    QVERIFY(backend.canRequestAccess());
    QSignalSpy downs(&backend, &InputBackend::keyDown);
    QSignalSpy ups(&backend, &InputBackend::keyUp);
    QSignalSpy failed(&backend, &InputBackend::accessRequestFailed);

    backend.requestAccess();
    QCOMPARE(backend.state(), KeyHelperBackend::State::starting);
    // It runs twice (the second time as the restart), each time lighting A and letting go of it when it ends.
    QTRY_COMPARE_WITH_TIMEOUT(failed.size(), 1, 10000);
    QCOMPARE(downs.size(), 2);
    QCOMPARE(ups.size(), 2);
    QCOMPARE(backend.state(), KeyHelperBackend::State::failed);
    QCOMPARE(backend.source(), InputBackend::Source::none);
    QVERIFY(failed.at(0).at(0).toString().contains(u"stopped"_s));
    QVERIFY(backend.canRequestAccess());
    // Asked again, it gets its restart back.
    backend.requestAccess();
    QTRY_COMPARE_WITH_TIMEOUT(failed.size(), 2, 10000);
    QCOMPARE(downs.size(), 4);
}

void TestKeyHelperBackend::backendTellsWhyTheHelperDidNotStart_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("told");

    QTest::newRow("password dialog closed") << QByteArray() << 126 << u"dialog was closed"_s;
    QTest::newRow("not authorized") << QByteArray() << 127 << u"refused"_s;
    QTest::newRow("failed on its own") << QByteArray() << 1 << u"could not start"_s;
    QTest::newRow("garbage") << QByteArray("Error executing command as another user\n") << 0 << u"does not understand"_s;
    QTest::newRow("garbage after a key")
        << bytes(std::vector { hello() } + announce(1, { KEY_A })) + QByteArray(5, '\xff') + QByteArray(8, '\x7f')
        << 0 << u"does not understand"_s;
}

void TestKeyHelperBackend::backendTellsWhyTheHelperDidNotStart()
{
    QFETCH(QByteArray, output);
    QFETCH(int, exitCode);
    QFETCH(QString, told);

    QTemporaryDir dir;
    const QString file = dir.filePath(u"helper.out"_s);
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(output);
    out.close();

    KeyHelperBackend backend(playing(file, exitCode));
    QSignalSpy downs(&backend, &InputBackend::keyDown);
    QSignalSpy ups(&backend, &InputBackend::keyUp);
    QSignalSpy failed(&backend, &InputBackend::accessRequestFailed);
    backend.requestAccess();
    QTRY_COMPARE_WITH_TIMEOUT(failed.size(), 1, 10000);
    QVERIFY2(failed.at(0).at(0).toString().contains(told), qPrintable(failed.at(0).at(0).toString()));
    QCOMPARE(backend.state(), KeyHelperBackend::State::failed);
    QCOMPARE(ups.size(), downs.size());
    // Told once: nothing is retried by itself.
    QTest::qWait(200);
    QCOMPARE(failed.size(), 1);

    KeyHelperBackend missing(KeyHelperBackend::Launch { dir.filePath(u"no-such-launcher"_s), {} });
    QSignalSpy missingFailed(&missing, &InputBackend::accessRequestFailed);
    missing.requestAccess();
    QTRY_COMPARE(missingFailed.size(), 1);
    QCOMPARE(KeyHelperBackend(std::nullopt).access(), InputBackend::Access::unavailable);
}

void TestKeyHelperBackend::backendStopsTheHelperThroughItsInput()
{
    QTemporaryDir dir;
    const QString file = dir.filePath(u"helper.out"_s);
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(bytes(std::vector { hello() } + announce(1, { KEY_CAPSLOCK }, true)));
    out.close();

    KeyHelperBackend backend(playing(file, std::nullopt));
    QSignalSpy changed(&backend, &InputBackend::accessChanged);
    backend.requestAccess();
    QTRY_COMPARE(backend.access(), InputBackend::Access::granted);
    QVERIFY(backend.start());
    QCOMPARE(backend.source(), InputBackend::Source::helper);
    QVERIFY(!backend.canRequestAccess());
    QTRY_VERIFY(backend.capsLockOn());
    const qint64 pid = backend.processId();
    QVERIFY(pid > 0);

    backend.stop();
    QCOMPARE(backend.state(), KeyHelperBackend::State::idle);
    QVERIFY(!backend.capsLockOn());
    // The shell standing in for the helper ends once its input closes, as the helper does.
    QTRY_VERIFY_WITH_TIMEOUT(::kill(pid_t(pid), 0) != 0, 5000);
}

void TestKeyHelperBackend::deviceBackendUsesTheLeastPrivilege()
{
    // Readable keyboards are read directly, and the helper is never asked for.
    {
        auto* direct = new TestSupport::FakeInputBackend;
        auto* helper = new TestSupport::FakeInputBackend;
        helper->accessNow = InputBackend::Access::denied;
        helper->requestable = true;
        helper->sourceWhenRunning = InputBackend::Source::helper;
        DeviceBackend devices { std::unique_ptr<InputBackend>(direct), std::unique_ptr<InputBackend>(helper) };
        QCOMPARE(devices.access(), InputBackend::Access::granted);
        QVERIFY(!devices.canRequestAccess());
        QVERIFY(devices.start());
        QCOMPARE(devices.source(), InputBackend::Source::devices);
        QSignalSpy downs(&devices, &InputBackend::keyDown);
        emit direct->keyDown(0);
        emit helper->keyDown(1);
        // A helper allowed later does not take over from the direct reading.
        helper->grant();
        emit helper->keyDown(1);
        QCOMPARE(devices.source(), InputBackend::Source::devices);
        QCOMPARE(downs.size(), 1);
    }
    // Otherwise the helper, once the user allows it, also after start-up.
    {
        auto* direct = new TestSupport::FakeInputBackend;
        auto* helper = new TestSupport::FakeInputBackend;
        direct->accessNow = helper->accessNow = InputBackend::Access::denied;
        helper->requestable = true;
        helper->sourceWhenRunning = InputBackend::Source::helper;
        DeviceBackend devices { std::unique_ptr<InputBackend>(direct), std::unique_ptr<InputBackend>(helper) };
        QCOMPARE(devices.access(), InputBackend::Access::denied);
        QVERIFY(devices.canRequestAccess());
        QVERIFY(!devices.start());
        QCOMPARE(devices.source(), InputBackend::Source::none);
        devices.requestAccess();
        QCOMPARE(helper->requests, 1);

        QSignalSpy changed(&devices, &InputBackend::accessChanged);
        QSignalSpy downs(&devices, &InputBackend::keyDown);
        helper->grant();
        QCOMPARE(changed.size(), 1);
        QCOMPARE(devices.source(), InputBackend::Source::helper);
        QVERIFY(!devices.canRequestAccess());
        emit helper->keyDown(1);
        QCOMPARE(downs.size(), 1);
    }
    // A keyboard nobody may read and no helper to ask: unavailable, and nothing to request.
    {
        auto* direct = new TestSupport::FakeInputBackend;
        auto* helper = new TestSupport::FakeInputBackend;
        direct->accessNow = InputBackend::Access::denied;
        helper->accessNow = InputBackend::Access::unavailable;
        DeviceBackend devices { std::unique_ptr<InputBackend>(direct), std::unique_ptr<InputBackend>(helper) };
        QCOMPARE(devices.access(), InputBackend::Access::denied);
        QVERIFY(!devices.canRequestAccess());
    }
}

QTEST_GUILESS_MAIN(TestKeyHelperBackend)
#include "testkeyhelperbackend.moc"
