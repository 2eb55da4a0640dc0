// SPDX-License-Identifier: GPL-3.0-or-later
// The coordinator's start-up, the gestures over the panel, its reaction to screen recordings and the one-instance
// rule.
#include "app/appdelegate.h"
#include "app/singleinstance.h"
#include "base/clock.h"
#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/hotkeymanager.h"
#include "input/inputbackend.h"
#include "input/privacymonitor.h"
#include "input/recordingsources.h"
#include "input/triggermodifier.h"
#include "panel/hovertrackingview.h"
#include "panel/keyboardcontentview.h"
#include "panel/keyboardpanel.h"
#include "testsupport.h"
#include "ui/keyaccessprompt.h"
#include "ui/menubarview.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QMessageBox>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
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

QList<QMessageBox*> openMessages()
{
    QList<QMessageBox*> boxes;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
            boxes.append(box);
    }
    return boxes;
}

void closeMessages()
{
    for (QMessageBox* box : openMessages())
        box->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

class TestCoordinator final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void recordingScenarios_data();
    void recordingScenarios();
    void recordingFollowsTheClock();
    void visibilityAndTrayAtStart();
    void accessIsAskedForUntilGranted();
    void accessThatCannotComeIsNotPolled();
    void keyAccessIsRequestedOnceAndOnDemand();
    void shortcutsAreHeldBackOnlyWhileHovered();
    void gesturesShowAndHide();
    void singleTapOverThePanelAfterTheGrace();
    void anUnreadableSettingsFileIsExplained();
    void shutdownStopsEverything();
    void staleSocketIsReplaced();

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
    std::unique_ptr<AppDelegate> m_app;
};

void TestCoordinator::initTestCase()
{
    // The offscreen platform cannot raise or activate windows and says so every time.
    static QtMessageHandler testLog = nullptr;
    testLog = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& message) {
        if (!message.startsWith(u"This plugin does not support"_s))
            testLog(type, context, message);
    });
}

void TestCoordinator::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_settings = std::make_unique<SettingsStore>(m_dir->filePath(u"settings.json"_s));
    m_clock = std::make_unique<ManualClock>();
    m_backend = std::make_unique<FakeBackend>();
    m_backend->help = u"To allow it, run\n\n    sudo usermod -aG input $USER"_s;
    m_backend->sourceWhenRunning = InputBackend::Source::helper;
    m_recording = false;
    // Launch at login writes under the configuration folder; keep it in the test's own.
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir->filePath(u"config"_s)));
}

void TestCoordinator::cleanup()
{
    m_app.reset();
    closeMessages();
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

void TestCoordinator::anUnreadableSettingsFileIsExplained()
{
    // Found while the store is made, before the coordinator exists; said beside the access help, not instead.
    m_backend->accessNow = InputBackend::Access::denied;
    const QString path = m_dir->filePath(u"settings.json"_s);
    m_settings.reset();
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("{ not json");
    file.close();
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"could not be read"_s));
    m_settings = std::make_unique<SettingsStore>(path);
    const QString movedTo = m_settings->movedAsideFile();

    start(false);
    QCOMPARE(openMessages().size(), 2);
    const auto mentions = [](const QString& text) {
        return std::ranges::count_if(
            openMessages(), [&text](const QMessageBox* box) { return box->informativeText().contains(text); });
    };
    QCOMPARE(mentions(QDir::toNativeSeparators(movedTo)), 1);
    QCOMPARE(mentions(u"sudo usermod"_s), 1);
}

void TestCoordinator::accessIsAskedForUntilGranted()
{
    m_backend->accessNow = InputBackend::Access::denied;
    AppDelegate& app = start(false);
    QVERIFY(!app.isMonitoring());
    QCOMPARE(m_backend->starts, 0);

    // Explained once, with the back end's own words.
    const QList<QMessageBox*> shown = openMessages();
    QCOMPARE(shown.size(), 1);
    QVERIFY(shown.constFirst()->informativeText().contains(u"sudo usermod -aG input $USER"_s));
    m_clock->advance(3 * AppDelegate::accessPollInterval);
    QCOMPARE(openMessages().size(), 1);

    m_backend->accessNow = InputBackend::Access::granted;
    m_clock->advanceTo(4 * AppDelegate::accessPollInterval);
    QVERIFY(app.isMonitoring());

    // Asked no more once granted.
    m_clock->advance(10 * AppDelegate::accessPollInterval);
    QCOMPARE(m_backend->accessChecks, 5);
    QCOMPARE(m_backend->starts, 1);
}

void TestCoordinator::accessThatCannotComeIsNotPolled()
{
    m_backend->accessNow = InputBackend::Access::unavailable;
    AppDelegate& app = start(false);
    m_clock->advance(10 * AppDelegate::accessPollInterval);
    QCOMPARE(m_backend->accessChecks, 1);
    QVERIFY(!app.isMonitoring());
    // Said once, not silently left dark.
    QCOMPARE(openMessages().size(), 1);
}

void TestCoordinator::keyAccessIsRequestedOnceAndOnDemand()
{
    m_backend->accessNow = InputBackend::Access::denied;
    m_backend->requestable = true;
    AppDelegate& app = start(false);
    QSignalSpy sourceChanged(&app, &AppDelegate::keySourceChanged);

    // One request, with one button; looking again every 2 s never asks again.
    const auto allowButton = [] {
        const QList<QMessageBox*> shown = openMessages();
        QAbstractButton* found = nullptr;
        for (QMessageBox* box : shown) {
            for (QAbstractButton* button : box->buttons()) {
                if (button->text() == KeyAccessPrompt::allowText())
                    found = button;
            }
        }
        return found;
    };
    QCOMPARE(openMessages().size(), 1);
    QVERIFY(openMessages().constFirst()->text().contains(u"needs permission to see which keys you press"_s));
    QVERIFY(allowButton());
    m_clock->advance(5 * AppDelegate::accessPollInterval);
    QCOMPARE(openMessages().size(), 1);
    QCOMPARE(m_backend->requests, 0);

    allowButton()->click();
    QCOMPARE(m_backend->requests, 1);
    QTRY_COMPARE(openMessages().size(), 0);

    // Refused: said once, with the button to try again; nothing is asked by itself.
    emit m_backend->accessRequestFailed(u"Key access was refused."_s);
    QCOMPARE(openMessages().size(), 1);
    QVERIFY(openMessages().constFirst()->informativeText().contains(u"refused"_s));
    m_clock->advance(5 * AppDelegate::accessPollInterval);
    QCOMPARE(m_backend->requests, 1);
    app.requestKeyAccess();
    QCOMPARE(m_backend->requests, 2);

    // Granted (the helper greeted): keys flow at once, not at the next look.
    m_backend->accessNow = InputBackend::Access::granted;
    emit m_backend->accessChanged();
    QVERIFY(app.isMonitoring());
    QCOMPARE(app.keySource(), InputBackend::Source::helper);
    QCOMPARE(sourceChanged.size(), 1);
    // Without a tray, the keyboard's menu is the tray menu, access line included.
    QCOMPARE(app.menuBarView()->menu()->actions().constFirst()->text(), u"Keys: helper"_s);
}

void TestCoordinator::shortcutsAreHeldBackOnlyWhileHovered()
{
    AppDelegate& app = start();
    app.showKeyboard();
    KeyboardPanel& panel = *app.keyboardPanel();
    using Held = std::pair<bool, bool>;

    panel.setHovering(true);
    QCOMPARE(m_backend->swallowed, Held(false, true));
    m_settings->setValue(SettingKeys::escapeToHideOnHover(), true);
    QCOMPARE(m_backend->swallowed, Held(true, true));
    panel.setHovering(false);
    QCOMPARE(m_backend->swallowed, Held(false, false));

    // Hidden while the pointer was over it: nothing stays held back, not even for a moment after.
    panel.setHovering(true);
    app.hideKeyboard();
    QCOMPARE(m_backend->swallowed, Held(false, false));
    app.showKeyboard();
    panel.setHovering(false);
    panel.setHovering(true);
    QCOMPARE(m_backend->swallowed, Held(true, true));
    app.shutdown();
    QCOMPARE(m_backend->swallowed, Held(false, false));
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

    // Escape hides it only while the pointer is over it, and only with the setting on.
    QVERIFY(!app.hotkeys().handleKeyDown(HotkeyManager::escapeKeyCode));
    panel->hoverTrackingView()->mouseEntered();
    QVERIFY(!app.hotkeys().handleKeyDown(HotkeyManager::escapeKeyCode));
    m_settings->setValue(SettingKeys::escapeToHideOnHover(), true);
    QVERIFY(app.hotkeys().handleKeyDown(HotkeyManager::escapeKeyCode));
    QVERIFY(!app.isVisible());
    QVERIFY(!m_settings->value(SettingKeys::keyboardVisible()));
    // A hidden panel is hovered no more.
    QVERIFY(!app.hotkeys().handleKeyDown(HotkeyManager::escapeKeyCode));

    // The panel's own menu hides it as the gestures do.
    app.showKeyboard();
    QMenu menu;
    panel->contentView()->populateContextMenu(menu);
    QCOMPARE(menu.actions().constFirst()->text(), u"Hide Keyboard"_s);
    menu.actions().constFirst()->trigger();
    QVERIFY(!app.isVisible() && app.userHid());
    QVERIFY(!m_settings->value(SettingKeys::keyboardVisible()));
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

void TestCoordinator::shutdownStopsEverything()
{
    AppDelegate& app = start();
    app.shutdown();
    QVERIFY(!m_backend->running);
    QVERIFY(!app.updater());
    // The recording check has stopped too.
    m_recording = true;
    m_clock->advance(10.0);
    QVERIFY(!app.isVisible());
}

void TestCoordinator::staleSocketIsReplaced()
{
    // What an instance that crashed leaves behind: a socket file nobody listens on.
    const QString name = m_dir->filePath(u"instance"_s);
    const QByteArray path = QFile::encodeName(name);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    QVERIFY(fd >= 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
    QCOMPARE(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(fd);
    QVERIFY(QFile::exists(name));

    SingleInstance next(name);
    QCOMPARE(next.claim(), SingleInstance::Role::primary);
    QSignalSpy showRequested(&next, &SingleInstance::showRequested);
    SingleInstance later(name);
    QCOMPARE(later.claim(), SingleInstance::Role::secondary);
    QVERIFY(showRequested.wait(5000));
}

QTEST_MAIN(TestCoordinator)
#include "testcoordinator.moc"
