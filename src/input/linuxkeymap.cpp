// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/linuxkeymap.h"

#include "input/inputbackend.h"

#include <linux/input-event-codes.h>

#include <array>

namespace LinuxKeymap {

namespace {

static_assert(codeCount == KEY_CNT);

using Table = std::array<Entry, codeCount>;

constexpr Entry key(KeyCode code)
{
    return { code, Kind::ordinary, 0 };
}

constexpr Entry modifier(KeyCode code, ModifierFlags flags)
{
    return { code, Kind::modifier, flags };
}

constexpr Entry media(KeyCode code)
{
    return { code, Kind::media, 0 };
}

constexpr Entry button(PointerButton button)
{
    return { KeyCode(button), Kind::pointerButton, 0 };
}

constexpr Table buildTable()
{
    Table t {};

    t[KEY_ESC] = key(53);
    t[KEY_F1] = key(122);
    t[KEY_F2] = key(120);
    t[KEY_F3] = key(99);
    t[KEY_F4] = key(118);
    t[KEY_F5] = key(96);
    t[KEY_F6] = key(97);
    t[KEY_F7] = key(98);
    t[KEY_F8] = key(100);
    t[KEY_F9] = key(101);
    t[KEY_F10] = key(109);
    t[KEY_F11] = key(103);
    t[KEY_F12] = key(111);

    // The key left of 1 sits where ISO Mac boards have § / ±.
    t[KEY_GRAVE] = key(10);
    t[KEY_1] = key(18);
    t[KEY_2] = key(19);
    t[KEY_3] = key(20);
    t[KEY_4] = key(21);
    t[KEY_5] = key(23);
    t[KEY_6] = key(22);
    t[KEY_7] = key(26);
    t[KEY_8] = key(28);
    t[KEY_9] = key(25);
    t[KEY_0] = key(29);
    t[KEY_MINUS] = key(27);
    t[KEY_EQUAL] = key(24);
    t[KEY_BACKSPACE] = key(51);

    t[KEY_TAB] = key(48);
    t[KEY_Q] = key(12);
    t[KEY_W] = key(13);
    t[KEY_E] = key(14);
    t[KEY_R] = key(15);
    t[KEY_T] = key(17);
    t[KEY_Y] = key(16);
    t[KEY_U] = key(32);
    t[KEY_I] = key(34);
    t[KEY_O] = key(31);
    t[KEY_P] = key(35);
    t[KEY_LEFTBRACE] = key(33);
    t[KEY_RIGHTBRACE] = key(30);
    t[KEY_BACKSLASH] = key(42);

    t[KEY_CAPSLOCK] = { 57, Kind::capsLock, 0 };
    t[KEY_A] = key(0);
    t[KEY_S] = key(1);
    t[KEY_D] = key(2);
    t[KEY_F] = key(3);
    t[KEY_G] = key(5);
    t[KEY_H] = key(4);
    t[KEY_J] = key(38);
    t[KEY_K] = key(40);
    t[KEY_L] = key(37);
    t[KEY_SEMICOLON] = key(41);
    t[KEY_APOSTROPHE] = key(39);
    t[KEY_ENTER] = key(36);

    // The extra ISO key between left Shift and Z.
    t[KEY_102ND] = key(50);
    t[KEY_Z] = key(6);
    t[KEY_X] = key(7);
    t[KEY_C] = key(8);
    t[KEY_V] = key(9);
    t[KEY_B] = key(11);
    t[KEY_N] = key(45);
    t[KEY_M] = key(46);
    t[KEY_COMMA] = key(43);
    t[KEY_DOT] = key(47);
    t[KEY_SLASH] = key(44);
    t[KEY_SPACE] = key(49);

    t[KEY_LEFTSHIFT] = modifier(56, ModifierFlag::shift | ModifierFlag::leftShift);
    t[KEY_RIGHTSHIFT] = modifier(60, ModifierFlag::shift | ModifierFlag::rightShift);
    t[KEY_LEFTCTRL] = modifier(59, ModifierFlag::control | ModifierFlag::leftControl);
    // Not drawn (laptop boards have no right Control), but the monitor tracks it and the flags must carry it.
    t[KEY_RIGHTCTRL] = modifier(62, ModifierFlag::control | ModifierFlag::rightControl);
    t[KEY_LEFTALT] = modifier(58, ModifierFlag::option | ModifierFlag::leftOption);
    // AltGr on ISO boards is the same physical key.
    t[KEY_RIGHTALT] = modifier(61, ModifierFlag::option | ModifierFlag::rightOption);
    t[KEY_LEFTMETA] = modifier(55, ModifierFlag::command | ModifierFlag::leftCommand);
    t[KEY_RIGHTMETA] = modifier(54, ModifierFlag::command | ModifierFlag::rightCommand);
    // Most laptops handle fn in firmware; the few that report it do so as KEY_FN.
    t[KEY_FN] = modifier(63, ModifierFlag::function);

    t[KEY_LEFT] = key(123);
    t[KEY_RIGHT] = key(124);
    t[KEY_DOWN] = key(125);
    t[KEY_UP] = key(126);

    t[KEY_BRIGHTNESSDOWN] = media(122);
    t[KEY_BRIGHTNESSUP] = media(120);
    t[KEY_PREVIOUSSONG] = media(98);
    t[KEY_REWIND] = media(98);
    // Keyboards send play/pause as one of these depending on the HID usage; KEY_PAUSE is Pause/Break, not media.
    t[KEY_PLAYPAUSE] = media(100);
    t[KEY_PLAY] = media(100);
    t[KEY_PLAYCD] = media(100);
    t[KEY_PAUSECD] = media(100);
    t[KEY_NEXTSONG] = media(101);
    t[KEY_FASTFORWARD] = media(101);
    t[KEY_MUTE] = media(109);
    t[KEY_VOLUMEDOWN] = media(103);
    t[KEY_VOLUMEUP] = media(111);

    // Clickpads press BTN_LEFT wherever they are pushed; mice name their side buttons either way.
    t[BTN_LEFT] = button(PointerButton::left);
    t[BTN_RIGHT] = button(PointerButton::right);
    t[BTN_MIDDLE] = button(PointerButton::middle);
    t[BTN_SIDE] = button(PointerButton::back);
    t[BTN_BACK] = button(PointerButton::back);
    t[BTN_EXTRA] = button(PointerButton::forward);
    t[BTN_FORWARD] = button(PointerButton::forward);

    return t;
}

constexpr Table table = buildTable();

constexpr std::array<std::uint16_t, 9> modifiers { KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTCTRL, KEY_RIGHTCTRL,
    KEY_LEFTALT, KEY_RIGHTALT, KEY_LEFTMETA, KEY_RIGHTMETA, KEY_FN };

constexpr Entry noEntry {};

} // namespace

const Entry& lookup(int linuxCode)
{
    if (linuxCode < 0 || linuxCode >= codeCount)
        return noEntry;
    return table[linuxCode];
}

std::span<const std::uint16_t> modifierCodes()
{
    return modifiers;
}

} // namespace LinuxKeymap
