// SPDX-License-Identifier: GPL-3.0-or-later
// How the application shows, hides and remembers the keyboard panel, and what the gestures do to it.
#include "app/application.h"
#include "app/settingkeys.h"
#include "app/settingsstore.h"
#include "input/hotkeymanager.h"
#include "input/modifierflags.h"
#include "panel/hovertrackingview.h"
#include "panel/keyboardcontentview.h"
#include "panel/keyboardpanel.h"

#include <QApplication>
#include <QMenu>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr ModifierFlags optionDown = ModifierFlag::option | ModifierFlag::leftOption;
constexpr KeyCode optionKey = 58;

} // namespace

class TestApplicationPanel final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void keyboardShownAtStartOnlyWhenItWas();
    void showAndHideAreRemembered();
    void tripleTapTogglesKeyboard();
    void escapeWhileHoveringHides();
    void singleTapWhileHoveringSwitchesAutoHide();
    void contextMenuHideIsTheGesturesHide();

private:
    Application& start();
    /** The trigger pressed and released, each report arriving twice as from the two paths of the monitor. */
    void tapTrigger();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Application> m_app;
};

void TestApplicationPanel::initTestCase()
{
    // No key capture on the offscreen platform: the X11 back end declines quietly.
    qputenv("ORDALIS_INPUT", "x11");
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
}

void TestApplicationPanel::cleanup()
{
    m_app.reset();
    m_dir.reset();
}

Application& TestApplicationPanel::start()
{
    m_app = std::make_unique<Application>(m_dir->filePath(u"settings.json"_s));
    m_app->settings().setValue(SettingKeys::triggerModifier(), TriggerModifier::leftOption);
    return *m_app;
}

void TestApplicationPanel::tapTrigger()
{
    for (ModifierFlags flags : { optionDown, optionDown, ModifierFlags(0), ModifierFlags(0) })
        m_app->hotkeys().handleFlagsChanged(flags, optionKey);
}

void TestApplicationPanel::keyboardShownAtStartOnlyWhenItWas()
{
    Application& first = start();
    QVERIFY(!first.keyboardPanel());
    QVERIFY(!first.isVisible());
    first.showKeyboard();
    m_app.reset();

    Application& second = start();
    QVERIFY(second.keyboardPanel());
    QVERIFY(second.isVisible());
    second.hideKeyboard();
    m_app.reset();

    QVERIFY(!start().keyboardPanel());
}

void TestApplicationPanel::showAndHideAreRemembered()
{
    Application& app = start();
    SettingsStore& settings = app.settings();

    app.showKeyboard();
    KeyboardPanel* panel = app.keyboardPanel();
    QVERIFY(panel && panel->isVisible());
    QVERIFY(settings.value(SettingKeys::keyboardVisible()));
    QVERIFY(std::isfinite(panel->shownAt()));

    app.hideKeyboard();
    QVERIFY(!app.isVisible());
    QVERIFY(!settings.value(SettingKeys::keyboardVisible()));
    // Hiding only hides: the same panel comes back.
    app.toggleKeyboard();
    QCOMPARE(app.keyboardPanel(), panel);
    QVERIFY(app.isVisible());
    app.toggleKeyboard();
    QVERIFY(!app.isVisible());
}

void TestApplicationPanel::tripleTapTogglesKeyboard()
{
    Application& app = start();
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
    Application& app = start();
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
    Application& app = start();
    app.showKeyboard();
    KeyboardPanel* panel = app.keyboardPanel();
    panel->hoverTrackingView()->mouseEntered();

    // Within a second of appearing the tap belongs to whatever showed the panel.
    tapTrigger();
    QVERIFY(!app.settings().value(SettingKeys::autoHideOnHover()));

    panel->setShownAt(panel->shownAt() - 1.5);
    tapTrigger();
    QVERIFY(app.settings().value(SettingKeys::autoHideOnHover()));
}

void TestApplicationPanel::contextMenuHideIsTheGesturesHide()
{
    Application& app = start();
    app.showKeyboard();
    QMenu menu;
    app.keyboardPanel()->contentView()->populateContextMenu(menu);
    QCOMPARE(menu.actions().constFirst()->text(), u"Hide Keyboard"_s);
    menu.actions().constFirst()->trigger();
    QVERIFY(!app.isVisible());
    QVERIFY(!app.settings().value(SettingKeys::keyboardVisible()));
}

QTEST_MAIN(TestApplicationPanel)
#include "testapplicationpanel.moc"
