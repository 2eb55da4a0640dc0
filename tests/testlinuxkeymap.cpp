// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/linuxkeymap.h"

#include <QSet>
#include <QTest>

#include <linux/input-event-codes.h>

using namespace Qt::StringLiterals;
using Kind = LinuxKeymap::Kind;

class TestLinuxKeymap final : public QObject
{
    Q_OBJECT

private slots:
    void everyLayoutKeyIsReachable();
    void noTwoKeysShareACode();
    void entries_data();
    void entries();
    void modifierCodesListTheModifiers();
};

void TestLinuxKeymap::everyLayoutKeyIsReachable()
{
    QSet<KeyCode> reached;
    for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
        const LinuxKeymap::Entry& entry = LinuxKeymap::lookup(code);
        if (entry.kind == Kind::none)
            continue;
        reached.insert(entry.keyCode);
        // Right Control (62) is the one key reported that the laptop board does not draw.
        if (entry.keyCode != 62)
            QVERIFY2(keyForCode(entry.keyCode), qPrintable(QString::number(code)));
    }
    for (KeyCode code : allLayoutKeyCodes()) {
        if (code != touchIDKeyCode)
            QVERIFY2(reached.contains(code), qPrintable(QString::number(code)));
    }
}

void TestLinuxKeymap::noTwoKeysShareACode()
{
    // Media keys deliberately share the F-key that carries their symbol; every other key has its own code.
    QHash<KeyCode, int> owner;
    for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
        const LinuxKeymap::Entry& entry = LinuxKeymap::lookup(code);
        if (entry.kind == Kind::none || entry.kind == Kind::media)
            continue;
        QVERIFY2(!owner.contains(entry.keyCode), qPrintable(u"%1 and %2"_s.arg(owner.value(entry.keyCode)).arg(code)));
        owner.insert(entry.keyCode, code);
    }
}

void TestLinuxKeymap::entries_data()
{
    QTest::addColumn<int>("linuxCode");
    QTest::addColumn<int>("keyCode");
    QTest::addColumn<int>("kind");
    QTest::addColumn<quint64>("flags");

    const auto row = [](const char* name, int input, int key, Kind kind, ModifierFlags flags = 0) {
        QTest::newRow(name) << input << key << int(kind) << quint64(flags);
    };
    row("A is code 0, a real key", KEY_A, 0, Kind::ordinary);
    row("S follows A", KEY_S, 1, Kind::ordinary);
    row("Escape", KEY_ESC, 53, Kind::ordinary);
    row("F1 is an ordinary key", KEY_F1, 122, Kind::ordinary);
    row("The key left of 1 is the ISO section key", KEY_GRAVE, 10, Kind::ordinary);
    row("The extra ISO key beside left Shift", KEY_102ND, 50, Kind::ordinary);
    row("The up arrow", KEY_UP, 126, Kind::ordinary);
    row("Left Shift has the generic and the left bit", KEY_LEFTSHIFT, 56, Kind::modifier, 0x20002);
    row("Right Shift has the right bit", KEY_RIGHTSHIFT, 60, Kind::modifier, 0x20004);
    row("Left Control", KEY_LEFTCTRL, 59, Kind::modifier, 0x40001);
    row("Right Control is reported although not drawn", KEY_RIGHTCTRL, 62, Kind::modifier, 0x42000);
    row("Left Alt is left Option", KEY_LEFTALT, 58, Kind::modifier, 0x80020);
    row("AltGr is right Option", KEY_RIGHTALT, 61, Kind::modifier, 0x80040);
    row("Left Super is left Command", KEY_LEFTMETA, 55, Kind::modifier, 0x100008);
    row("Right Super is right Command", KEY_RIGHTMETA, 54, Kind::modifier, 0x100010);
    row("fn has no side bit", KEY_FN, 63, Kind::modifier, 0x800000);
    row("Caps Lock is a kind of its own", KEY_CAPSLOCK, 57, Kind::capsLock);
    row("Brightness down shows on F1", KEY_BRIGHTNESSDOWN, 122, Kind::media);
    row("Brightness up shows on F2", KEY_BRIGHTNESSUP, 120, Kind::media);
    row("Rewind shows on F7 like previous", KEY_REWIND, 98, Kind::media);
    row("Play shows on F8 like play/pause", KEY_PLAY, 100, Kind::media);
    row("Fast forward shows on F9", KEY_FASTFORWARD, 101, Kind::media);
    row("Mute shows on F10", KEY_MUTE, 109, Kind::media);
    row("Volume down shows on F11", KEY_VOLUMEDOWN, 103, Kind::media);
    row("Volume up shows on F12", KEY_VOLUMEUP, 111, Kind::media);
    row("Pause/Break is not the media pause", KEY_PAUSE, 0, Kind::none);
    row("Keypad keys are not on the board", KEY_KP1, 0, Kind::none);
    row("A negative code is ignored", -1, 0, Kind::none);
    row("A code past the table is ignored", LinuxKeymap::codeCount, 0, Kind::none);
}

void TestLinuxKeymap::entries()
{
    QFETCH(int, linuxCode);
    QFETCH(int, keyCode);
    QFETCH(int, kind);
    QFETCH(quint64, flags);
    const LinuxKeymap::Entry& entry = LinuxKeymap::lookup(linuxCode);
    QCOMPARE(int(entry.kind), kind);
    QCOMPARE(int(entry.keyCode), keyCode);
    QCOMPARE(quint64(entry.flags), flags);
}

void TestLinuxKeymap::modifierCodesListTheModifiers()
{
    int modifiers = 0;
    for (int code = 0; code < LinuxKeymap::codeCount; ++code)
        modifiers += LinuxKeymap::lookup(code).kind == Kind::modifier;
    QCOMPARE(int(LinuxKeymap::modifierCodes().size()), modifiers);
    for (std::uint16_t code : LinuxKeymap::modifierCodes())
        QCOMPARE(int(LinuxKeymap::lookup(code).kind), int(Kind::modifier));
}

QTEST_GUILESS_MAIN(TestLinuxKeymap)
#include "testlinuxkeymap.moc"
