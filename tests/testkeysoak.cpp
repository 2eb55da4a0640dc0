// SPDX-License-Identifier: GPL-3.0-or-later
// Stuck-key soak: long random key streams through the key state monitor, checked against a model of the keys that
// are physically down. First through the evdev processing with generated event streams (drops, unplugged devices,
// auto-repeat, a remapped Caps Lock), then through the X11 back end on a private Xvfb typed into with xdotool.
//
// Each run draws a seed and prints it; ORDALIS_SOAK_SEED=<n> repeats a run.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/evdeveventstream.h"
#include "input/inputbackend.h"
#include "input/keyboardmonitor.h"
#include "input/keyeventprocessor.h"
#include "input/linuxkeymap.h"
#include "input/x11backend.h"
#include "x11testsupport.h"

#include <QAbstractNativeEventFilter>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QWindow>

#include <algorithm>
#include <bitset>
#include <deque>
#include <memory>
#include <vector>

#include <linux/input.h>

using namespace Qt::StringLiterals;

namespace {

quint32 soakSeed()
{
    bool ok = false;
    const quint32 fixed = qEnvironmentVariable("ORDALIS_SOAK_SEED").toUInt(&ok);
    return ok ? fixed : QRandomGenerator::system()->generate();
}

QString keyList(const QList<KeyCode>& codes)
{
    QStringList names;
    for (KeyCode code : codes)
        names << QString::number(code);
    return names.join(u' ');
}

/** What the monitor must show for a set of physically held Linux keys, the lock state and the HyperKey settings. */
struct Expected
{
    QList<KeyCode> keys;
    ModifierFlags flags = 0;
    bool capsLockOn = false;
};

Expected expectedFor(
    const std::bitset<LinuxKeymap::codeCount>& held, bool lockOn, ModifierFlags hyperKey, bool hyperKeyShowsCapsLock)
{
    Expected expected;
    expected.capsLockOn = lockOn;
    expected.flags = lockOn ? ModifierFlag::capsLock : 0;
    KeyCodeSet shown;
    bool capsHeld = false;
    for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
        if (!held.test(code))
            continue;
        const LinuxKeymap::Entry& entry = LinuxKeymap::lookup(code);
        switch (entry.kind) {
        case LinuxKeymap::Kind::ordinary:
        case LinuxKeymap::Kind::media:
            shown.insert(entry.keyCode);
            break;
        case LinuxKeymap::Kind::modifier:
            expected.flags |= entry.flags;
            break;
        case LinuxKeymap::Kind::capsLock:
            capsHeld = true;
            break;
        case LinuxKeymap::Kind::none:
            break;
        }
    }
    for (KeyCode code : KeyboardMonitor::trackedModifierKeyCodes) {
        if (KeyboardMonitor::isModifierPressed(code, expected.flags))
            shown.insert(code);
    }
    // A plain Caps Lock shows while held. A remapped one shows either as Caps Lock, hiding the combination's keys,
    // or as the combination alone.
    if (capsHeld && (hyperKey == 0 || hyperKeyShowsCapsLock))
        shown.insert(KeyboardMonitor::capsLockKeyCode);
    if (capsHeld && hyperKey != 0 && hyperKeyShowsCapsLock) {
        for (KeyCode code : KeyboardMonitor::keyCodesForModifiers(hyperKey))
            shown.remove(code);
    }
    expected.keys = shown.toList();
    return expected;
}

/** The HyperKey settings a run switches between. */
struct HyperKeySetting
{
    ModifierFlags modifiers;
    bool showAsCapsLock;
};

constexpr ModifierFlags hyperAllGeneric
    = ModifierFlag::shift | ModifierFlag::control | ModifierFlag::option | ModifierFlag::command;
constexpr ModifierFlags hyperAllLeft = hyperAllGeneric | ModifierFlag::leftShift | ModifierFlag::leftControl
    | ModifierFlag::leftOption | ModifierFlag::leftCommand;
constexpr std::array<HyperKeySetting, 5> hyperKeySettings { {
    { 0, true },
    { hyperAllLeft, true },
    { hyperAllLeft, false },
    { hyperAllGeneric, true },
    { ModifierFlag::control | ModifierFlag::rightControl | ModifierFlag::option | ModifierFlag::rightOption, true },
} };

// ---------------------------------------------------------------------------------------------------------------
// evdev

/** Reads the lock state as the evdev back end does: lit on any keyboard still plugged in. */
class StreamBackend final : public InputBackend
{
public:
    QString name() const override { return u"soak"_s; }
    Access access() const override { return Access::granted; }
    QString accessHelp() const override { return {}; }
    bool start() override { return true; }
    void stop() override { }
    bool capsLockOn() const override { return lockReader && lockReader(); }

    std::function<bool()> lockReader;
};

/** One keyboard: what is physically down on it, and the stream that reads it. */
struct SoakDevice
{
    KeyEventProcessor::DeviceId id;
    std::unique_ptr<EvdevEventStream> stream;
    std::bitset<LinuxKeymap::codeCount> down;
};

// The keys the soak presses: letters, both Shifts and every other modifier, Caps Lock, F-keys and the media keys
// shown on the same caps, arrows.
constexpr std::array<int, 38> soakKeys { KEY_A, KEY_S, KEY_H, KEY_U, KEY_N, KEY_T, KEY_E, KEY_R, KEY_2, KEY_Z,
    KEY_SPACE, KEY_ENTER, KEY_ESC, KEY_COMMA, KEY_LEFT, KEY_UP, KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTSHIFT,
    KEY_RIGHTSHIFT, KEY_LEFTCTRL, KEY_RIGHTCTRL, KEY_LEFTALT, KEY_RIGHTALT, KEY_LEFTMETA, KEY_RIGHTMETA, KEY_FN,
    KEY_CAPSLOCK, KEY_CAPSLOCK, KEY_F1, KEY_BRIGHTNESSDOWN, KEY_F10, KEY_MUTE, KEY_F8, KEY_PLAYPAUSE, KEY_PLAY,
    KEY_VOLUMEUP, KEY_F12 };

/** The keys a remapped Caps Lock sends on a device of its own (a key remapping daemon). */
constexpr std::array<int, 4> hyperChord { KEY_LEFTCTRL, KEY_LEFTSHIFT, KEY_LEFTALT, KEY_LEFTMETA };

class EvdevSoak
{
public:
    EvdevSoak(quint32 seed, const QString& settingsPath)
        : m_random(seed)
        , m_settings(settingsPath)
    {
        m_backend.lockReader = [this] {
            return std::any_of(
                m_devices.cbegin(), m_devices.cend(), [](const auto& d) { return d->stream->capsLockLed(); });
        };
        m_processor.forwardTo(&m_backend);
        m_monitor.attach(&m_backend);
        for (int i = 0; i < 3; ++i)
            plugIn();
    }

    qint64 keyEvents() const { return m_keyEvents; }
    qint64 checks() const { return m_checks; }
    qint64 drops() const { return m_drops; }
    qint64 removals() const { return m_removals; }

    /** One burst of random activity; false (with `failure` set) when the monitor disagrees with the model after it. */
    bool burst(QString& failure)
    {
        const int actions = 1 + int(m_random.bounded(8));
        for (int i = 0; i < actions; ++i) {
            randomAction();
            // Some actions follow each other closely, others after the remapped Caps Lock's delay.
            m_clock.advance(m_random.bounded(0.08));
        }
        return check(failure);
    }

    /** Lets go of everything on every device, in random order, and checks after each release. */
    bool releaseEverything(QString& failure)
    {
        for (;;) {
            std::vector<std::pair<SoakDevice*, int>> held;
            for (const auto& device : m_devices) {
                for (int code = 0; code < LinuxKeymap::codeCount; ++code) {
                    if (device->down.test(code))
                        held.emplace_back(device.get(), code);
                }
            }
            if (held.empty())
                break;
            const auto [device, code] = held[m_random.bounded(quint32(held.size()))];
            release(*device, code);
            m_clock.advance(0.2);
            if (!check(failure))
                return false;
        }
        if (!m_monitor.pressedKeys().isEmpty() || (m_monitor.modifierFlags() & ModifierFlag::heldModifiers)) {
            failure = u"keys still shown with nothing held: %1"_s.arg(keyList(m_monitor.pressedKeys().toList()));
            return false;
        }
        return true;
    }

    /** Picks another HyperKey setting; only between bursts, with nothing held, as the settings window would. */
    void switchHyperKeySetting()
    {
        const HyperKeySetting& setting = hyperKeySettings[m_random.bounded(quint32(hyperKeySettings.size()))];
        m_settings.setValue(SettingKeys::hyperKeyModifiers(), setting.modifiers);
        m_settings.setValue(SettingKeys::hyperKeyShowAsCapsLock(), setting.showAsCapsLock);
        note(u"HyperKey %1 shown as Caps Lock %2"_s.arg(setting.modifiers, 0, 16).arg(setting.showAsCapsLock));
    }

private:
    void randomAction()
    {
        SoakDevice& device = *m_devices[m_random.bounded(quint32(m_devices.size()))];
        const quint32 roll = m_random.bounded(1000);
        if (roll < 380) {
            press(device, soakKeys[m_random.bounded(quint32(soakKeys.size()))]);
        } else if (roll < 700) {
            releaseRandom(device);
        } else if (roll < 850) {
            repeatRandom(device);
        } else if (roll < 880) {
            // A release for a key that is not down (pressed before reading started, or sent twice).
            const int code = soakKeys[m_random.bounded(quint32(soakKeys.size()))];
            if (!device.down.test(code))
                send(device, EV_KEY, code, 0);
        } else if (roll < 890) {
            // Auto-repeat of a key pressed before reading started: it is down.
            const int code = soakKeys[m_random.bounded(quint32(soakKeys.size()))];
            if (!device.down.test(code) && code != KEY_CAPSLOCK) {
                device.down.set(code);
                send(device, EV_KEY, code, 2);
            }
        } else if (roll < 930) {
            hyperChordDown();
        } else if (roll < 970) {
            dropEvents(device);
        } else if (roll < 985) {
            unplug(device);
        } else {
            if (m_devices.size() < 4)
                plugIn();
        }
    }

    void send(SoakDevice& device, int type, int code, int value)
    {
        input_event event {};
        event.type = quint16(type);
        event.code = quint16(code);
        event.value = value;
        device.stream->processEvent(event);
        if (type == EV_KEY) {
            ++m_keyEvents;
            note(u"dev %1 key %2 %3"_s.arg(device.id).arg(code).arg(value));
        } else if (type == EV_LED) {
            note(u"dev %1 led %2"_s.arg(device.id).arg(value));
        }
    }

    void frameEnd(SoakDevice& device) { send(device, EV_SYN, SYN_REPORT, 0); }

    void press(SoakDevice& device, int code)
    {
        if (device.down.test(code))
            return;
        device.down.set(code);
        // Real keyboards send the scan code first.
        if (m_random.bounded(2))
            send(device, EV_MSC, MSC_SCAN, 0x70000 + code);
        send(device, EV_KEY, code, 1);
        frameEnd(device);
        if (code == KEY_CAPSLOCK)
            toggleLock();
    }

    void release(SoakDevice& device, int code)
    {
        device.down.reset(code);
        send(device, EV_KEY, code, 0);
        frameEnd(device);
    }

    void releaseRandom(SoakDevice& device)
    {
        if (const std::optional<int> code = randomDown(device))
            release(device, *code);
    }

    void repeatRandom(SoakDevice& device)
    {
        const std::optional<int> code = randomDown(device);
        // Lock keys and modifiers do not repeat on Linux, but nothing must break if one did.
        if (!code)
            return;
        for (int n = 1 + int(m_random.bounded(6)); n > 0; --n) {
            send(device, EV_KEY, *code, 2);
            frameEnd(device);
        }
    }

    std::optional<int> randomDown(const SoakDevice& device)
    {
        std::vector<int> codes;
        for (int code : soakKeys) {
            if (device.down.test(code) && std::find(codes.begin(), codes.end(), code) == codes.end())
                codes.push_back(code);
        }
        for (int code = 0; code < LinuxKeymap::codeCount && codes.empty(); ++code) {
            if (device.down.test(code))
                codes.push_back(code);
        }
        if (codes.empty())
            return std::nullopt;
        return codes[m_random.bounded(quint32(codes.size()))];
    }

    /** The lock toggles, and the system lights or darkens the LED on every keyboard a moment later. */
    void toggleLock()
    {
        m_lockOn = !m_lockOn;
        m_clock.advance(m_random.bounded(0.02));
        for (const auto& device : m_devices) {
            send(*device, EV_LED, LED_CAPSL, m_lockOn ? 1 : 0);
            frameEnd(*device);
        }
    }

    /** Caps Lock on one keyboard, and the remapping daemon's modifiers on another, in either order. */
    void hyperChordDown()
    {
        if (m_devices.size() < 2)
            return;
        SoakDevice& physical = *m_devices[0];
        SoakDevice& remapped = *m_devices[1];
        const bool capsFirst = m_random.bounded(2);
        if (capsFirst)
            press(physical, KEY_CAPSLOCK);
        for (int code : hyperChord)
            press(remapped, code);
        if (!capsFirst)
            press(physical, KEY_CAPSLOCK);
    }

    /**
     * The kernel's buffer overflowed: events are lost until the reader catches up, then it reads the device state
     * and resynchronises.
     */
    void dropEvents(SoakDevice& device)
    {
        ++m_drops;
        send(device, EV_SYN, SYN_DROPPED, 0);
        for (int n = int(m_random.bounded(12)); n > 0; --n) {
            const int code = soakKeys[m_random.bounded(quint32(soakKeys.size()))];
            const bool down = !device.down.test(code);
            device.down.set(code, down);
            // Whatever arrives before the resynchronisation is incomplete and must not count.
            if (m_random.bounded(2))
                send(device, EV_KEY, code, down ? 1 : 0);
            if (down && code == KEY_CAPSLOCK) {
                m_lockOn = !m_lockOn;
                for (const auto& other : m_devices) {
                    if (other.get() != &device)
                        send(*other, EV_LED, LED_CAPSL, m_lockOn ? 1 : 0);
                }
            }
        }
        EvdevEventStream::DeviceState state;
        state.keys = device.down;
        state.capsLockLed = m_lockOn;
        device.stream->resync(state);
        note(u"dev %1 resync"_s.arg(device.id));
    }

    void unplug(SoakDevice& device)
    {
        ++m_removals;
        note(u"dev %1 unplugged holding %2"_s.arg(device.id).arg(device.down.count()));
        // As the back end does: out of the list first, so that its LED no longer counts, then let go of its keys.
        const auto it
            = std::find_if(m_devices.begin(), m_devices.end(), [&](const auto& d) { return d.get() == &device; });
        std::unique_ptr<SoakDevice> owned = std::move(*it);
        m_devices.erase(it);
        owned->stream->deviceRemoved();
        if (m_devices.empty())
            plugIn();
    }

    /** A keyboard appears, sometimes with keys already held on it (a modifier held while it is plugged in). */
    void plugIn()
    {
        auto device = std::make_unique<SoakDevice>();
        device->id = m_nextId++;
        device->stream = std::make_unique<EvdevEventStream>(m_processor, device->id);
        if (m_random.bounded(4) == 0) {
            const int code = soakKeys[m_random.bounded(quint32(soakKeys.size()))];
            // A Caps Lock held while plugged in does not toggle the lock.
            device->down.set(code);
        }
        note(u"dev %1 plugged in holding %2"_s.arg(device->id).arg(device->down.count()));
        m_devices.push_back(std::move(device));
        EvdevEventStream::DeviceState state;
        state.keys = m_devices.back()->down;
        state.capsLockLed = m_lockOn;
        m_devices.back()->stream->resync(state);
    }

    bool check(QString& failure)
    {
        // Lets the remapped Caps Lock's delay and the lock read after Caps Lock run.
        m_clock.advance(0.2);
        ++m_checks;
        std::bitset<LinuxKeymap::codeCount> held;
        for (const auto& device : m_devices)
            held |= device->down;
        const Expected expected
            = expectedFor(held, m_lockOn && !m_devices.empty(), m_settings.value(SettingKeys::hyperKeyModifiers()),
                m_settings.value(SettingKeys::hyperKeyShowAsCapsLock()));
        const QList<KeyCode> shown = m_monitor.pressedKeys().toList();
        if (shown == expected.keys && m_monitor.modifierFlags() == expected.flags
            && m_monitor.capsLockOn() == expected.capsLockOn)
            return true;
        failure
            = u"shown [%1] flags %2 lock %3, expected [%4] flags %5 lock %6; latest events:\n  %7"_s.arg(keyList(shown))
                  .arg(m_monitor.modifierFlags(), 0, 16)
                  .arg(m_monitor.capsLockOn())
                  .arg(keyList(expected.keys))
                  .arg(expected.flags, 0, 16)
                  .arg(expected.capsLockOn)
                  .arg(QStringList(m_recent.cbegin(), m_recent.cend()).join(u"\n  "_s));
        return false;
    }

    void note(QString line)
    {
        m_recent.push_back(std::move(line));
        if (m_recent.size() > 60)
            m_recent.pop_front();
    }

    QRandomGenerator m_random;
    SettingsStore m_settings;
    ManualClock m_clock;
    StreamBackend m_backend;
    KeyEventProcessor m_processor;
    KeyboardMonitor m_monitor { m_settings, m_clock };
    std::vector<std::unique_ptr<SoakDevice>> m_devices;
    KeyEventProcessor::DeviceId m_nextId = 1;
    bool m_lockOn = false;
    std::deque<QString> m_recent;
    qint64 m_keyEvents = 0;
    qint64 m_checks = 0;
    qint64 m_drops = 0;
    qint64 m_removals = 0;
};

// ---------------------------------------------------------------------------------------------------------------
// X11

/**
 * The keys typed, by Linux code. xdotool is given X keycodes (the Linux code plus 8) rather than keysym names: for
 * a name it presses or lets go of Shift and the like as it sees fit to produce that symbol (Super_L with Super_R for
 * Mod4, Shift around letters while Caps Lock is on), which is not what a user's keyboard does.
 */
constexpr std::array<int, 28> typedKeys { KEY_A, KEY_S, KEY_H, KEY_U, KEY_N, KEY_T, KEY_E, KEY_Z, KEY_2, KEY_MINUS,
    KEY_COMMA, KEY_SPACE, KEY_ENTER, KEY_ESC, KEY_LEFT, KEY_UP, KEY_F1, KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTSHIFT,
    KEY_RIGHTSHIFT, KEY_LEFTCTRL, KEY_RIGHTCTRL, KEY_LEFTALT, KEY_LEFTMETA, KEY_RIGHTMETA, KEY_CAPSLOCK, KEY_CAPSLOCK };

/** How xdotool is told of a key. */
QString xKeycode(int linuxCode)
{
    // Keycode 9 would read as the keysym "9".
    return linuxCode == KEY_ESC ? u"Escape"_s : QString::number(linuxCode + 8);
}

/**
 * The Caps Lock lock of XKB: a press locks it; the release unlocks it if it was already locked when the key went
 * down.
 */
struct XkbCapsLock
{
    bool on = false;
    bool unlockOnRelease = false;

    void press()
    {
        unlockOnRelease = on;
        on = true;
    }
    void release()
    {
        if (unlockOnRelease)
            on = false;
        unlockOnRelease = false;
    }
};

/**
 * Tells when the events sent so far have been handled: a property change on a window of Qt's own connection
 * arrives after every key event the server generated before it.
 */
class Marker final : public QAbstractNativeEventFilter
{
public:
    Marker()
    {
        xcb_connection_t* c = X11Test::connection();
        m_window = xcb_generate_id(c);
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(c, XCB_COPY_FROM_PARENT, m_window, X11Test::root(), 0, 0, 1, 1, 0,
            XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
        xcb_flush(c);
        qGuiApp->installNativeEventFilter(this);
    }

    ~Marker() override
    {
        qGuiApp->removeNativeEventFilter(this);
        xcb_destroy_window(X11Test::connection(), m_window);
        xcb_flush(X11Test::connection());
    }

    Q_DISABLE_COPY_MOVE(Marker)

    /** Returns once everything the server generated before now has been through Qt's event filters. */
    bool pass()
    {
        xcb_connection_t* c = X11Test::connection();
        const QByteArray value = QByteArray::number(++m_sent);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, m_window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
            quint32(value.size()), value.data());
        xcb_flush(c);
        if (!QTest::qWaitFor([this] { return m_seen == m_sent; }, X11Test::deadline))
            return false;
        // A held-back release is applied on the next turn of the event loop.
        QTest::qWait(5);
        return true;
    }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override
    {
        Q_UNUSED(eventType);
        Q_UNUSED(result);
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY
            && reinterpret_cast<const xcb_property_notify_event_t*>(event)->window == m_window)
            ++m_seen;
        return false;
    }

private:
    xcb_window_t m_window = 0;
    int m_sent = 0;
    int m_seen = 0;
};

/** A window of another client, to type into as the user types into other applications. */
class OtherWindow final
{
public:
    OtherWindow()
        : m_c(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data;
        m_window = xcb_generate_id(m_c);
        const std::uint32_t events = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE;
        xcb_create_window(m_c, XCB_COPY_FROM_PARENT, m_window, screen->root, 400, 0, 200, 200, 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_EVENT_MASK, &events);
        xcb_map_window(m_c, m_window);
        std::free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr));
    }

    ~OtherWindow() { xcb_disconnect(m_c); }

    Q_DISABLE_COPY_MOVE(OtherWindow)

    xcb_window_t window() const { return m_window; }

    /** Throws away the key events it received, so that they do not pile up. */
    void drain()
    {
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_c))
            std::free(event);
    }

private:
    xcb_connection_t* m_c;
    xcb_window_t m_window = 0;
};

void focus(xcb_window_t window)
{
    xcb_set_input_focus(X11Test::connection(), XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
    std::free(xcb_get_input_focus_reply(X11Test::connection(), xcb_get_input_focus(X11Test::connection()), nullptr));
}

} // namespace

class TestKeySoak final : public QObject
{
    Q_OBJECT

public:
    explicit TestKeySoak(bool haveServer)
        : m_haveServer(haveServer)
    {
    }

private slots:
    void initTestCase();
    void evdevStreams();
    void x11Typing();

private:
    bool m_haveServer;
    quint32 m_seed = 0;
};

void TestKeySoak::initTestCase()
{
    m_seed = soakSeed();
    qInfo("soak seed %u (repeat with ORDALIS_SOAK_SEED=%u)", m_seed, m_seed);
}

void TestKeySoak::evdevStreams()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    EvdevSoak soak(m_seed, dir.filePath(u"settings.json"_s));
    QString failure;
    qint64 bursts = 0;
    constexpr qint64 keyEvents = 120000;
    while (soak.keyEvents() < keyEvents) {
        ++bursts;
        if (!soak.burst(failure))
            QFAIL(qPrintable(u"seed %1, burst %2: %3"_s.arg(m_seed).arg(bursts).arg(failure)));
        if (bursts % 400 == 0) {
            if (!soak.releaseEverything(failure))
                QFAIL(qPrintable(u"seed %1, release after burst %2: %3"_s.arg(m_seed).arg(bursts).arg(failure)));
            soak.switchHyperKeySetting();
        }
    }
    if (!soak.releaseEverything(failure))
        QFAIL(qPrintable(u"seed %1, final release: %2"_s.arg(m_seed).arg(failure)));
    qInfo("evdev: %lld key events in %lld bursts, %lld checks, %lld drops, %lld keyboards unplugged", soak.keyEvents(),
        bursts, soak.checks(), soak.drops(), soak.removals());
}

void TestKeySoak::x11Typing()
{
    if (!m_haveServer)
        QSKIP("Xvfb is not installed or did not start");
    if (QStandardPaths::findExecutable(u"xdotool"_s).isEmpty())
        QSKIP("xdotool is not installed");

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    SettingsStore settings(dir.filePath(u"settings.json"_s));
    ManualClock clock;
    X11Backend backend;
    KeyboardMonitor monitor(settings, clock);
    monitor.attach(&backend);
    QVERIFY(monitor.start());

    // Typing goes to a window of this process half of the time: its core key events take another way through the
    // back end (auto-repeat comes as release-press pairs) than the raw events every client gets.
    QWindow own;
    own.setGeometry(0, 0, 300, 200);
    own.show();
    QVERIFY(QTest::qWaitForWindowExposed(&own));
    OtherWindow other;
    Marker marker;

    QRandomGenerator random(m_seed);
    std::bitset<LinuxKeymap::codeCount> held;
    QStringList heldSyms;
    XkbCapsLock lock { backend.capsLockOn() };
    qint64 keyEvents = 0;
    qint64 bursts = 0;
    qint64 focusChanges = 0;
    QStringList recent;

    const auto check = [&](const QString& when) {
        clock.advance(0.2);
        const Expected expected = expectedFor(held, lock.on, settings.value(SettingKeys::hyperKeyModifiers()),
            settings.value(SettingKeys::hyperKeyShowAsCapsLock()));
        const QList<KeyCode> shown = monitor.pressedKeys().toList();
        if (shown == expected.keys && monitor.modifierFlags() == expected.flags
            && monitor.capsLockOn() == expected.capsLockOn)
            return true;
        qWarning("seed %u, %s: shown [%s] flags %llx lock %d, expected [%s] flags %llx lock %d; latest batches:\n  %s",
            m_seed, qPrintable(when), qPrintable(keyList(shown)), qulonglong(monitor.modifierFlags()),
            monitor.capsLockOn(), qPrintable(keyList(expected.keys)), qulonglong(expected.flags), expected.capsLockOn,
            qPrintable(recent.join(u"\n  "_s)));
        return false;
    };
    const auto type = [&](const QStringList& words) {
        recent << words.join(u' ');
        if (recent.size() > 12)
            recent.removeFirst();
        return X11Test::xdotool(words) && marker.pass();
    };

    QElapsedTimer elapsed;
    elapsed.start();
    // Ends at the number of events, or earlier on a slow machine: it checks state, not speed.
    constexpr qint64 wantedEvents = 3000;
    constexpr qint64 budgetMs = 45000;
    while (keyEvents < wantedEvents && elapsed.elapsed() < budgetMs) {
        ++bursts;
        if (bursts % 60 == 0) {
            const HyperKeySetting& setting = hyperKeySettings[random.bounded(quint32(hyperKeySettings.size()))];
            // Changed with nothing held, as from the settings window.
            QStringList words;
            for (const QString& sym : std::as_const(heldSyms))
                words << u"keyup"_s << u"--delay"_s << u"0"_s << sym;
            keyEvents += heldSyms.size();
            if (held.test(KEY_CAPSLOCK))
                lock.release();
            held.reset();
            heldSyms.clear();
            if (!words.isEmpty())
                QVERIFY(type(words));
            QVERIFY(check(u"release before batch %1"_s.arg(bursts)));
            settings.setValue(SettingKeys::hyperKeyModifiers(), setting.modifiers);
            settings.setValue(SettingKeys::hyperKeyShowAsCapsLock(), setting.showAsCapsLock);
        }
        if (random.bounded(4) == 0) {
            ++focusChanges;
            focus(random.bounded(2) ? other.window() : xcb_window_t(own.winId()));
        }

        QStringList words;
        for (int n = 1 + int(random.bounded(10)); n > 0; --n) {
            const int code = typedKeys[random.bounded(quint32(typedKeys.size()))];
            const QString sym = xKeycode(code);
            const bool isHeld = held.test(code);
            const quint32 roll = random.bounded(3);
            if (!isHeld && roll == 0) {
                words << u"key"_s << u"--delay"_s << u"0"_s << sym;
                keyEvents += 2;
                if (code == KEY_CAPSLOCK) {
                    lock.press();
                    lock.release();
                }
            } else if (!isHeld) {
                words << u"keydown"_s << u"--delay"_s << u"0"_s << sym;
                ++keyEvents;
                held.set(code);
                heldSyms << sym;
                if (code == KEY_CAPSLOCK)
                    lock.press();
            } else {
                words << u"keyup"_s << u"--delay"_s << u"0"_s << sym;
                ++keyEvents;
                held.reset(code);
                heldSyms.removeOne(sym);
                if (code == KEY_CAPSLOCK)
                    lock.release();
            }
        }
        // Now and then a key stays down past the server's auto-repeat delay.
        if (!heldSyms.isEmpty() && random.bounded(40) == 0)
            words << u"sleep"_s << u"0.7"_s;
        QVERIFY(type(words));
        other.drain();
        QVERIFY(check(u"batch %1"_s.arg(bursts)));
    }

    // Everything up, the lock off: nothing may stay lit.
    QStringList words;
    for (const QString& sym : std::as_const(heldSyms))
        words << u"keyup"_s << u"--delay"_s << u"0"_s << sym;
    if (held.test(KEY_CAPSLOCK))
        lock.release();
    if (lock.on) {
        words << u"key"_s << u"--delay"_s << u"0"_s << xKeycode(KEY_CAPSLOCK);
        lock.press();
        lock.release();
    }
    held.reset();
    if (!words.isEmpty())
        QVERIFY(type(words));
    QVERIFY(check(u"the end"_s));
    QVERIFY(monitor.pressedKeys().isEmpty());
    QCOMPARE(monitor.modifierFlags(), ModifierFlags(0));
    monitor.stop();
    qInfo("x11: %lld key events in %lld batches, %lld focus changes, %lld ms", keyEvents, bursts, focusChanges,
        elapsed.elapsed());
}

int main(int argc, char** argv)
{
    // Before anything connects to a display: the test brings its own and never touches the user's.
    const X11Test::Helper server = X11Test::startXServer(800, 600);
    QTemporaryDir runtimeDir;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir.path()));
    QGuiApplication app(argc, argv);
    TestKeySoak test(QGuiApplication::platformName() == u"xcb"_s);
    return QTest::qExec(&test, argc, argv);
}

#include "testkeysoak.moc"
