// SPDX-License-Identifier: GPL-3.0-or-later
// Rows and their bindings to settings, on the offscreen platform.
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "ui/gradientslider.h"
#include "ui/settingsrows.h"
#include "ui/toggleswitch.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class TestSettingsRows final : public QObject
{
    Q_OBJECT

private slots:
    void sliderRowShowsTheStoredValueAndWritesMoves();
    void sliderBoundToAThemeFieldWritesOnlyThatField();
    void switchRowTogglesFromItsTextAndFollowsItsKey();
};

void TestSettingsRows::sliderRowShowsTheStoredValueAndWritesMoves()
{
    QTemporaryDir dir;
    SettingsStore store(dir.filePath(u"settings.json"_s));
    store.setValue(SettingKeys::glowDecay(), 2.5);
    SliderRow row(u"Glow decay"_s, 0, 2, u"%.2fs"_s);
    SettingsBinding::bindSlider(&row, store, SettingKeys::glowDecay());
    row.resize(400, row.sizeHint().height());
    row.show();
    QVERIFY(QTest::qWaitForWindowExposed(&row));

    QCOMPARE(row.label()->width(), SettingsLayout::labelWidth);
    QCOMPARE(row.valueLabel()->width(), SettingsLayout::valueWidth);
    QCOMPARE(row.valueLabel()->text(), u"2.50s"_s);
    QCOMPARE(row.slider()->accessibleName(), u"Glow decay"_s);

    // Following a change writes nothing back.
    QSignalSpy written(&store, &SettingsStore::valueChanged);
    store.setValue(SettingKeys::glowDecay(), 0.3);
    QCOMPARE(row.valueLabel()->text(), u"0.30s"_s);
    QCOMPARE(written.size(), 1);

    GradientSlider* slider = row.slider();
    QTest::mouseClick(slider, Qt::LeftButton, {}, QPoint(slider->width() - 1, slider->height() / 2));
    QCOMPARE(store.value(SettingKeys::glowDecay()), 2.0);
    QCOMPARE(row.valueLabel()->text(), u"2.00s"_s);
}

void TestSettingsRows::sliderBoundToAThemeFieldWritesOnlyThatField()
{
    QTemporaryDir dir;
    SettingsStore store(dir.filePath(u"settings.json"_s));
    ThemeConfig theme = store.value(SettingKeys::activeThemeConfig());
    theme.chassisHue = 0.25;
    store.setValue(SettingKeys::activeThemeConfig(), theme);

    SliderRow row(u"Hue"_s, 0, 1, u"%.2f"_s, GradientSlider::hueGradient(0, 0));
    SettingsBinding::bindSlider(&row, store, SettingKeys::activeThemeConfig(), &ThemeConfig::chassisHue);
    QCOMPARE(row.value(), 0.25);
    row.resize(400, row.sizeHint().height());
    row.show();
    QVERIFY(QTest::qWaitForWindowExposed(&row));

    QTest::mouseClick(row.slider(), Qt::LeftButton, {}, QPoint(0, row.slider()->height() / 2));
    ThemeConfig expected = theme;
    expected.chassisHue = 0.0;
    QCOMPARE(store.value(SettingKeys::activeThemeConfig()), expected);

    theme.chassisHue = 0.75;
    theme.keySpacing = 9;
    store.setValue(SettingKeys::activeThemeConfig(), theme);
    QCOMPARE(row.value(), 0.75);
    QCOMPARE(row.valueLabel()->text(), u"0.75"_s);
}

void TestSettingsRows::switchRowTogglesFromItsTextAndFollowsItsKey()
{
    QTemporaryDir dir;
    SettingsStore store(dir.filePath(u"settings.json"_s));
    SwitchRow row(u"Press `esc` to hide while hovering"_s);
    SettingsBinding::bindSwitch(&row, store, SettingKeys::escapeToHideOnHover());
    row.show();
    QVERIFY(QTest::qWaitForWindowExposed(&row));
    QCOMPARE(row.label()->text(), u"Press `esc` to hide while hovering"_s);
    QCOMPARE(row.toggle()->text(), row.label()->text()); // its accessible name
    QVERIFY(!row.isChecked());

    QSignalSpy toggled(&row, &SwitchRow::toggled);
    QTest::mouseClick(row.label(), Qt::LeftButton);
    QVERIFY(store.value(SettingKeys::escapeToHideOnHover()));
    QTest::mouseClick(row.toggle(), Qt::LeftButton);
    QVERIFY(!store.value(SettingKeys::escapeToHideOnHover()));
    row.toggle()->setFocus(Qt::TabFocusReason);
    QTest::keyClick(row.toggle(), Qt::Key_Space);
    QVERIFY(store.value(SettingKeys::escapeToHideOnHover()));
    QCOMPARE(toggled.size(), 3);

    store.setValue(SettingKeys::escapeToHideOnHover(), false);
    QVERIFY(!row.isChecked());
    QCOMPARE(toggled.size(), 3);
}

QTEST_MAIN(TestSettingsRows)
#include "testsettingsrows.moc"
