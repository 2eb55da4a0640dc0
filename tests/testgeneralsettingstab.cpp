// SPDX-License-Identifier: GPL-3.0-or-later
// The General tab on the offscreen platform, with a real settings store, key state monitor and updater.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "input/keyboardmonitor.h"
#include "input/triggermodifier.h"
#include "keyboard/keylabelsettings.h"
#include "settingsdump.h"
#include "testsupport.h"
#include "ui/generalsettingstab.h"
#include "ui/gradientslider.h"
#include "ui/layoutpicker.h"
#include "ui/toggleswitch.h"
#include "ui/updatersettingssection.h"

#include <QListView>
#include <QPushButton>
#include <QScreen>
#include <QTemporaryDir>
#include <QLineEdit>
#include <QTest>
#include <QToolButton>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr ModifierFlags capsLockFlag = 0x10000;

// The layouts the key label picker offers, read from XKB_CONFIG_ROOT instead of the installed xkb-data.
constexpr char registry[] = R"(<xkbConfigRegistry><layoutList>
<layout><configItem><name>us</name><description>English (US)</description></configItem></layout>
<layout><configItem><name>de</name><description>German</description></configItem>
  <variantList><variant><configItem><name>nodeadkeys</name><description>German (no dead keys)</description>
  </configItem></variant></variantList></layout>
<layout><configItem><name>at</name><description>German (Austria)</description></configItem></layout>
<layout><configItem><name>fr</name><description>French</description></configItem>
  <variantList><variant><configItem><name>bepo</name><description>French (BÉPO, ergonomic, Dvořák way)</description>
  </configItem></variant></variantList></layout>
</layoutList></xkbConfigRegistry>)";

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
    { KEY(showTrackpad), "true" },
    { KEY(pauseWhenLocked), "false" },
    { KEY(pauseForPasswordPrompts), "false" },
    { KEY(pauseForPrivateApps), "false" },
    { "keyboardShape",
        [](const SettingsStore& s) { return KeyboardShapes::rawValue(s.value(SettingKeys::keyboardShape())); },
        "ansi" },
};

} // namespace

class TestGeneralSettingsTab final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_f.reset(); }

    void wholeTab();
    void controls_data();
    void controls();
    void keyLabelsPicker_data();
    void keyLabelsPicker();
    void keyboardSectionFollowsSettings();
    void keyLabelsPickerOpening_data();
    void keyLabelsPickerOpening();
    void hyperKeyRecordingTakesOneCombination();
    void privateAppsList();
    void updatesSection();

private:
    void make(bool withUpdater)
    {
        m_f.reset();
        m_f = std::make_unique<Fixture>(withUpdater);
        QVERIFY(QTest::qWaitForWindowExposed(m_f->tab.get()));
    }

    std::unique_ptr<Fixture> m_f;
    QTemporaryDir m_xkbRoot;
};

void TestGeneralSettingsTab::initTestCase()
{
    QVERIFY(QDir(m_xkbRoot.path()).mkpath(u"rules"_s));
    QFile file(m_xkbRoot.filePath(u"rules/evdev.xml"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(registry);
    file.close();
    qputenv("XKB_CONFIG_ROOT", QFile::encodeName(m_xkbRoot.path()));
}

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
            u"[ ] Press `esc` to hide while hovering"_s, u"Show On"_s, u"<Screen with Pointer>"_s,
            u"[ ] Auto-hide on hover (click-through)"_s,
            u"Hover the keyboard and tap Left Control to toggle.\nWhen enabled, the keyboard fades and lets clicks "
            u"pass through while you hover over it."_s,
            u"Hide opacity = 0.10"_s, u"Glow decay = 0.15s"_s, u"# Updates (arrow.triangle.2.circlepath)"_s,
            u"Version 2.4.1"_s, u"(Check for Updates…)"_s, u"[ ] Check for updates automatically"_s,
            u"  <Daily> (off)"_s, u"# Keyboard (keyboard)"_s, u"Key Labels"_s, u"(Follow Keyboard Layout)"_s,
            u"Keyboard Shape"_s, u"*Automatic | ANSI | ISO"_s, u"[ ] Show Trackpad"_s,
            u"Labels follow the layout you type with. ISO keyboards have a tall Return and one more key left of Z. "
            u"The trackpad shows clicks and scrolling."_s,
            u"# Privacy (lock.fill)"_s, u"[x] Hide keys while the screen is locked"_s,
            u"[x] Hide keys while a password prompt is open"_s, u"[x] Hide keys while these apps have the focus:"_s,
            u"[Window classes, separated by commas|KeePassXC, Bitwarden, 1Password, Seahorse]"_s,
            u"While keys are hidden the keyboard stays, nothing lights and a lock shows on it. Apps are matched by "
            u"window class (X11; on Wayland only where the desktop tells which window has the focus). \"Pause "
            u"Showing Keys\" in the menus hides keys by hand."_s,
            u"# HyperKey (capslock)"_s,
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

void TestGeneralSettingsTab::keyLabelsPicker_data()
{
    QTest::addColumn<QString>("search");
    // Keys pressed in the search field afterwards; 0 clicks the highlighted row instead.
    QTest::addColumn<QList<int>>("keys");
    QTest::addColumn<int>("listed");
    QTest::addColumn<QString>("stored");

    const int enter = Qt::Key_Return;
    QTest::newRow("first match") << u"german"_s << QList { enter } << 6 << u"de"_s;
    QTest::newRow("arrow down") << u"german"_s << QList { int(Qt::Key_Down), enter } << 6 << u"at"_s;
    QTest::newRow("by name") << u"NODEAD"_s << QList { enter } << 4 << u"de(nodeadkeys)"_s;
    QTest::newRow("accents and words") << u"DVORAK fren"_s << QList { 0 } << 4 << u"fr(bepo)"_s;
    QTest::newRow("fixed choices stay") << u"zzz"_s << QList { enter, int(Qt::Key_Down), int(Qt::Key_Down), enter } << 2
                                        << u"printed"_s;
    QTest::newRow("up skips the separator") << u"french"_s << QList { int(Qt::Key_Up), enter } << 5 << u"printed"_s;
    QTest::newRow("escape") << u"german"_s << QList { int(Qt::Key_Escape) } << 6 << u"follow"_s;
}

void TestGeneralSettingsTab::keyLabelsPicker()
{
    QFETCH(QString, search);
    QFETCH(QList<int>, keys);
    QFETCH(int, listed);
    QFETCH(QString, stored);
    auto* picker = m_f->tab->findChild<LayoutPicker*>(u"keyLabels"_s);
    QTest::mouseClick(picker, Qt::LeftButton);
    LayoutPopup* popup = picker->popup();
    QVERIFY(popup && popup->isVisible());
    QCOMPARE(popup->searchField()->placeholderText(), u"Search layouts"_s);
    QTest::keyClicks(popup->searchField(), search);
    QCOMPARE(popup->list()->model()->rowCount(), listed);
    for (int key : keys) {
        if (key == 0) {
            QListView* list = popup->list();
            QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualRect(list->currentIndex()).center());
        } else {
            QTest::keyClick(popup->searchField(), Qt::Key(key));
        }
    }
    QVERIFY(!popup->isVisible());
    QCOMPARE(m_f->settings.value(SettingKeys::keyLabels()).rawValue(), stored);
    QCOMPARE(picker->text(), m_f->settings.value(SettingKeys::keyLabels()).displayName());
}

void TestGeneralSettingsTab::keyboardSectionFollowsSettings()
{
    m_f->settings.setValue(SettingKeys::keyLabels(), *KeyLabels::fromRawValue(u"de(nodeadkeys)"));
    m_f->settings.setValue(SettingKeys::keyboardShape(), KeyboardShape::iso);
    QCOMPARE(settingsDump(m_f->tab->keyboardSection()->content()).mid(1, 3),
        (QStringList { u"(German (no dead keys))"_s, u"Keyboard Shape"_s, u"Automatic | ANSI | *ISO"_s }));

    // Reopened, the picker starts from the chosen layout, with the search cleared.
    auto* picker = m_f->tab->findChild<LayoutPicker*>(u"keyLabels"_s);
    for (int round = 0; round < 2; ++round) {
        QTest::mouseClick(picker, Qt::LeftButton);
        QCOMPARE(picker->popup()->searchField()->text(), QString());
        QCOMPARE(picker->popup()->list()->currentIndex().data().toString(), u"German (no dead keys)"_s);
        QTest::keyClicks(picker->popup()->searchField(), u"fr"_s);
        QTest::keyClick(picker->popup()->searchField(), Qt::Key_Escape);
    }
    QCOMPARE(m_f->settings.value(SettingKeys::keyLabels()).rawValue(), u"de(nodeadkeys)"_s);
}

void TestGeneralSettingsTab::keyLabelsPickerOpening_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("search");
    // Where the tab's window sits: low on the screen, the popup opens above the picker.
    QTest::addColumn<bool>("low");
    QTest::newRow("F4") << int(Qt::Key_F4) << QString() << false;
    QTest::newRow("arrow") << int(Qt::Key_Down) << QString() << true;
    QTest::newRow("letter") << int(Qt::Key_G) << u"g"_s << false;
}

void TestGeneralSettingsTab::keyLabelsPickerOpening()
{
    QFETCH(int, key);
    QFETCH(QString, search);
    QFETCH(bool, low);
    auto* picker = m_f->tab->findChild<LayoutPicker*>(u"keyLabels"_s);
    m_f->tab->ensureWidgetVisible(picker);
    const QRect screen = picker->screen()->availableGeometry();
    const int pickerY = low ? screen.bottom() - 60 : screen.top() + 60;
    m_f->tab->move(m_f->tab->pos() + QPoint(0, pickerY - picker->mapToGlobal(QPoint()).y()));

    picker->setFocus();
    QTest::keyClick(picker, Qt::Key(key), {});
    LayoutPopup* popup = picker->popup();
    QVERIFY(popup && popup->isVisible());
    QCOMPARE(popup->searchField()->text(), search);
    const QRect around(picker->mapToGlobal(QPoint()), picker->size());
    QVERIFY(screen.contains(popup->geometry()));
    QCOMPARE(low ? popup->geometry().bottom() < around.top() : popup->geometry().top() > around.bottom(), true);
}

void TestGeneralSettingsTab::privateAppsList()
{
    // Kept trimmed, without empty entries or repeats (any letter case), each cut to 256 characters, at most 200.
    using Tab = GeneralSettingsTab;
    QCOMPARE(Tab::privateAppClassesFromText(u" KeePassXC ,, keepassxc,\tBitwarden ,"_s),
        (QStringList { u"KeePassXC"_s, u"Bitwarden"_s }));
    QCOMPARE(Tab::privateAppClassesFromText(u" , ,"_s), QStringList());
    QCOMPARE(Tab::privateAppClassesFromText(QString(5000, u'x')), QStringList { QString(256, u'x') });
    QStringList many;
    for (int i = 0; i < 500; ++i)
        many << u"app%1"_s.arg(i);
    QCOMPARE(Tab::privateAppClassesFromText(many.join(u","_s)).size(), 200);

    // Edited in the tab, written as a list when the field is left.
    auto* field = m_f->tab->findChild<QLineEdit*>(SettingKeys::privateAppClasses().name());
    QVERIFY(field);
    field->setText(u"Gajim, , org.keepassxc.KeePassXC"_s);
    emit field->editingFinished();
    QCOMPARE(m_f->settings.value(SettingKeys::privateAppClasses()),
        (QStringList { u"Gajim"_s, u"org.keepassxc.KeePassXC"_s }));
    QCOMPARE(field->text(), u"Gajim, org.keepassxc.KeePassXC"_s);
}

void TestGeneralSettingsTab::hyperKeyRecordingTakesOneCombination()
{
    auto* record = m_f->tab->findChild<QPushButton*>(u"recordHyperKey"_s);
    auto* clear = m_f->tab->findChild<QToolButton*>(u"clearHyperKey"_s);
    QTest::mouseClick(record, Qt::LeftButton);
    QCOMPARE(record->text(), u"Press Caps Lock..."_s);
    m_f->pressHyperKey(0x1E0000 | 0x800000);
    QCOMPARE(m_f->settings.value(SettingKeys::hyperKeyModifiers()), std::uint64_t(0x1E0000));
    const QStringList dumped = settingsDump(m_f->tab->widget());
    QCOMPARE(dumped.mid(dumped.indexOf(u"# HyperKey (capslock)"_s) + 2, 3),
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
    QCOMPARE(settingsDump(m_f->tab->widget()).mid(13, 4),
        (QStringList { u"# Updates (arrow.triangle.2.circlepath)"_s, u"Version 3.0"_s,
            u"Updates come from your package manager."_s, u"# Keyboard (keyboard)"_s }));
}

QTEST_MAIN(TestGeneralSettingsTab)
#include "testgeneralsettingstab.moc"
