// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/linuxkeymap.h"
#include "keyboard/keyboardlayout.h"

#include <QSet>
#include <QTest>

#include <linux/input-event-codes.h>

using namespace Qt::StringLiterals;
using Kind = LinuxKeymap::Kind;

class TestLinuxKeymap final : public QObject
{
    Q_OBJECT

private slots:
    void wholeTable();
    void entries_data();
    void entries();
};

void TestLinuxKeymap::wholeTable()
{
    QSet<KeyCode> reached;
    QHash<KeyCode, int> owner;
    int modifiers = 0;
    for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
        const LinuxKeymap::Entry& entry = LinuxKeymap::lookup(code);
        // Pointer buttons are drawn on the trackpad, not the keyboard.
        if (entry.kind == Kind::none || entry.kind == Kind::pointerButton)
            continue;
        reached.insert(entry.keyCode);
        modifiers += entry.kind == Kind::modifier;
        // Right Control (62) is the one key reported that the laptop board does not draw.
        if (entry.keyCode != 62)
            QVERIFY2(allLayoutKeyCodes().contains(entry.keyCode), qPrintable(QString::number(code)));
        // Media keys deliberately share the F-key that carries their symbol; every other key has its own code.
        if (entry.kind == Kind::media)
            continue;
        QVERIFY2(!owner.contains(entry.keyCode), qPrintable(u"%1 and %2"_s.arg(owner.value(entry.keyCode)).arg(code)));
        owner.insert(entry.keyCode, code);
    }
    for (KeyCode code : allLayoutKeyCodes()) {
        if (code != touchIDKeyCode)
            QVERIFY2(reached.contains(code), qPrintable(QString::number(code)));
    }
    QCOMPARE(int(LinuxKeymap::modifierCodes().size()), modifiers);
    for (std::uint16_t code : LinuxKeymap::modifierCodes())
        QCOMPARE(int(LinuxKeymap::lookup(code).kind), int(Kind::modifier));
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
    row("The key left of 1 is the ISO section key", KEY_GRAVE, 10, Kind::ordinary);
    row("The extra ISO key beside left Shift", KEY_102ND, 50, Kind::ordinary);
    // The other modifiers are pinned down by the processor's sequences.
    row("Left Alt is left Option", KEY_LEFTALT, 58, Kind::modifier, 0x80020);
    row("Caps Lock is a kind of its own", KEY_CAPSLOCK, 57, Kind::capsLock);
    row("Rewind shows on F7 like previous", KEY_REWIND, 98, Kind::media);
    row("Pause/Break is not the media pause", KEY_PAUSE, 0, Kind::none);
    row("A code past the table is ignored", LinuxKeymap::codeCount, 0, Kind::none);
}

void TestLinuxKeymap::entries()
{
    QFETCH(int, linuxCode);
    const LinuxKeymap::Entry& entry = LinuxKeymap::lookup(linuxCode);
    QTEST(int(entry.kind), "kind");
    QTEST(int(entry.keyCode), "keyCode");
    QTEST(quint64(entry.flags), "flags");
}

QTEST_GUILESS_MAIN(TestLinuxKeymap)
#include "testlinuxkeymap.moc"
