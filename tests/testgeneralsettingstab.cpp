// SPDX-License-Identifier: GPL-3.0-or-later
// The General tab on the offscreen platform, with a real settings store, key state monitor and updater.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "input/keyboardmonitor.h"
#include "input/triggermodifier.h"
#include "settingsdump.h"
#include "testsupport.h"
#include "ui/generalsettingstab.h"
#include "ui/gradientslider.h"
#include "ui/toggleswitch.h"
#include "ui/updatersettingssection.h"

#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr ModifierFlags capsLockFlag = 0x10000;

struct Fixture
{
    explicit Fixture(bool withUpdater)
    {
        tab = std::make_unique<GeneralSettingsTab>(*store, &monitor, withUpdater ? &updater : nullptr);
        tab->resize(560, 1000);
        tab->show();
    }

    /** Caps Lock held and a modifier report from the second source, as a remapped Caps Lock sends it. */
    void pressHyperKey(ModifierFlags flags)
    {
        monitor.handleCapsLockKey(true);
        monitor.handleFlagsChanged(flags | capsLockFlag, 56);
        monitor.handleFlagsChanged(capsLockFlag, 56);
        monitor.handleCapsLockKey(false);
    }

    TestSupport::TemporaryStore store;
    SettingsStore& settings = *store;
    ManualClock clock;
    KeyboardMonitor monitor { settings, clock };
    UpdaterManager updater { settings, clock,
        UpdaterEnvironment { QUrl(u"http://127.0.0.1:9/feed.json"_s), u"2.4.1"_s, {} } };
    std::unique_ptr<GeneralSettingsTab> tab;
};

/** What the user does with the control named `name`: flips a switch, takes the next trigger (then the same one
 * again), clicks a slider's track at 0.999 of its width or picks the second segment. */
void use(Fixture& f, const QString& name)
{
    QWidget* control = f.tab->findChild<QWidget*>(name);
    if (auto* row = qobject_cast<SwitchRow*>(control)) {
        QTest::mouseClick(row->toggle(), Qt::LeftButton);
    } else if (auto* picker = qobject_cast<QComboBox*>(control)) {
        picker->setFocus();
        QTest::keyClick(picker, Qt::Key_Down);
        emit picker->activated(picker->currentIndex());
    } else if (auto* slider = qobject_cast<SliderRow*>(control)) {
        QTest::mouseClick(slider->slider(), Qt::LeftButton, {},
            QPoint(int(slider->slider()->width() * 0.999), slider->slider()->height() / 2));
    } else if (auto* segments = qobject_cast<SegmentedControl*>(control)) {
        QTest::mouseClick(segments->segment(1), Qt::LeftButton);
    }
}

/** One control, named like its setting, and what the store holds after use(), as text. */
struct Row
{
    const char* name;
    std::function<QString(const SettingsStore&)> stored;
    const char* afterUse;
};

#define KEY(key)                                                                                                       \
#key, [](const SettingsStore& s) { return QVariant::fromValue(s.value(SettingKeys::key())).toString(); }

const QList<Row> rows {
    { KEY(enableGlobalHotkey), "false" },
    { KEY(launchAtLogin), "true" },
    { KEY(showOnScreenRecording), "false" },
    { KEY(hideOnScreenRecordingEnd), "true" },
    { KEY(escapeToHideOnHover), "true" },
    { KEY(autoHideOnHover), "true" },
    { "triggerModifier",
        [](const SettingsStore& s) { return TriggerModifiers::displayName(s.value(SettingKeys::triggerModifier())); },
        "Right Command" },
    { KEY(autoHideOpacity), "0.5" },
    { KEY(glowDecay), "2" },
    { KEY(hyperKeyShowAsCapsLock), "false" },
};

} // namespace

class TestGeneralSettingsTab final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_f.reset(); }

    void wholeTab();
    void controls_data();
    void controls();
    void hyperKeyRecordingTakesOneCombination();
    void updatesSection();

private:
    void make(bool withUpdater)
    {
        m_f.reset();
        m_f = std::make_unique<Fixture>(withUpdater);
        QVERIFY(QTest::qWaitForWindowExposed(m_f->tab.get()));
    }

    std::unique_ptr<Fixture> m_f;
};

void TestGeneralSettingsTab::init()
{
    make(true);
}

void TestGeneralSettingsTab::wholeTab()
{
    QCOMPARE(settingsDump(m_f->tab->widget()),
        (QStringList { u"# Behaviour (keyboard.badge.ellipsis)"_s, u"[x] Triple-tap modifier to show/hide keyboard"_s,
            u"  <Left Control>"_s, u"[ ] Launch at Login"_s, u"[x] Show when Screen Recording starts"_s,
            u"[ ] Hide when Screen Recording ends (happens with a 5s delay because of system limitations)"_s,
            u"[ ] Press `esc` to hide while hovering"_s, u"[ ] Auto-hide on hover (click-through)"_s,
            u"Hover the keyboard and tap Left Control to toggle.\nWhen enabled, the keyboard fades and lets clicks "
            u"pass through while you hover over it."_s,
            u"Hide opacity = 0.10"_s, u"Glow decay = 0.15s"_s, u"# Updates (arrow.triangle.2.circlepath)"_s,
            u"Version 2.4.1"_s, u"(Check for Updates…)"_s, u"[ ] Check for updates automatically"_s,
            u"  <Daily> (off)"_s, u"# HyperKey (capslock)"_s,
            u"If you use an app like HyperKey that remaps Caps Lock to a modifier combo, record it here so the "
            u"keyboard shows the right keys."_s,
            u"(Record HyperKey)"_s, u"When HyperKey is held, show:"_s, u"*Caps Lock | Modifiers"_s }));
}

void TestGeneralSettingsTab::controls_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < rows.size(); ++i)
        QTest::newRow(rows[i].name) << i;
}

void TestGeneralSettingsTab::controls()
{
    QFETCH(int, index);
    const Row& row = rows[index];
    const QString name = QString::fromLatin1(row.name);
    use(*m_f, name);
    QCOMPARE(row.stored(m_f->settings), QString::fromUtf8(row.afterUse));
}

void TestGeneralSettingsTab::hyperKeyRecordingTakesOneCombination()
{
    auto* record = m_f->tab->findChild<QPushButton*>(u"recordHyperKey"_s);
    auto* clear = m_f->tab->findChild<QToolButton*>(u"clearHyperKey"_s);
    QTest::mouseClick(record, Qt::LeftButton);
    QCOMPARE(record->text(), u"Press Caps Lock..."_s);
    m_f->pressHyperKey(0x1E0000 | 0x800000);
    QCOMPARE(m_f->settings.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0x1E0000));
    QCOMPARE(settingsDump(m_f->tab->widget()).mid(18, 3),
        (QStringList { u"(Record HyperKey)"_s, u"lshift, lctrl, lalt, lcmd"_s, u"(Clear)"_s }));

    QTest::mouseClick(clear, Qt::LeftButton);
    QCOMPARE(m_f->settings.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0));

    // Recording ends when the window closes or another tab is chosen.
    QTest::mouseClick(record, Qt::LeftButton);
    m_f->tab->hide();
    m_f->pressHyperKey(0x40000);
    QCOMPARE(m_f->settings.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0));
}

void TestGeneralSettingsTab::updatesSection()
{
    auto* section = m_f->tab->findChild<UpdaterSettingsSection*>();
    const auto lines = [section] { return settingsDump(section->content(), section); };
    QTest::mouseClick(section->automaticRow()->toggle(), Qt::LeftButton);
    QVERIFY(m_f->updater.automaticallyChecksForUpdates());
    // Another tool's interval reads as weekly; choosing a case writes its seconds exactly.
    m_f->settings.setValue(SettingKeys::updateCheckInterval(), 3600.0);
    QCOMPARE(lines().mid(2), (QStringList { u"[x] Check for updates automatically"_s, u"  <Weekly>"_s }));
    section->intervalPicker()->setFocus();
    QTest::keyClick(section->intervalPicker(), Qt::Key_Up);
    QCOMPARE(m_f->settings.value(SettingKeys::updateCheckInterval()), 259200.0);
    // Switched off elsewhere, the interval waits again.
    m_f->updater.setAutomaticallyChecksForUpdates(false);
    QCOMPARE(lines().mid(2), (QStringList { u"[ ] Check for updates automatically"_s, u"  <Every 3 days> (off)"_s }));

    QTest::mouseClick(section->checkButton(), Qt::LeftButton);
    QVERIFY(m_f->updater.isChecking());

    // Without a feed, updates come from the package manager.
    QCoreApplication::setApplicationVersion(u"3.0"_s);
    make(false);
    QCOMPARE(settingsDump(m_f->tab->widget()).mid(11, 4),
        (QStringList { u"# Updates (arrow.triangle.2.circlepath)"_s, u"Version 3.0"_s,
            u"Updates come from your package manager."_s, u"# HyperKey (capslock)"_s }));
}

QTEST_MAIN(TestGeneralSettingsTab)
#include "testgeneralsettingstab.moc"
