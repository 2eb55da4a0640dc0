// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// Shared by the tests: a scripted key source, a settings store in a temporary folder, the names of every setting.

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/inputbackend.h"
#include "input/triggermodifier.h"
#include "theme/themesettings.h"

#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <utility>

namespace TestSupport {

/** A key source driven by the test: emit its signals to type, set its fields to shape what it reports. */
class FakeInputBackend final : public InputBackend
{
public:
    QString name() const override { return QStringLiteral("fake"); }
    Access access() const override
    {
        ++accessChecks;
        return accessNow;
    }
    QString accessHelp() const override { return help; }
    bool start() override
    {
        ++starts;
        running = accessNow == Access::granted;
        return running;
    }
    void stop() override { running = false; }
    Source source() const override { return running ? sourceWhenRunning : Source::none; }
    bool capsLockOn() const override { return lockOn; }
    bool canRequestAccess() const override { return requestable && accessNow != Access::granted; }
    void requestAccess() override { ++requests; }
    void setSwallowedShortcuts(bool escape, bool settingsShortcut) override
    {
        swallowed = { escape, settingsShortcut };
    }

    /** Access arrives, as when the user agreed to a request. */
    void grant()
    {
        accessNow = Access::granted;
        running = true;
        emit accessChanged();
    }

    Access accessNow = Access::granted;
    Source sourceWhenRunning = Source::devices;
    QString help;
    bool lockOn = false;
    bool requestable = false;
    bool running = false;
    std::pair<bool, bool> swallowed { false, false };
    int requests = 0;
    int starts = 0;
    mutable int accessChecks = 0;
};

/** A settings store on a file of its own, gone with the object. */
class TemporaryStore
{
public:
    TemporaryStore()
        : m_store(std::make_unique<SettingsStore>(filePath()))
    {
    }

    SettingsStore& operator*() { return *m_store; }
    SettingsStore* operator->() { return m_store.get(); }
    SettingsStore* get() { return m_store.get(); }
    QString filePath() const { return m_dir.filePath(QStringLiteral("settings.json")); }

    /** Drops the store and opens the file again, as the next start of the program would. */
    void reopen()
    {
        m_store.reset();
        m_store = std::make_unique<SettingsStore>(filePath());
    }

private:
    QTemporaryDir m_dir;
    std::unique_ptr<SettingsStore> m_store;
};

/** The entry name of every setting the program keeps. */
inline QStringList allSettingNames()
{
    using namespace SettingKeys;
    return {
        activeThemeConfig().name(), activeThemeName().name(), savedThemes().name(), showOnScreenRecording().name(),
        hideOnScreenRecordingEnd().name(), launchAtLogin().name(), triggerModifier().name(),
        enableGlobalHotkey().name(), hyperKeyModifiers().name(), hyperKeyShowAsCapsLock().name(),
        glowDecay().name(), autoHideOnHover().name(), autoHideOpacity().name(), escapeToHideOnHover().name(),
        keyboardVisible().name(), hiddenWithoutTrayExplained().name(), windowX().name(), windowY().name(),
        windowWidth().name(), automaticallyChecksForUpdates().name(), updateCheckInterval().name(),
        lastUpdateCheckTime().name(),
    };
}

} // namespace TestSupport
