// SPDX-License-Identifier: GPL-3.0-or-later
// The General tab on the offscreen platform, with a real settings store, key state monitor and updater.
#include "testsupport.h"
#include "base/clock.h"
#include "ui/launchatlogin.h"
#include "base/settingkeys.h"
#include "input/triggermodifier.h"
#include "base/settingsstore.h"
#include "ui/updatermanager.h"
#include "input/hotkeymanager.h"
#include "input/keyboardmonitor.h"
#include "ui/generalsettingstab.h"
#include "ui/gradientslider.h"
#include "ui/segmentedcontrol.h"
#include "ui/settingsrows.h"
#include "ui/settingssection.h"
#include "ui/toggleswitch.h"
#include "ui/updatersettingssection.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QFile>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr ModifierFlags capsLockFlag = 0x10000;

// Members in the order they depend on each other, so they are torn down in the right order.
struct Fixture
{
    Fixture()
    {
        tab = std::make_unique<GeneralSettingsTab>(settings, &monitor, &updater);
        tab->resize(560, 1000);
        tab->show();
    }

    template<typename T>
    T* find(const QString& name) const
    {
        return tab->findChild<T*>(name);
    }

    /** Caps Lock held and a modifier report from the second source, as a remapped Caps Lock sends it. */
    void pressHyperKey(ModifierFlags flags)
    {
        monitor.handleCapsLockKey(true);
        monitor.handleFlagsChanged(flags | capsLockFlag, 56);
        monitor.handleFlagsChanged(capsLockFlag, 56);
        monitor.handleCapsLockKey(false);
    }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock;
    KeyboardMonitor monitor { settings, clock };
    UpdaterManager updater { settings, clock,
        UpdaterEnvironment { QUrl(u"http://127.0.0.1:9/feed.json"_s), u"2.4.1"_s, {} } };
    std::unique_ptr<GeneralSettingsTab> tab;
};

} // namespace

class TestGeneralSettingsTab final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_f.reset(); }

    void sectionsAndTexts();
    void switchesWriteTheirKeys_data();
    void switchesWriteTheirKeys();
    void triggerPickerWritesOncePerChange();
    void explanationFollowsTheTrigger();
    void slidersShowStoredValuesAboveTheirRange();
    void editsFromOutsideShowWithoutWritingBack();
    void refusedLaunchAtLoginTurnsTheSwitchBack();
    void hyperKeyRecordingTakesOneCombination();
    void hyperKeyRecordingEndsWithTheTab();
    void hyperKeyClearAndDisplayChoice();
    void updatesSection();

private:
    std::unique_ptr<Fixture> m_f;
};

void TestGeneralSettingsTab::init()
{
    m_f = std::make_unique<Fixture>();
    QVERIFY(QTest::qWaitForWindowExposed(m_f->tab.get()));
}

void TestGeneralSettingsTab::sectionsAndTexts()
{
    GeneralSettingsTab& tab = *m_f->tab;
    QCOMPARE(tab.behaviourSection()->title(), u"Behaviour"_s);
    QCOMPARE(tab.behaviourSection()->icon(), u"keyboard.badge.ellipsis"_s);
    QCOMPARE(tab.behaviourSection()->spacing(), 4.0);
    QCOMPARE(tab.hyperKeySection()->title(), u"HyperKey"_s);
    QCOMPARE(tab.hyperKeySection()->icon(), u"capslock"_s);

    // The rows of the Behaviour section in order, by the setting each edits.
    QStringList order;
    for (QObject* child : tab.behaviourSection()->content()->findChildren<QWidget*>()) {
        const QString name = child->objectName();
        if (TestSupport::allSettingNames().contains(name) && !order.contains(name))
            order << name;
    }
    const QStringList expected { u"enableGlobalHotkey"_s, u"triggerModifier"_s, u"launchAtLogin"_s,
        u"showOnScreenRecording"_s, u"hideOnScreenRecordingEnd"_s, u"escapeToHideOnHover"_s, u"autoHideOnHover"_s,
        u"autoHideOpacity"_s, u"glowDecay"_s };
    QCOMPARE(order, expected);

    QComboBox* trigger = m_f->find<QComboBox>(u"triggerModifier"_s);
    QStringList names;
    for (int i = 0; i < trigger->count(); ++i)
        names << trigger->itemText(i);
    QCOMPARE(names,
        QStringList({ u"fn"_s, u"Left Control"_s, u"Right Command"_s, u"Left Command"_s, u"Left Option"_s,
            u"Right Option"_s, u"Caps Lock"_s }));
    QCOMPARE(m_f->find<SwitchRow>(u"escapeToHideOnHover"_s)->label()->text(), u"Press `esc` to hide while hovering"_s);
    QCOMPARE(m_f->find<QPushButton>(u"recordHyperKey"_s)->text(), u"Record HyperKey"_s);
}

void TestGeneralSettingsTab::switchesWriteTheirKeys_data()
{
    QTest::addColumn<QString>("key");

    QTest::newRow("hotkey") << u"enableGlobalHotkey"_s;
    QTest::newRow("launch at login") << u"launchAtLogin"_s;
    QTest::newRow("show on recording") << u"showOnScreenRecording"_s;
    QTest::newRow("hide after recording") << u"hideOnScreenRecordingEnd"_s;
    QTest::newRow("escape") << u"escapeToHideOnHover"_s;
    QTest::newRow("auto-hide") << u"autoHideOnHover"_s;
}

void TestGeneralSettingsTab::switchesWriteTheirKeys()
{
    QFETCH(QString, key);
    const SettingKey<bool>* setting = nullptr;
    for (const SettingKey<bool>* candidate : { &SettingKeys::enableGlobalHotkey(), &SettingKeys::launchAtLogin(),
             &SettingKeys::showOnScreenRecording(), &SettingKeys::hideOnScreenRecordingEnd(),
             &SettingKeys::escapeToHideOnHover(), &SettingKeys::autoHideOnHover() }) {
        if (candidate->name() == key)
            setting = candidate;
    }
    QVERIFY(setting);
    SwitchRow* row = m_f->find<SwitchRow>(key);
    QVERIFY(row);
    const bool initial = m_f->settings.value(*setting);
    QCOMPARE(row->isChecked(), initial);

    QTest::mouseClick(row->toggle(), Qt::LeftButton);
    QCOMPARE(m_f->settings.value(*setting), !initial);
    QVERIFY(m_f->settings.hasStoredEntry(key));
    QTest::mouseClick(row->toggle(), Qt::LeftButton);
    QCOMPARE(m_f->settings.value(*setting), initial);
}

void TestGeneralSettingsTab::triggerPickerWritesOncePerChange()
{
    QComboBox* trigger = m_f->find<QComboBox>(u"triggerModifier"_s);
    QCOMPARE(trigger->currentText(), u"Left Control"_s); // the default
    trigger->setFocus();
    QTest::keyClick(trigger, Qt::Key_Down);
    QCOMPARE(m_f->settings.value(SettingKeys::triggerModifier()), TriggerModifier::rightCommand);
    QTest::keyClick(trigger, Qt::Key_Down);
    QTest::keyClick(trigger, Qt::Key_Down);
    QCOMPARE(m_f->settings.value(SettingKeys::triggerModifier()), TriggerModifier::leftOption);
    // Choosing the trigger that is already set is no change.
    emit trigger->activated(trigger->currentIndex());

    // A change made elsewhere only shows.
    m_f->settings.setValue(SettingKeys::triggerModifier(), TriggerModifier::capsLock);
    QCOMPARE(trigger->currentText(), u"Caps Lock"_s);
}

void TestGeneralSettingsTab::explanationFollowsTheTrigger()
{
    QLabel* explanation = m_f->find<QLabel>(u"autoHideExplanation"_s);
    QCOMPARE(explanation->text(),
        u"Hover the keyboard and tap Left Control to toggle.\nWhen enabled, the keyboard fades and lets clicks pass "
        u"through while you hover over it."_s);
    m_f->settings.setValue(SettingKeys::triggerModifier(), TriggerModifier::leftOption);
    QCOMPARE(explanation->text().section(u'\n', 0, 0), u"Hover the keyboard and tap Left Option to toggle."_s);

    QComboBox* trigger = m_f->find<QComboBox>(u"triggerModifier"_s);
    trigger->setFocus();
    QTest::keyClick(trigger, Qt::Key_Down);
    QCOMPARE(explanation->text().section(u'\n', 0, 0), u"Hover the keyboard and tap Right Option to toggle."_s);
}

void TestGeneralSettingsTab::slidersShowStoredValuesAboveTheirRange()
{
    m_f->settings.setValue(SettingKeys::autoHideOpacity(), 0.8);
    m_f->settings.setValue(SettingKeys::glowDecay(), 1.25);
    SliderRow* opacity = m_f->find<SliderRow>(u"autoHideOpacity"_s);
    SliderRow* decay = m_f->find<SliderRow>(u"glowDecay"_s);
    QCOMPARE(opacity->valueLabel()->text(), u"0.80"_s);
    QCOMPARE(decay->valueLabel()->text(), u"1.25s"_s);
    GradientSlider* slider = opacity->slider();
    QCOMPARE(slider->knobCentreX(), slider->width() - slider->knobDiameter() / 2);
    QCOMPARE(m_f->settings.value(SettingKeys::autoHideOpacity()), 0.8);

    // The furthest the slider goes is the end of its range.
    QTest::mouseClick(slider, Qt::LeftButton, {}, QPoint(slider->width() - 1, slider->height() / 2));
    QCOMPARE(m_f->settings.value(SettingKeys::autoHideOpacity()), 0.5);
    QCOMPARE(opacity->valueLabel()->text(), u"0.50"_s);
    QTest::mouseClick(decay->slider(), Qt::LeftButton, {}, QPoint(decay->slider()->width() / 2, 5));
    QCOMPARE(m_f->settings.value(SettingKeys::glowDecay()), 1.0);
    QCOMPARE(decay->valueLabel()->text(), u"1.00s"_s);
}

void TestGeneralSettingsTab::editsFromOutsideShowWithoutWritingBack()
{
    {
        // Another process with the same settings file.
        SettingsStore other(m_f->settings.filePath());
        other.setValue(SettingKeys::autoHideOnHover(), true);
        other.setValue(SettingKeys::enableGlobalHotkey(), false);
        other.setValue(SettingKeys::glowDecay(), 0.5);
        other.setValue(SettingKeys::triggerModifier(), TriggerModifier::rightCommand);
        other.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(0x140000));
        other.setValue(SettingKeys::hyperKeyShowAsCapsLock(), false);
    }
    const QByteArray written = [&] {
        QFile file(m_f->settings.filePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }();
    QTRY_VERIFY(m_f->find<SwitchRow>(u"autoHideOnHover"_s)->isChecked());
    QTRY_COMPARE(m_f->find<SegmentedControl>(u"hyperKeyShowAsCapsLock"_s)->currentIndex(), 1);
    QVERIFY(!m_f->find<SwitchRow>(u"enableGlobalHotkey"_s)->isChecked());
    QCOMPARE(m_f->find<SliderRow>(u"glowDecay"_s)->valueLabel()->text(), u"0.50s"_s);
    QCOMPARE(m_f->find<QComboBox>(u"triggerModifier"_s)->currentText(), u"Right Command"_s);
    QVERIFY(m_f->find<QLabel>(u"autoHideExplanation"_s)->text().contains(u"tap Right Command to"_s));
    QCOMPARE(m_f->find<QLabel>(u"hyperKeyModifiers"_s)->text(), u"lctrl, lcmd"_s);

    QFile file(m_f->settings.filePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), written);
}

void TestGeneralSettingsTab::refusedLaunchAtLoginTurnsTheSwitchBack()
{
    // The autostart folder would have to be made inside a plain file.
    QFile blocker(m_f->dir.filePath(u"autostart"_s));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    LaunchAtLogin launch(m_f->settings, m_f->dir.filePath(u"autostart/ordalis.desktop"_s), u"/usr/bin/ordalis"_s);

    SwitchRow* row = m_f->find<SwitchRow>(u"launchAtLogin"_s);
    QTest::mouseClick(row->toggle(), Qt::LeftButton);
    QVERIFY(!m_f->settings.value(SettingKeys::launchAtLogin()));
    QVERIFY(!row->isChecked());
}

void TestGeneralSettingsTab::hyperKeyRecordingTakesOneCombination()
{
    auto* record = m_f->find<QPushButton>(u"recordHyperKey"_s);
    QLabel* combination = m_f->find<QLabel>(u"hyperKeyModifiers"_s);
    QCOMPARE(combination->text(), QString());

    // Started and stopped by hand: nothing is stored.
    QTest::mouseClick(record, Qt::LeftButton);
    QVERIFY(m_f->tab->isRecordingHyperKey());
    QVERIFY(m_f->monitor.isRecordingHyperKey());
    QCOMPARE(record->text(), u"Press Caps Lock..."_s);
    QTest::mouseClick(record, Qt::LeftButton);
    QVERIFY(!m_f->monitor.isRecordingHyperKey());
    QCOMPARE(record->text(), u"Record HyperKey"_s);
    m_f->pressHyperKey(0x1E0000);
    QVERIFY(!m_f->settings.hasStoredEntry(u"hyperKeyModifiers"_s));

    QTest::mouseClick(record, Qt::LeftButton);
    // Shift alone without Caps Lock held is no combination.
    m_f->monitor.handleFlagsChanged(0x20002, 56);
    QVERIFY(m_f->tab->isRecordingHyperKey());
    m_f->pressHyperKey(0x1E0000 | 0x800000);
    QCOMPARE(m_f->settings.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0x1E0000));
    QVERIFY(!m_f->tab->isRecordingHyperKey());
    QVERIFY(!m_f->monitor.isRecordingHyperKey());
    QCOMPARE(record->text(), u"Record HyperKey"_s);
    QCOMPARE(combination->text(), u"lshift, lctrl, lalt, lcmd"_s);

    // One recording only: the next combination is not taken.
    m_f->pressHyperKey(0x40000);
    QCOMPARE(m_f->settings.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0x1E0000));
    QCoreApplication::processEvents();
    QVERIFY(!m_f->tab->isRecordingHyperKey());
}

void TestGeneralSettingsTab::hyperKeyRecordingEndsWithTheTab()
{
    auto* record = m_f->find<QPushButton>(u"recordHyperKey"_s);
    QTest::mouseClick(record, Qt::LeftButton);
    m_f->tab->hide(); // the window closed, or another tab chosen
    QVERIFY(!m_f->monitor.isRecordingHyperKey());
    QVERIFY(!m_f->tab->isRecordingHyperKey());
    m_f->tab->show();

    QTest::mouseClick(record, Qt::LeftButton);
    QVERIFY(m_f->monitor.isRecordingHyperKey());
    m_f->tab.reset();
    QVERIFY(!m_f->monitor.isRecordingHyperKey());
    m_f->monitor.setRecordingHyperKey(true);
    m_f->pressHyperKey(0x1E0000); // no callback left behind to store it
    QVERIFY(!m_f->settings.hasStoredEntry(u"hyperKeyModifiers"_s));
}

void TestGeneralSettingsTab::hyperKeyClearAndDisplayChoice()
{
    auto* clear = m_f->find<QToolButton>(u"clearHyperKey"_s);
    QCOMPARE(clear->text(), u"Clear"_s);
    QVERIFY(clear->isHidden());
    m_f->settings.setValue(SettingKeys::hyperKeyModifiers(), std::uint64_t(0x40000));
    QVERIFY(!clear->isHidden());
    QTest::mouseClick(clear, Qt::LeftButton);
    QCOMPARE(m_f->settings.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0));
    QVERIFY(m_f->settings.hasStoredEntry(u"hyperKeyModifiers"_s));
    QVERIFY(clear->isHidden());

    auto* showAs = m_f->find<SegmentedControl>(u"hyperKeyShowAsCapsLock"_s);
    QCOMPARE(showAs->segment(0)->text(), u"Caps Lock"_s);
    QCOMPARE(showAs->segment(1)->text(), u"Modifiers"_s);
    QCOMPARE(showAs->currentIndex(), 0);
    QTest::mouseClick(showAs->segment(1), Qt::LeftButton);
    QVERIFY(!m_f->settings.value(SettingKeys::hyperKeyShowAsCapsLock()));
    // The arrow keys move between the choices and take them.
    m_f->tab->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_f->tab.get()));
    showAs->segment(1)->setFocus(Qt::TabFocusReason);
    QTest::keyClick(showAs->segment(1), Qt::Key_Left);
    QVERIFY(m_f->settings.value(SettingKeys::hyperKeyShowAsCapsLock()));
}

void TestGeneralSettingsTab::updatesSection()
{
    auto* section = m_f->tab->findChild<UpdaterSettingsSection*>();
    QVERIFY(section);
    QCOMPARE(section->title(), u"Updates"_s);
    QCOMPARE(section->icon(), u"arrow.triangle.2.circlepath"_s);
    QCOMPARE(section->spacing(), 0.0);
    QCOMPARE(section->versionLabel()->text(), u"Version 2.4.1"_s);
    QCOMPARE(UpdaterSettingsSection::versionText({}), u"Version ?"_s);
    QCOMPARE(section->checkButton()->text(), u"Check for Updates\u2026"_s);
    QComboBox* interval = section->intervalPicker();
    QCOMPARE(interval->count(), 3);
    QCOMPARE(interval->itemText(1), u"Every 3 days"_s);

    // Off by default: the interval waits until automatic checks are on.
    QVERIFY(!section->automaticRow()->isChecked());
    QVERIFY(!interval->isEnabled());
    QTest::mouseClick(section->automaticRow()->toggle(), Qt::LeftButton);
    QVERIFY(m_f->updater.automaticallyChecksForUpdates());
    QVERIFY(interval->isEnabled());

    // Another tool's interval reads as weekly; choosing a case writes its seconds exactly.
    m_f->settings.setValue(SettingKeys::updateCheckInterval(), 3600.0);
    QCOMPARE(interval->currentText(), u"Weekly"_s);
    interval->setFocus();
    QTest::keyClick(interval, Qt::Key_Up);
    QCOMPARE(m_f->settings.value(SettingKeys::updateCheckInterval()), 259200.0);

    m_f->updater.setAutomaticallyChecksForUpdates(false);
    QVERIFY(!section->automaticRow()->isChecked());
    QVERIFY(!interval->isEnabled());

    QTest::mouseClick(section->checkButton(), Qt::LeftButton);
    QVERIFY(m_f->updater.isChecking());
}

QTEST_MAIN(TestGeneralSettingsTab)
#include "testgeneralsettingstab.moc"
