// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/updatermanager.h"
#include "input/modifierflags.h"

#include <QPointer>
#include <QScrollArea>

#include <functional>

class KeyboardMonitor;
class LayoutPicker;
class QComboBox;
class QPushButton;
class QToolButton;
class SegmentedControl;
class SettingsSection;
class SettingsStore;
class SliderRow;
class SwitchRow;
class ToneLabel;
class UpdaterSettingsSection;

/**
 * The General tab of the settings window: the "Behaviour" section (gesture hotkey and its trigger, launch at
 * login, screen-recording reactions, hover behaviour, glow decay, updates), the "Keyboard" section (what the key
 * caps show and the keyboard's shape) and the "HyperKey" section (recording the combination Caps Lock is remapped
 * to, and how it shows).
 *
 * Every control writes its setting at once and follows it when it changes elsewhere, without writing back. Each
 * control's object name is the name of the setting it edits. Scrolls when the window is shorter than the tab.
 */
class GeneralSettingsTab final : public QScrollArea
{
    Q_OBJECT

public:
    /**
     * `settings` must outlive the tab. `monitor` records the HyperKey combination (none disables recording).
     * `updater` serves the Updates section; none in a build without an update feed.
     */
    GeneralSettingsTab(SettingsStore& settings, KeyboardMonitor* monitor, UpdaterManager* updater,
        QWidget* parent = nullptr);
    /** Ends a HyperKey recording still running. */
    ~GeneralSettingsTab() override;

    /** The explanation under the auto-hide switch, naming the trigger key `triggerName`. */
    static QString autoHideExplanation(const QString& triggerName);

    /** A HyperKey recording started here is waiting for Caps Lock. */
    bool isRecordingHyperKey() const { return m_recording; }

    SettingsSection* behaviourSection() const { return m_behaviour; }
    SettingsSection* keyboardSection() const { return m_keyboard; }
    SettingsSection* privacySection() const { return m_privacy; }

    /**
     * The window classes of a comma-separated list as they are kept: trimmed, empty ones and repeats left out, each
     * at most 256 characters, at most 200 of them.
     */
    static QStringList privateAppClassesFromText(const QString& text);
    SettingsSection* hyperKeySection() const { return m_hyperKey; }

protected:
    void hideEvent(QHideEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void buildBehaviour();
    void buildKeyboard();
    void buildPrivacy();
    void buildHyperKey();
    void chooseTrigger(int index);
    void showScreenChoices();
    void showTrigger();
    void showHyperKey();
    void toggleRecording();
    void startRecording();
    void stopRecording();
    void showRecording();
    void restyle();

    SettingsStore& m_settings;
    QPointer<KeyboardMonitor> m_monitor;
    UpdaterManager* m_updater;
    bool m_recording = false;

    SettingsSection* m_behaviour = nullptr;
    SettingsSection* m_keyboard = nullptr;
    SettingsSection* m_privacy = nullptr;
    SettingsSection* m_hyperKey = nullptr;
    QComboBox* m_trigger = nullptr;
    QComboBox* m_showOn = nullptr;
    ToneLabel* m_autoHideExplanation = nullptr;
    QPushButton* m_record = nullptr;
    ToneLabel* m_combination = nullptr;
    QToolButton* m_clear = nullptr;
    SegmentedControl* m_showAs = nullptr;
    LayoutPicker* m_keyLabels = nullptr;
    SegmentedControl* m_shape = nullptr;
};
