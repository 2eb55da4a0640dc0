// SPDX-License-Identifier: GPL-3.0-or-later
// How the coordinator shows, hides and remembers the keyboard panel, and what the gestures do to it.
#include "app/appdelegate.h"
#include "base/clock.h"
#include "base/settingkeys.h"
#include "input/triggermodifier.h"
#include "base/settingsstore.h"
#include "input/hotkeymanager.h"
#include "input/inputbackend.h"
#include "input/modifierflags.h"
#include "panel/hovertrackingview.h"
#include "panel/keyboardcontentview.h"
#include "panel/keyboardpanel.h"

#include <QApplication>
#include <QFile>
#include <QMenu>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr ModifierFlags optionDown = ModifierFlag::option | ModifierFlag::leftOption;
constexpr KeyCode optionKey = 58;

class FakeBackend final : public InputBackend
{
public:
    QString name() const override { return u"fake"_s; }
    Access access() const override { return Access::granted; }
    QString accessHelp() const override { return {}; }
    bool start() override { return true; }
    void stop() override { }
    bool capsLockOn() const override { return false; }
};

} // namespace

class TestApplicationPanel final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void showAndHideAreRemembered();
    void tripleTapTogglesKeyboard();
    void escapeWhileHoveringHides();
    void singleTapWhileHoveringSwitchesAutoHide();
    void contextMenuHideIsTheGesturesHide();

private:
    AppDelegate& start();
    /** The trigger pressed and released, each report arriving twice as from the two paths of the monitor. */
    void tapTrigger();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<ManualClock> m_clock;
    FakeBackend m_backend;
    std::unique_ptr<AppDelegate> m_app;
};

void TestApplicationPanel::initTestCase()
{
    // The offscreen platform cannot raise or fade windows and says so every time.
    static QtMessageHandler testLog = nullptr;
    testLog = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& message) {
        if (!message.startsWith(u"This plugin does not support"_s))
            testLog(type, context, message);
    });
}

void TestApplicationPanel::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir->filePath(u"config"_s)));
    m_settings = std::make_unique<SettingsStore>(m_dir->filePath(u"settings.json"_s));
    m_settings->setValue(SettingKeys::triggerModifier(), TriggerModifier::leftOption);
    m_clock = std::make_unique<ManualClock>(100.0);
}

void TestApplicationPanel::cleanup()
{
    m_app.reset();
    m_clock.reset();
    m_settings.reset();
    m_dir.reset();
}

AppDelegate& TestApplicationPanel::start()
{
    AppDelegate::Environment environment;
    environment.backend = &m_backend;
    environment.trayAvailable = true;
    m_app = std::make_unique<AppDelegate>(*m_settings, *m_clock, std::move(environment));
    m_app->start();
    return *m_app;
}

void TestApplicationPanel::tapTrigger()
{
    for (ModifierFlags flags : { optionDown, optionDown, ModifierFlags(0), ModifierFlags(0) })
        m_app->hotkeys().handleFlagsChanged(flags, optionKey);
}

void TestApplicationPanel::showAndHideAreRemembered()
{
    AppDelegate& app = start();
    SettingsStore& settings = app.settings();

    app.showKeyboard();
    KeyboardPanel* panel = app.keyboardPanel();
    QVERIFY(panel && panel->isVisible());
    QVERIFY(settings.value(SettingKeys::keyboardVisible()));
    QCOMPARE(panel->shownAt(), 100.0);
    QVERIFY(!app.userHid());

    app.hideKeyboard();
    QVERIFY(!app.isVisible());
    QVERIFY(!panel->isVisible());
    QVERIFY(app.userHid());
    QVERIFY(!settings.value(SettingKeys::keyboardVisible()));
    // Hiding only hides: the same panel comes back, and showing clears the user's hiding.
    app.toggleKeyboard();
    QCOMPARE(app.keyboardPanel(), panel);
    QVERIFY(app.isVisible());
    QVERIFY(!app.userHid());
    app.toggleKeyboard();
    QVERIFY(!app.isVisible());
}

void TestApplicationPanel::tripleTapTogglesKeyboard()
{
    AppDelegate& app = start();
    tapTrigger();
    tapTrigger();
    QVERIFY(!app.isVisible());
    tapTrigger();
    QVERIFY(app.isVisible());
    tapTrigger();
    tapTrigger();
    tapTrigger();
    QVERIFY(!app.isVisible());
}

void TestApplicationPanel::escapeWhileHoveringHides()
{
    AppDelegate& app = start();
    app.settings().setValue(SettingKeys::escapeToHideOnHover(), true);
    app.showKeyboard();

    // Not over the panel: Escape is the user's.
    QVERIFY(!app.hotkeys().handleKeyDown(HotkeyManager::escapeKeyCode));
    QVERIFY(app.isVisible());

    app.keyboardPanel()->hoverTrackingView()->mouseEntered();
    QVERIFY(app.hotkeys().handleKeyDown(HotkeyManager::escapeKeyCode));
    QVERIFY(!app.isVisible());
    QVERIFY(!app.settings().value(SettingKeys::keyboardVisible()));
    // A hidden panel is hovered no more.
    QVERIFY(!app.hotkeys().handleKeyDown(HotkeyManager::escapeKeyCode));
}

void TestApplicationPanel::singleTapWhileHoveringSwitchesAutoHide()
{
    AppDelegate& app = start();
    app.showKeyboard();
    KeyboardPanel* panel = app.keyboardPanel();
    panel->hoverTrackingView()->mouseEntered();

    // Up to a second after appearing the tap belongs to whatever showed the panel.
    m_clock->advanceTo(100.0 + AppDelegate::singleTapGrace);
    tapTrigger();
    QVERIFY(!app.settings().value(SettingKeys::autoHideOnHover()));

    m_clock->advance(0.01);
    tapTrigger();
    QVERIFY(app.settings().value(SettingKeys::autoHideOnHover()));

    // Showing again starts the second anew.
    app.hideKeyboard();
    app.showKeyboard();
    panel->hoverTrackingView()->mouseEntered();
    m_clock->advance(0.5);
    tapTrigger();
    QVERIFY(app.settings().value(SettingKeys::autoHideOnHover()));
}

void TestApplicationPanel::contextMenuHideIsTheGesturesHide()
{
    AppDelegate& app = start();
    app.showKeyboard();
    QMenu menu;
    app.keyboardPanel()->contentView()->populateContextMenu(menu);
    QCOMPARE(menu.actions().constFirst()->text(), u"Hide Keyboard"_s);
    menu.actions().constFirst()->trigger();
    QVERIFY(!app.isVisible());
    QVERIFY(app.userHid());
    QVERIFY(!app.settings().value(SettingKeys::keyboardVisible()));
}

QTEST_MAIN(TestApplicationPanel)
#include "testapplicationpanel.moc"
