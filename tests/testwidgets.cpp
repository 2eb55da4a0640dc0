// SPDX-License-Identifier: GPL-3.0-or-later
// The settings window's building blocks on the offscreen platform: gradient slider, rows, section, modifier names.
#include "base/settingkeys.h"
#include "testsupport.h"
#include "ui/gradientslider.h"
#include "ui/modifiernames.h"
#include "ui/settingsrows.h"
#include "ui/settingssection.h"
#include "ui/toggleswitch.h"

#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Sized so that the knob (0.85 × the height) travels whole pixels: its centre goes from 17 to 217.
constexpr int sliderWidth = 234;
constexpr int sliderHeight = 40;
constexpr double knob = 34.0;

std::unique_ptr<GradientSlider> shownSlider(double lower, double upper, QGradientStops gradient = {})
{
    auto slider = std::make_unique<GradientSlider>(lower, upper);
    slider->setGradient(gradient);
    slider->setFixedSize(sliderWidth, sliderHeight);
    slider->show();
    return QTest::qWaitForWindowExposed(slider.get()) ? std::move(slider) : nullptr;
}

QPoint at(double x)
{
    return QPoint(qRound(x), sliderHeight / 2);
}

} // namespace

class TestWidgets final : public QObject
{
    Q_OBJECT

private slots:
    void sliderClicksAndDrags();
    void sliderKeys();
    void switchRowTogglesFromItsTextUnlessDisabled();
    void sectionHeaderClosesAndOpens();
    void modifierNames();
};

void TestWidgets::sliderClicksAndDrags()
{
    auto slider = shownSlider(-1, 3, GradientSlider::hueGradient(1, 1));
    QVERIFY(slider);
    QSignalSpy changed(slider.get(), &GradientSlider::valueChanged);
    slider->setValue(0.25); // only the user is announced
    // The ends of the knob's travel, its middle, and outside the travel, which clamps.
    const QList<std::pair<double, double>> clicks { { knob / 2, -1.0 }, { sliderWidth / 2.0, 1.0 },
        { sliderWidth - 1.0, 3.0 }, { 1.0, -1.0 } };
    for (const auto& [x, expected] : clicks) {
        QTest::mouseClick(slider.get(), Qt::LeftButton, {}, at(x));
        QCOMPARE(slider->value(), expected);
    }
    QTest::mouseClick(slider.get(), Qt::LeftButton, {}, at(1.0)); // where the value already is: says nothing
    QCOMPARE(changed.size(), clicks.size());

    QTest::mousePress(slider.get(), Qt::LeftButton, {}, at(sliderWidth / 2.0));
    QTest::mouseMove(slider.get(), at(knob / 2 + (sliderWidth - knob) * 0.75));
    QCOMPARE(slider->value(), 2.0);
    QTest::mouseMove(slider.get(), QPoint(sliderWidth + 80, -30));
    QCOMPARE(slider->value(), 3.0);
    QTest::mouseRelease(slider.get(), Qt::LeftButton, {}, QPoint(-80, 40));
    QCOMPARE(slider->value(), -1.0);
}

void TestWidgets::sliderKeys()
{
    auto slider = shownSlider(0, 2);
    QVERIFY(slider);
    const auto press = [&slider](Qt::Key key) {
        QTest::keyClick(slider.get(), key);
        return slider->value();
    };
    slider->setValue(1.0);
    QCOMPARE(press(Qt::Key_Right), 1.02);
    QCOMPARE(press(Qt::Key_PageDown), 1.02 - 0.2);
    QCOMPARE(press(Qt::Key_End), 2.0);
    QCOMPARE(press(Qt::Key_Up), 2.0);
    // Saturation and brightness are lifted to their floors, so the hue track shows on a black chassis.
    const QColor green = GradientSlider::hueGradient(0.0, 0.0).at(4).second;
    QVERIFY2(qAbs(green.valueF() - 0.3f) < 0.02f && qAbs(green.hsvHueF() - 0.4f) < 0.02f, qPrintable(green.name()));
}

void TestWidgets::switchRowTogglesFromItsTextUnlessDisabled()
{
    TestSupport::TemporaryStore store;
    SwitchRow row(u"Press `esc` to hide while hovering"_s);
    SettingsBinding::bindSwitch(&row, *store, SettingKeys::escapeToHideOnHover());
    row.show();
    QVERIFY(QTest::qWaitForWindowExposed(&row));
    QTest::mouseClick(row.label(), Qt::LeftButton);
    QVERIFY(store->value(SettingKeys::escapeToHideOnHover()));
    row.toggle()->setFocus(Qt::TabFocusReason);
    QTest::keyClick(row.toggle(), Qt::Key_Space);
    QVERIFY(!store->value(SettingKeys::escapeToHideOnHover()));
    store->setValue(SettingKeys::escapeToHideOnHover(), true);
    QVERIFY(row.isChecked());
    row.setEnabled(false);
    QTest::mouseClick(row.label(), Qt::LeftButton);
    QVERIFY(row.isChecked());
}

void TestWidgets::sectionHeaderClosesAndOpens()
{
    QWidget window;
    auto* layout = new QVBoxLayout(&window);
    auto& section = *new SettingsSection(u"Behaviour"_s, u"keyboard.badge.ellipsis"_s, 4);
    layout->addWidget(&section);
    layout->addStretch();
    auto* first = new QLabel(u"first"_s);
    section.addRow(first);
    section.addRow(new QLabel(u"second"_s));
    window.resize(400, 300);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    const int openHeight = section.height();

    QTest::mouseClick(section.header(), Qt::LeftButton);
    QTRY_VERIFY(!first->isVisible());
    QTRY_VERIFY(section.height() < openHeight - first->height());
    QTest::mouseClick(section.header(), Qt::LeftButton);
    QTRY_COMPARE(section.height(), openHeight);
    QVERIFY(first->isVisible());
}

void TestWidgets::modifierNames()
{
    // Generic bits alone count as the left keys; with a right side bit, only the right key.
    const QList<std::pair<quint64, QString>> cases {
        { 0, QString() },
        { 0x610000, QString() }, // Caps Lock, numeric pad and help bits
        { 0x1E0000, u"lshift, lctrl, lalt, lcmd"_s },
        { 0x20004 | 0x42000 | 0x80040 | 0x100010, u"rshift, rctrl, ralt, rcmd"_s },
        { 0x100018, u"lcmd, rcmd"_s },
        { 0x9E207F, u"lshift, rshift, lctrl, rctrl, lalt, ralt, lcmd, rcmd, fn"_s },
    };
    for (const auto& [mask, expected] : cases)
        QCOMPARE(::modifierNames(ModifierFlags(mask)), expected);
}

QTEST_MAIN(TestWidgets)
#include "testwidgets.moc"
