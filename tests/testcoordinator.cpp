// SPDX-License-Identifier: GPL-3.0-or-later
// The coordinator's start-up, the gestures over the panel and its reaction to screen recordings.
#include "app/appdelegate.h"
#include "keyboard/keyboardscene.h"
#include "base/clock.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/hotkeymanager.h"
#include "input/inputbackend.h"
#include "input/keyboardmonitor.h"
#include "input/privacymonitor.h"
#include "input/recordingsources.h"
#include "input/triggermodifier.h"
#include "panel/hovertrackingview.h"
#include "panel/keyboardcontentview.h"
#include "panel/keyboardpanel.h"
#include "dbustestsupport.h"
#include "input/privatemoments.h"
#include "testsupport.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>

#include <QApplication>
#include <QFile>
#include <QMenu>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTest>
#include <QSignalSpy>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

using FakeBackend = TestSupport::FakeInputBackend;

class FakeRecording final : public RecordingSource
{
public:
    explicit FakeRecording(const bool& recording)
        : m_recording(recording)
    {
    }
    bool isRecording() override { return m_recording; }

private:
    const bool& m_recording;
};

/** The desktop's screen saver on a test bus: answers GetActive with `active`. */
class FakeScreenSaver final : public QDBusVirtualObject
{
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        if (message.member() != u"GetActive"_s)
            return false;
        return connection.send(message.createReply(active));
    }

    bool active = false;
};

} // namespace

class TestCoordinator final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void recordingScenarios_data();
    void recordingScenarios();
    void recordingFollowsTheClock();
    void visibilityAndTrayAtStart();
    void gesturesShowAndHide();
    void lockedScreenPausesWithKeysHeld();
    void singleTapOverThePanelAfterTheGrace();

private:
    AppDelegate& start(bool trayAvailable = true);
    void restart(bool trayAvailable = true);
    /** The trigger (left Option) pressed and released. */
    void tapTrigger();
    /** The watcher's poll and the coordinator's check, as the clock runs them. */
    void check();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<ManualClock> m_clock;
    std::unique_ptr<FakeBackend> m_backend;
    bool m_recording = false;
    std::unique_ptr<PrivateMomentWatcher> m_privateMoments;
    std::unique_ptr<AppDelegate> m_app;
};

void TestCoordinator::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_settings = std::make_unique<SettingsStore>(m_dir->filePath(u"settings.json"_s));
    m_clock = std::make_unique<ManualClock>();
    m_backend = std::make_unique<FakeBackend>();
    m_backend->sourceWhenRunning = InputBackend::Source::helper;
    m_recording = false;
    // Launch at login writes under the configuration folder; keep it in the test's own.
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir->filePath(u"config"_s)));
}

void TestCoordinator::cleanup()
{
    m_app.reset();
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (qobject_cast<QMessageBox*>(widget))
            delete widget;
    }
    m_backend.reset();
    m_clock.reset();
    m_settings.reset();
    m_dir.reset();
}

AppDelegate& TestCoordinator::start(bool trayAvailable)
{
    AppDelegate::Environment environment;
    environment.backend = m_backend.get();
    environment.recordingSource = std::make_unique<FakeRecording>(m_recording);
    environment.trayAvailable = trayAvailable;
    environment.updateFeed = QUrl(u"https://updates.invalid/feed.json"_s);
    environment.privateMoments = std::move(m_privateMoments);
    m_app = std::make_unique<AppDelegate>(*m_settings, *m_clock, std::move(environment));
    m_app->start();
    return *m_app;
}

void TestCoordinator::restart(bool trayAvailable)
{
    m_app.reset();
    // A new process reads the file afresh.
    m_settings = std::make_unique<SettingsStore>(m_dir->filePath(u"settings.json"_s));
    start(trayAvailable);
}

void TestCoordinator::check()
{
    m_app->privacyMonitor().pollScreenRecording();
    m_app->checkScreenRecording();
}

void TestCoordinator::recordingScenarios_data()
{
    // Steps: "rec" and "end" set the recording and run a check, "check" runs one more, "show" and "hide" are the
    // user's. `visible` is whether the keyboard shows after each step.
    QTest::addColumn<bool>("showOnRecording");
    QTest::addColumn<bool>("hideOnEnd");
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QString>("visible");

    QTest::newRow("shown at the start, hidden at the end") << true << true << u"rec check end check"_s << u"1100"_s;
    QTest::newRow("left showing when hiding at the end is off") << true << false << u"rec end"_s << u"11"_s;
    QTest::newRow("hidden by the user during it: stays hidden")
        << true << true << u"rec hide check check end"_s << u"10000"_s;
    QTest::newRow("hidden during one recording: the next one shows it")
        << true << true << u"rec hide end rec"_s << u"1001"_s;
    QTest::newRow("shown by the user before: not hidden at the end") << true << true << u"show rec end"_s << u"111"_s;
    QTest::newRow("hidden by the user before: shown only by the recording after next")
        << true << true << u"show hide rec end rec"_s << u"10001"_s;
    QTest::newRow("recordings ignored when the setting is off") << false << true << u"rec end"_s << u"00"_s;
    QTest::newRow("nothing hidden at the end when the setting is off")
        << false << true << u"show rec end"_s << u"111"_s;
}

void TestCoordinator::recordingScenarios()
{
    QFETCH(bool, showOnRecording);
    QFETCH(bool, hideOnEnd);
    QFETCH(QString, steps);
    QFETCH(QString, visible);

    m_settings->setValue(SettingKeys::showOnScreenRecording(), showOnRecording);
    m_settings->setValue(SettingKeys::hideOnScreenRecordingEnd(), hideOnEnd);
    AppDelegate& app = start();
    const QStringList list = steps.split(u' ');
    QCOMPARE(list.size(), visible.size());
    for (qsizetype i = 0; i < list.size(); ++i) {
        const QString& step = list[i];
        if (step == u"show")
            app.showKeyboard();
        else if (step == u"hide")
            app.hideKeyboard();
        else {
            if (step != u"check")
                m_recording = step == u"rec";
            check();
        }
        QVERIFY2(app.isVisible() == (visible[i] == u'1'), qPrintable(u"after step %1 (%2)"_s.arg(i + 1).arg(step)));
    }
}

void TestCoordinator::recordingFollowsTheClock()
{
    m_settings->setValue(SettingKeys::hideOnScreenRecordingEnd(), true);
    AppDelegate& app = start();
    m_recording = true;
    // The watcher asked at start, before the recording; it asks again at 2.0, and the check at 2.5 sees it.
    m_clock->advance(2.4);
    QVERIFY(!app.isVisible());
    m_clock->advance(0.1);
    QVERIFY(app.isVisible());

    m_recording = false;
    m_clock->advanceTo(5.0 - 0.01);
    QVERIFY(app.isVisible());
    m_clock->advanceTo(5.0);
    QVERIFY(!app.isVisible());

    // Without access to the keys nothing is watched, so no recording is seen either.
    m_backend->accessNow = InputBackend::Access::denied;
    restart();
    m_recording = true;
    m_clock->advance(10.0);
    QVERIFY(!m_app->isVisible());
}

void TestCoordinator::visibilityAndTrayAtStart()
{
    AppDelegate& first = start();
    QVERIFY(!first.isVisible());
    first.showKeyboard();
    restart();
    QVERIFY(m_app->keyboardPanel() && m_app->keyboardPanel()->isVisible());
    m_app->setKeyboardVisible(false);
    restart();
    QVERIFY(!m_app->isVisible());

    // Without a tray the keyboard is the only way in, so it shows whatever was stored.
    restart(false);
    QVERIFY(m_app->isVisible());
}

void TestCoordinator::tapTrigger()
{
    // Each report arrives twice, as from the two paths of the monitor.
    constexpr ModifierFlags optionDown = ModifierFlag::option | ModifierFlag::leftOption;
    for (ModifierFlags flags : { optionDown, optionDown, ModifierFlags(0), ModifierFlags(0) })
        m_app->hotkeys().handleFlagsChanged(flags, 58);
}

void TestCoordinator::gesturesShowAndHide()
{
    m_settings->setValue(SettingKeys::triggerModifier(), TriggerModifier::leftOption);
    AppDelegate& app = start();
    tapTrigger();
    tapTrigger();
    QVERIFY(!app.isVisible());
    tapTrigger();
    QVERIFY(app.isVisible());
    KeyboardPanel* panel = app.keyboardPanel();
    for (int i = 0; i < 3; ++i)
        tapTrigger();
    QVERIFY(!app.isVisible() && app.userHid());
    // Hiding only hides: the same panel comes back, and showing clears the user's hiding.
    app.toggleKeyboard();
    QCOMPARE(app.keyboardPanel(), panel);
    QVERIFY(app.isVisible() && !app.userHid());

    // The panel's own menu hides it as the gestures do.
    app.showKeyboard();
    QMenu menu;
    panel->contentView()->populateContextMenu(menu);
    QCOMPARE(menu.actions().constFirst()->text(), u"Hide Keyboard"_s);
    menu.actions().constFirst()->trigger();
    QVERIFY(!app.isVisible() && app.userHid());
    QVERIFY(!m_settings->value(SettingKeys::keyboardVisible()));

    // Paused from the panel's menu: nothing is shown and the triple tap, from the back end, does nothing; the
    // keyboard stays, with its lock.
    app.showKeyboard();
    QSignalSpy paused(&app, &AppDelegate::pausedChanged);
    QMenu pauseMenu;
    panel->contentView()->populateContextMenu(pauseMenu);
    pauseMenu.actions().at(1)->trigger();
    QCOMPARE(paused.size(), 1);
    QVERIFY(app.isPaused() && app.keyboardMonitor().isPaused() && panel->contentView()->scene().isPaused());
    QCOMPARE(app.pauseReasons(), QStringList { u"on request"_s });
    constexpr ModifierFlags optionDown = ModifierFlag::option | ModifierFlag::leftOption;
    for (int i = 0; i < 3; ++i) {
        emit m_backend->flagsChanged(optionDown, 58);
        emit m_backend->flagsChanged(0, 58);
    }
    QVERIFY(app.isVisible());
    QVERIFY(app.keyboardMonitor().pressedKeys().isEmpty());
    app.setPausedByHand(false);
    QCOMPARE(paused.size(), 2);
    QVERIFY(!app.keyboardMonitor().isPaused() && !panel->contentView()->scene().isPaused());
}

void TestCoordinator::lockedScreenPausesWithKeysHeld()
{
    DBusTest::PrivateBus session;
    DBusTest::PrivateBus system;
    if (session.address().isEmpty() || system.address().isEmpty())
        QSKIP("dbus-daemon is not installed or did not start");
    // The desktop's screen saver, unlocked at first.
    QDBusConnection service = session.connect();
    FakeScreenSaver saver;
    QVERIFY(service.registerVirtualObject(u"/org/freedesktop/ScreenSaver"_s, &saver));
    QVERIFY(service.registerService(u"org.freedesktop.ScreenSaver"_s));
    const auto lock = [&](bool locked) {
        saver.active = locked;
        QDBusMessage signal = QDBusMessage::createSignal(
            u"/org/freedesktop/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s, u"ActiveChanged"_s);
        signal.setArguments({ locked });
        QVERIFY(service.send(signal));
    };
    m_privateMoments = std::make_unique<PrivateMomentWatcher>(
        *m_settings, PrivateMomentWatcher::Connections { system.connect(), session.connect(), false });
    AppDelegate& app = start();
    app.showKeyboard();
    KeyboardMonitor& monitor = app.keyboardMonitor();

    // Held across the start of the lock: let go at once; typed while locked: never shown; held across its end:
    // exactly what is held then lights again.
    emit m_backend->keyDown(0);
    emit m_backend->keyDown(1);
    QCOMPARE(monitor.pressedKeys().toList(), (QList<KeyCode> { 0, 1 }));
    lock(true);
    QTRY_VERIFY(app.isPaused());
    QVERIFY(monitor.pressedKeys().isEmpty());
    QCOMPARE(app.pauseReasons(), QStringList { u"screen locked"_s });
    emit m_backend->keyUp(0);
    emit m_backend->keyDown(12);
    emit m_backend->keyUp(12);
    emit m_backend->keyDown(13);
    QVERIFY(monitor.pressedKeys().isEmpty());
    lock(false);
    QTRY_VERIFY(!app.isPaused());
    QCOMPARE(monitor.pressedKeys().toList(), (QList<KeyCode> { 1, 13 }));

    // A screen saver that goes away while locked leaves Ordalis unpaused.
    lock(true);
    QTRY_VERIFY(app.isPaused());
    QVERIFY(service.unregisterService(u"org.freedesktop.ScreenSaver"_s));
    QTRY_VERIFY(!app.isPaused());
}

void TestCoordinator::singleTapOverThePanelAfterTheGrace()
{
    m_settings->setValue(SettingKeys::triggerModifier(), TriggerModifier::leftOption);
    m_clock->advanceTo(100.0);
    AppDelegate& app = start();
    app.showKeyboard();
    app.keyboardPanel()->hoverTrackingView()->mouseEntered();

    // Up to a second after appearing the tap belongs to whatever showed the panel.
    m_clock->advanceTo(100.0 + AppDelegate::singleTapGrace);
    tapTrigger();
    QVERIFY(!m_settings->value(SettingKeys::autoHideOnHover()));
    m_clock->advance(0.01);
    tapTrigger();
    QVERIFY(m_settings->value(SettingKeys::autoHideOnHover()));
}

QTEST_MAIN(TestCoordinator)
#include "testcoordinator.moc"
