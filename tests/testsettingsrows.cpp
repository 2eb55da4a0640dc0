// SPDX-License-Identifier: GPL-3.0-or-later
// Rows and their bindings to settings, on the offscreen platform. The General and Styling tab tests drive every
// bound row; this covers what only the rows themselves decide.
#include "testsupport.h"
#include "base/settingkeys.h"
#include "ui/gradientslider.h"
#include "ui/settingsrows.h"
#include "ui/toggleswitch.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

class TestSettingsRows final : public QObject
{
    Q_OBJECT

private slots:
    void switchRowTogglesFromItsTextUnlessDisabled();
    void sliderBoundToAThemeFieldWritesOnlyThatField();
};

void TestSettingsRows::switchRowTogglesFromItsTextUnlessDisabled()
{
    TestSupport::TemporaryStore store;
    SwitchRow row(u"Press `esc` to hide while hovering"_s);
    SettingsBinding::bindSwitch(&row, *store, SettingKeys::escapeToHideOnHover());
    row.show();
    QVERIFY(QTest::qWaitForWindowExposed(&row));
    QCOMPARE(row.toggle()->text(), row.label()->text()); // its accessible name

    QSignalSpy toggled(&row, &SwitchRow::toggled);
    QTest::mouseClick(row.label(), Qt::LeftButton);
    QVERIFY(store->value(SettingKeys::escapeToHideOnHover()));
    row.toggle()->setFocus(Qt::TabFocusReason);
    QTest::keyClick(row.toggle(), Qt::Key_Space);
    QVERIFY(!store->value(SettingKeys::escapeToHideOnHover()));
    // Following the store announces nothing; a disabled row takes no clicks on its text either.
    store->setValue(SettingKeys::escapeToHideOnHover(), true);
    QVERIFY(row.isChecked());
    QCOMPARE(toggled.size(), 2);
    row.setEnabled(false);
    QTest::mouseClick(row.label(), Qt::LeftButton);
    QVERIFY(row.isChecked());
    QVERIFY(store->value(SettingKeys::escapeToHideOnHover()));
}

void TestSettingsRows::sliderBoundToAThemeFieldWritesOnlyThatField()
{
    TestSupport::TemporaryStore store;
    ThemeConfig theme = store->value(SettingKeys::activeThemeConfig());
    theme.chassisHue = 0.25;
    store->setValue(SettingKeys::activeThemeConfig(), theme);
    SliderRow row(u"Hue"_s, 0, 1, u"%.2f"_s, GradientSlider::hueGradient(0, 0));
    SettingsBinding::bindSlider(&row, *store, SettingKeys::activeThemeConfig(), &ThemeConfig::chassisHue);
    row.resize(400, row.sizeHint().height());
    row.show();
    QVERIFY(QTest::qWaitForWindowExposed(&row));
    QCOMPARE(row.valueLabel()->text(), u"0.25"_s);

    QTest::mouseClick(row.slider(), Qt::LeftButton, {}, QPoint(0, row.slider()->height() / 2));
    theme.chassisHue = 0.0;
    QCOMPARE(store->value(SettingKeys::activeThemeConfig()), theme);
    theme.chassisHue = 0.75;
    theme.keySpacing = 9;
    store->setValue(SettingKeys::activeThemeConfig(), theme);
    QCOMPARE(row.valueLabel()->text(), u"0.75"_s);
}

QTEST_MAIN(TestSettingsRows)
#include "testsettingsrows.moc"
