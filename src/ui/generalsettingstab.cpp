// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/generalsettingstab.h"

#include "base/settingkeys.h"
#include "base/settingsstore.h"
#include "input/keyboardmonitor.h"
#include "input/triggermodifier.h"
#include "keyboard/keylabelsettings.h"
#include "panel/screenplacement.h"
#include "ui/layoutpicker.h"
#include "ui/modifiernames.h"
#include "ui/segmentedcontrol.h"
#include "ui/settingsrows.h"
#include "ui/settingssection.h"
#include "ui/settingsstyle.h"
#include "ui/updatersettingssection.h"

#include <QComboBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHideEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr double smallTextPixels = 11;

QString recordText()
{
    return u"Record HyperKey"_s;
}

QString waitingText()
{
    return u"Press Caps Lock..."_s;
}

ToneLabel* smallNote(const QString& text, QWidget* parent)
{
    auto* note = new ToneLabel(text, ToneLabel::Tone::tertiary, parent);
    note->setFont(SettingsStyle::font(parent, smallTextPixels));
    note->setWordWrap(true);
    return note;
}

} // namespace

GeneralSettingsTab::GeneralSettingsTab(SettingsStore& settings, KeyboardMonitor* monitor, UpdaterManager* updater,
    QWidget* parent)
    : QScrollArea(parent)
    , m_settings(settings)
    , m_monitor(monitor)
    , m_updater(updater)
{
    QVBoxLayout* layout = SettingsStyle::startSettingsPage(this);
    buildBehaviour();
    buildKeyboard();
    buildHyperKey();
    buildPrivacy();
    layout->addWidget(m_behaviour);
    layout->addWidget(m_keyboard);
    layout->addWidget(m_privacy);
    layout->addWidget(m_hyperKey);
    SettingsStyle::finishSettingsPage(this, layout);
    restyle();
}

GeneralSettingsTab::~GeneralSettingsTab()
{
    stopRecording();
}

QString GeneralSettingsTab::autoHideExplanation(const QString& triggerName)
{
    return u"Hover the keyboard and tap "_s + triggerName
        + u" to toggle.\nWhen enabled, the keyboard fades and lets clicks pass through while you hover over it."_s;
}

void GeneralSettingsTab::buildBehaviour()
{
    m_behaviour = new SettingsSection(u"Behaviour"_s, u"keyboard.badge.ellipsis"_s, 4);

    auto* hotkey = new SwitchRow(u"Triple-tap modifier to show/hide keyboard"_s);
    hotkey->setObjectName(SettingKeys::enableGlobalHotkey().name());
    m_trigger = new QComboBox;
    m_trigger->setObjectName(SettingKeys::triggerModifier().name());
    m_trigger->setAccessibleName(u"Trigger modifier"_s);
    m_trigger->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    for (TriggerModifier trigger : TriggerModifiers::all())
        m_trigger->addItem(TriggerModifiers::displayName(trigger));
    hotkey->addAccessory(m_trigger);
    SettingsBinding::bindSwitch(hotkey, m_settings, SettingKeys::enableGlobalHotkey());
    connect(m_trigger, &QComboBox::activated, this, &GeneralSettingsTab::chooseTrigger);
    m_behaviour->addRow(hotkey);

    // Launch at login follows this setting by itself and sets it back when the autostart entry cannot be written,
    // which the switch then shows.
    const auto addSwitch = [this](const QString& text, const SettingKey<bool>& key) {
        auto* row = new SwitchRow(text);
        row->setObjectName(key.name());
        SettingsBinding::bindSwitch(row, m_settings, key);
        return row;
    };
    m_behaviour->addRow(addSwitch(u"Launch at Login"_s, SettingKeys::launchAtLogin()));
    m_behaviour->addRow(addSwitch(u"Show when Screen Recording starts"_s, SettingKeys::showOnScreenRecording()));
    m_behaviour->addRow(addSwitch(u"Hide when Screen Recording ends (happens with a 5s delay because of system "
                                  u"limitations)"_s,
        SettingKeys::hideOnScreenRecordingEnd()));
    m_behaviour->addRow(addSwitch(u"Press `esc` to hide while hovering"_s, SettingKeys::escapeToHideOnHover()));

    auto* showOn = new QWidget;
    auto* showOnLayout = new QHBoxLayout(showOn);
    showOnLayout->setContentsMargins(0, 0, 0, 0);
    showOnLayout->addWidget(new ToneLabel(u"Show On"_s, ToneLabel::Tone::primary));
    showOnLayout->addStretch(1);
    m_showOn = new QComboBox;
    m_showOn->setObjectName(SettingKeys::showOnScreen().name());
    m_showOn->setAccessibleName(u"Show On"_s);
    m_showOn->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    showOnLayout->addWidget(m_showOn);
    m_behaviour->addRow(showOn);
    connect(m_showOn, &QComboBox::activated, this, [this](int index) {
        m_settings.setValue(SettingKeys::showOnScreen(), m_showOn->itemData(index).toString());
    });
    connect(qGuiApp, &QGuiApplication::screenAdded, this, &GeneralSettingsTab::showScreenChoices);
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, &GeneralSettingsTab::showScreenChoices);
    m_settings.bind(SettingKeys::showOnScreen(), this, [this](const QString&) { showScreenChoices(); });
    showScreenChoices();

    auto* autoHide = new QWidget;
    auto* autoHideLayout = new QVBoxLayout(autoHide);
    autoHideLayout->setContentsMargins(0, 0, 0, 2);
    autoHideLayout->setSpacing(1);
    autoHideLayout->addWidget(addSwitch(u"Auto-hide on hover (click-through)"_s, SettingKeys::autoHideOnHover()));
    m_autoHideExplanation = smallNote({}, autoHide);
    m_autoHideExplanation->setObjectName(u"autoHideExplanation"_s);
    autoHideLayout->addWidget(m_autoHideExplanation);
    m_behaviour->addRow(autoHide);

    auto* opacity = new SliderRow(u"Hide opacity"_s, 0.0, 0.5, u"%.2f"_s);
    opacity->setObjectName(SettingKeys::autoHideOpacity().name());
    SettingsBinding::bindSlider(opacity, m_settings, SettingKeys::autoHideOpacity());
    m_behaviour->addRow(opacity);
    auto* decay = new SliderRow(u"Glow decay"_s, 0.0, 2.0, u"%.2fs"_s);
    decay->setObjectName(SettingKeys::glowDecay().name());
    SettingsBinding::bindSlider(decay, m_settings, SettingKeys::glowDecay());
    m_behaviour->addRow(decay);

    m_behaviour->addRow(new UpdaterSettingsSection(m_settings, m_updater));

    m_settings.bind(SettingKeys::triggerModifier(), this, [this](TriggerModifier) { showTrigger(); });
    showTrigger();
}

QStringList GeneralSettingsTab::privateAppClassesFromText(const QString& text)
{
    constexpr qsizetype maxEntries = 200;
    constexpr qsizetype maxLength = 256;
    QStringList classes;
    for (const QString& part : text.split(u',')) {
        const QString entry = part.trimmed().left(maxLength);
        if (entry.isEmpty() || classes.contains(entry, Qt::CaseInsensitive))
            continue;
        classes << entry;
        if (classes.size() == maxEntries)
            break;
    }
    return classes;
}

void GeneralSettingsTab::buildPrivacy()
{
    m_privacy = new SettingsSection(u"Privacy"_s, u"lock.fill"_s, 8);
    const auto addSwitch = [this](const QString& text, const SettingKey<bool>& key) {
        auto* row = new SwitchRow(text);
        row->setObjectName(key.name());
        SettingsBinding::bindSwitch(row, m_settings, key);
        m_privacy->addRow(row);
    };
    addSwitch(u"Hide keys while the screen is locked"_s, SettingKeys::pauseWhenLocked());
    addSwitch(u"Hide keys while a password prompt is open"_s, SettingKeys::pauseForPasswordPrompts());
    addSwitch(u"Hide keys while these apps have the focus:"_s, SettingKeys::pauseForPrivateApps());

    auto* classes = new QLineEdit;
    classes->setObjectName(SettingKeys::privateAppClasses().name());
    classes->setAccessibleName(u"Private apps"_s);
    classes->setPlaceholderText(u"Window classes, separated by commas"_s);
    classes->setClearButtonEnabled(true);
    m_privacy->addRow(classes);
    const auto show = [classes](const QStringList& list) {
        if (!classes->hasFocus())
            classes->setText(list.join(u", "_s));
    };
    connect(classes, &QLineEdit::editingFinished, this, [this, classes] {
        const QStringList list = privateAppClassesFromText(classes->text());
        m_settings.setValue(SettingKeys::privateAppClasses(), list);
        classes->setText(list.join(u", "_s));
    });
    m_settings.bind(SettingKeys::privateAppClasses(), this, show);
    show(m_settings.value(SettingKeys::privateAppClasses()));

    m_privacy->addRow(smallNote(u"While keys are hidden the keyboard stays, nothing lights and a lock shows on it. "
                                u"Apps are matched by window class (X11; on Wayland only where the desktop tells "
                                u"which window has the focus). \"Pause Showing Keys\" in the menus hides keys by "
                                u"hand."_s,
        m_privacy->content()));
    classes->setEnabled(m_settings.value(SettingKeys::pauseForPrivateApps()));
    m_settings.bind(SettingKeys::pauseForPrivateApps(), classes, [classes](bool on) { classes->setEnabled(on); });
}

void GeneralSettingsTab::showScreenChoices()
{
    const QString chosen = m_settings.value(SettingKeys::showOnScreen());
    m_showOn->clear();
    for (const ScreenPlacement::Choice& choice :
        ScreenPlacement::choices(ScreenPlacement::connectedScreens(), chosen))
        m_showOn->addItem(choice.label, choice.value);
    m_showOn->setCurrentIndex(m_showOn->findData(chosen));
}

void GeneralSettingsTab::buildKeyboard()
{
    m_keyboard = new SettingsSection(u"Keyboard"_s, u"keyboard"_s, 8);

    // A label column as wide as the slider rows', so both controls start at the same place.
    const auto addRow = [this](const QString& text, QWidget* control) {
        auto* row = new QWidget;
        auto* rowLayout = new QHBoxLayout(row);
        rowLayout->setContentsMargins(0, 0, 0, 0);
        rowLayout->setSpacing(SettingsLayout::columnGap);
        auto* label = new ToneLabel(text, ToneLabel::Tone::primary);
        label->setFixedWidth(SettingsLayout::labelWidth);
        control->setAccessibleName(text);
        rowLayout->addWidget(label);
        rowLayout->addWidget(control);
        rowLayout->addStretch(1);
        m_keyboard->addRow(row);
    };

    m_keyLabels = new LayoutPicker;
    m_keyLabels->setObjectName(SettingKeys::keyLabels().name());
    addRow(u"Key Labels"_s, m_keyLabels);

    QStringList shapes;
    for (KeyboardShape shape : KeyboardShapes::all())
        shapes << KeyboardShapes::displayName(shape);
    m_shape = new SegmentedControl(shapes);
    m_shape->setObjectName(SettingKeys::keyboardShape().name());
    addRow(u"Keyboard Shape"_s, m_shape);

    auto* trackpad = new SwitchRow(u"Show Trackpad"_s);
    trackpad->setObjectName(SettingKeys::showTrackpad().name());
    SettingsBinding::bindSwitch(trackpad, m_settings, SettingKeys::showTrackpad());
    m_keyboard->addRow(trackpad);

    m_keyboard->addRow(smallNote(u"Labels follow the layout you type with. ISO keyboards have a tall Return and one "
                                 u"more key left of Z. The trackpad shows clicks and scrolling."_s,
        m_keyboard->content()));

    connect(m_keyLabels, &LayoutPicker::chosen, this,
        [this](const KeyLabels& labels) { m_settings.setValue(SettingKeys::keyLabels(), labels); });
    connect(m_shape, &SegmentedControl::activated, this, [this](int index) {
        if (index >= 0 && index < KeyboardShapes::all().size())
            m_settings.setValue(SettingKeys::keyboardShape(), KeyboardShapes::all()[index]);
    });
    m_settings.bind(
        SettingKeys::keyLabels(), this, [this](const KeyLabels& labels) { m_keyLabels->setCurrent(labels); });
    m_settings.bind(SettingKeys::keyboardShape(), this,
        [this](KeyboardShape shape) { m_shape->setCurrentIndex(int(KeyboardShapes::all().indexOf(shape))); });
    m_keyLabels->setCurrent(m_settings.value(SettingKeys::keyLabels()));
    m_shape->setCurrentIndex(int(KeyboardShapes::all().indexOf(m_settings.value(SettingKeys::keyboardShape()))));
}

void GeneralSettingsTab::buildHyperKey()
{
    m_hyperKey = new SettingsSection(u"HyperKey"_s, u"capslock"_s, 8);
    m_hyperKey->addRow(smallNote(u"If you use an app like HyperKey that remaps Caps Lock to a modifier combo, record "
                                 u"it here so the keyboard shows the right keys."_s,
        m_hyperKey->content()));

    auto* recording = new QWidget;
    auto* recordingLayout = new QHBoxLayout(recording);
    recordingLayout->setContentsMargins(0, 0, 0, 0);
    recordingLayout->setSpacing(SettingsLayout::columnGap);
    m_record = new QPushButton(waitingText());
    m_record->setObjectName(u"recordHyperKey"_s);
    // Wide enough for either text, so the row does not jump when recording starts.
    const int waitingWidth = m_record->sizeHint().width();
    m_record->setText(recordText());
    m_record->setMinimumWidth(std::max(waitingWidth, m_record->sizeHint().width()));
    m_record->setEnabled(m_monitor != nullptr);
    m_combination = new ToneLabel({}, ToneLabel::Tone::primary);
    m_combination->setObjectName(SettingKeys::hyperKeyModifiers().name());
    m_combination->setAccessibleName(u"Recorded combination"_s);
    m_combination->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_clear = new QToolButton;
    m_clear->setObjectName(u"clearHyperKey"_s);
    m_clear->setText(u"Clear"_s);
    m_clear->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_clear->setAutoRaise(true);
    m_clear->setIconSize(QSize(14, 14));
    recordingLayout->addWidget(m_record);
    recordingLayout->addWidget(m_combination, 1);
    recordingLayout->addWidget(m_clear);
    m_hyperKey->addRow(recording);

    auto* showAs = new QWidget;
    auto* showAsLayout = new QHBoxLayout(showAs);
    showAsLayout->setContentsMargins(0, 0, 0, 0);
    showAsLayout->setSpacing(SettingsLayout::columnGap);
    auto* showAsLabel = new ToneLabel(u"When HyperKey is held, show:"_s, ToneLabel::Tone::primary);
    m_showAs = new SegmentedControl({ u"Caps Lock"_s, u"Modifiers"_s });
    m_showAs->setObjectName(SettingKeys::hyperKeyShowAsCapsLock().name());
    m_showAs->setAccessibleName(showAsLabel->text());
    showAsLayout->addWidget(showAsLabel);
    showAsLayout->addWidget(m_showAs);
    showAsLayout->addStretch(1);
    m_hyperKey->addRow(showAs);

    connect(m_record, &QPushButton::clicked, this, &GeneralSettingsTab::toggleRecording);
    connect(m_clear, &QToolButton::clicked, this,
        [this] { m_settings.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(0)); });
    connect(m_showAs, &SegmentedControl::activated, this,
        [this](int index) { m_settings.setValue(SettingKeys::hyperKeyShowAsCapsLock(), index == 0); });
    m_settings.bind(SettingKeys::hyperKeyModifiers(), this, [this](std::uint64_t) { showHyperKey(); });
    m_settings.bind(SettingKeys::hyperKeyShowAsCapsLock(), this, [this](bool) { showHyperKey(); });
    if (m_monitor) {
        // Queued: the monitor announces the end of a recording before it hands the combination to the callback,
        // which must still be installed then.
        connect(
            m_monitor, &KeyboardMonitor::recordingHyperKeyChanged, this,
            [this](bool armed) {
                if (!armed && m_recording && m_monitor && !m_monitor->isRecordingHyperKey())
                    stopRecording();
            },
            Qt::QueuedConnection);
    }
    showHyperKey();
    showRecording();
}

void GeneralSettingsTab::chooseTrigger(int index)
{
    const QList<TriggerModifier>& triggers = TriggerModifiers::all();
    if (index < 0 || index >= triggers.size())
        return;
    const TriggerModifier chosen = triggers[index];
    if (chosen == m_settings.value(SettingKeys::triggerModifier()))
        return;
    m_settings.setValue(SettingKeys::triggerModifier(), chosen);
}

void GeneralSettingsTab::showTrigger()
{
    const TriggerModifier trigger = m_settings.value(SettingKeys::triggerModifier());
    m_trigger->setCurrentIndex(int(TriggerModifiers::all().indexOf(trigger)));
    m_autoHideExplanation->setText(autoHideExplanation(TriggerModifiers::displayName(trigger)));
}

void GeneralSettingsTab::showHyperKey()
{
    const std::uint64_t recorded = m_settings.value(SettingKeys::hyperKeyModifiers());
    m_combination->setText(modifierNames(recorded));
    // Nothing to clear while nothing is recorded.
    m_clear->setVisible(recorded != 0);
    m_showAs->setCurrentIndex(m_settings.value(SettingKeys::hyperKeyShowAsCapsLock()) ? 0 : 1);
}

void GeneralSettingsTab::toggleRecording()
{
    if (m_recording)
        stopRecording();
    else
        startRecording();
}

void GeneralSettingsTab::startRecording()
{
    if (!m_monitor || m_recording)
        return;
    m_recording = true;
    m_monitor->setRecordingHyperKey(true);
    m_monitor->setOnHyperKeyRecorded([this](ModifierFlags recorded) {
        m_settings.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(recorded));
        stopRecording();
    });
    showRecording();
}

void GeneralSettingsTab::stopRecording()
{
    if (!m_recording)
        return;
    m_recording = false;
    if (m_monitor) {
        m_monitor->setRecordingHyperKey(false);
        m_monitor->setOnHyperKeyRecorded({});
    }
    showRecording();
}

void GeneralSettingsTab::showRecording()
{
    m_record->setText(m_recording ? waitingText() : recordText());
    QPalette palette;
    if (m_recording) {
        palette = m_record->palette();
        palette.setColor(QPalette::ButtonText, SettingsStyle::attention(this->palette()));
    }
    // A default palette hands the button its surroundings' colours again.
    m_record->setPalette(palette);
}

void GeneralSettingsTab::hideEvent(QHideEvent* event)
{
    // Leaving the tab or closing the window ends a recording; minimising does not.
    if (!event->spontaneous())
        stopRecording();
    QScrollArea::hideEvent(event);
}

void GeneralSettingsTab::changeEvent(QEvent* event)
{
    QScrollArea::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        restyle();
}

void GeneralSettingsTab::restyle()
{
    m_clear->setIcon(QIcon(SettingsStyle::symbol(
        this, u"xmark.circle.fill"_s, 12, SymbolWeight::regular, SettingsStyle::secondaryText(palette()))));
    showRecording();
}
