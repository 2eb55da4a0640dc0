// SPDX-License-Identifier: GPL-3.0-or-later
// The Styling tab's sections on the offscreen platform: real widgets, a real settings store and a keyboard scene
// that follows the same store, as the panel does.
#include "settingsdump.h"
#include "testsupport.h"
#include "base/clock.h"
#include "base/settingkeys.h"
#include "keyboard/keyboardscene.h"
#include "theme/themefileaccess.h"
#include "theme/themestyle.h"
#include "ui/gradientslider.h"
#include "ui/shadoweditor.h"
#include "ui/stylingsettingstab.h"
#include "ui/toggleswitch.h"

#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

class NoFiles final : public ThemeFileAccess
{
public:
    std::optional<QString> chooseFileToOpen() override { return std::nullopt; }
    std::optional<QString> chooseFileToSave(const QString&) override { return std::nullopt; }
    std::optional<QByteArray> readFile(const QString&) override { return std::nullopt; }
    bool writeFile(const QString&, const QByteArray&) override { return false; }
    void setClipboardText(const QString&) override { }
};

struct Fixture
{
    Fixture() { tab.resize(560, 900), tab.show(); }

    SliderRow* row(const QString& name, const QString& within = {}) const
    {
        const QWidget* container = within.isEmpty() ? tab.widget() : tab.widget()->findChild<QWidget*>(within);
        return container ? container->findChild<SliderRow*>(name) : nullptr;
    }
    ThemeConfig config() const { return settings.value(SettingKeys::activeThemeConfig()); }
    void setConfig(const ThemeConfig& config) { settings.setValue(SettingKeys::activeThemeConfig(), config); }

    /** A click at `fraction` of the slider's knob travel; returns the value it selects. */
    static double click(SliderRow* row, double fraction)
    {
        GradientSlider* slider = row->slider();
        const double k = slider->knobDiameter();
        const int x = int(std::lround(k / 2 + (slider->width() - k) * fraction));
        QTest::mouseClick(slider, Qt::LeftButton, {}, QPoint(x, slider->height() / 2));
        return slider->valueAt(x);
    }

    TestSupport::TemporaryStore store;
    SettingsStore& settings = *store;
    ManualClock clock;
    KeyboardScene scene { settings, clock, nullptr };
    NoFiles files;
    StylingSettingsTab tab { settings, files };
};

using Field = double& (*)(ThemeConfig&);
#define FIELD(name) [](ThemeConfig& c) -> double& { return c.name; }

// Every slider of the tab: the section it is in, its object name and the field it edits.
const struct
{
    const char* within;
    const char* name;
    Field field;
} sliders[] = {
    { "chassis", "chassisHue", FIELD(chassisHue) }, { "chassis", "chassisSaturation", FIELD(chassisSaturation) },
    { "chassis", "chassisBrightness", FIELD(chassisBrightness) },
    { "chassis", "chassisOpacity", FIELD(chassisOpacity) }, { "chassis", "chassisBlur", FIELD(chassisBlur) },
    { "chassis", "keySpacing", FIELD(keySpacing) }, { "chassis", "chassisCornerRadius", FIELD(chassisCornerRadius) },
    { "chassis", "cornerKeyRadius", FIELD(cornerKeyRadius) }, { "keycap", "keycapHue", FIELD(keycapHue) },
    { "keycap", "keycapSaturation", FIELD(keycapSaturation) }, { "keycap", "keycapBrightness", FIELD(keycapBrightness) },
    { "keycap", "keycapCornerRadius", FIELD(keycapCornerRadius) },
    { "keycap", "keycapBorderWidth", FIELD(keycapBorderWidth) }, { "keycap", "pressedHue", FIELD(pressedHue) },
    { "keycap", "pressedSaturation", FIELD(pressedSaturation) },
    { "keycap", "pressedBrightness", FIELD(pressedBrightness) }, { "text", "textHue", FIELD(textHue) },
    { "text", "textSaturation", FIELD(textSaturation) }, { "text", "textBrightness", FIELD(textBrightness) },
    { "text", "textOpacity", FIELD(textOpacity) }, { "dropShadow", "radius", FIELD(dropShadow.radius) },
    { "dropShadow", "opacity", FIELD(dropShadow.opacity) }, { "dropShadow", "hue", FIELD(dropShadow.hue) },
    { "dropShadow", "saturation", FIELD(dropShadow.saturation) },
    { "dropShadow", "brightness", FIELD(dropShadow.brightness) }, { "innerShadow", "radius", FIELD(innerShadow.radius) },
    { "innerShadow", "opacity", FIELD(innerShadow.opacity) }, { "innerShadow", "hue", FIELD(innerShadow.hue) },
    { "innerShadow", "saturation", FIELD(innerShadow.saturation) },
    { "innerShadow", "brightness", FIELD(innerShadow.brightness) },
};

} // namespace

class TestStylingSettingsTab final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_f.reset(); }

    void wholeTab();
    void eachSliderWritesOnlyItsFieldAndTheKeyboardFollows_data();
    void eachSliderWritesOnlyItsFieldAndTheKeyboardFollows();
    void colourTracksFollowTheirColour();
    void shadowRowsAreInactiveWhileTheShadowIsOff();
    void offsetFieldsUseTheUsersLocale();

private:
    std::unique_ptr<Fixture> m_f;
};

void TestStylingSettingsTab::init()
{
    QLocale::setDefault(QLocale::c());
    m_f = std::make_unique<Fixture>();
    QVERIFY(QTest::qWaitForWindowExposed(&m_f->tab));
}

void TestStylingSettingsTab::wholeTab()
{
    // The default theme, section by section.
    const QString shadow = u" | [x] Enabled | Radius = %1 | Opacity = %2 | Hue = 0.00 | Saturation = 0.00 | "
                           u"Brightness = 0.00 | X / Y | [X|0] | [Y|0]"_s;
    QCOMPARE(settingsDump(m_f->tab.widget()).join(u" | "_s),
        u"# Themes (rectangle.3.group) | [Save as theme...|] | (Save the current config as a theme) (off) | (Share) | "
        u"(Import themes from JSON) | # Chassis (rectangle.inset.filled) | Hue = 0.69 | Saturation = 0.05 | "
        u"Brightness = 1.00 | Opacity = 0.45 | Blur = 0.85 | Key Spacing = 7.00 | Corner Radius = 24.79 | "
        u"Edge Key Radius = 18.00 | # Keycap (keyboard) | Hue = 0.00 | Saturation = 0.00 | Brightness = 0.09 | "
        u"Roundness = 6.00 | Border = 0.50 | Pressed State | Hue = 0.10 | Saturation = 0.68 | Brightness = 0.95 | "
        u"# Drop Shadow (shadow)"_s
            + shadow.arg(u"4.69"_s, u"1.00"_s) + u" | # Inner Shadow (shadow)"_s + shadow.arg(u"0.00"_s, u"0.00"_s)
            + u" | # Text (textformat) | Hue = 0.00 | Saturation = 0.00 | Brightness = 0.87 | Opacity = 1.00"_s);
}

void TestStylingSettingsTab::eachSliderWritesOnlyItsFieldAndTheKeyboardFollows_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < int(std::size(sliders)); ++i)
        QTest::addRow("%s %s", sliders[i].within, sliders[i].name) << i;
}

void TestStylingSettingsTab::eachSliderWritesOnlyItsFieldAndTheKeyboardFollows()
{
    QFETCH(int, index);
    SliderRow* slider = m_f->row(QString::fromLatin1(sliders[index].name), QString::fromLatin1(sliders[index].within));
    QVERIFY(slider);
    ThemeConfig config = m_f->config();
    const double moved = Fixture::click(slider, sliders[index].field(config) > 0.5 * slider->slider()->upper() ? 0.1 : 0.9);
    sliders[index].field(config) = moved;
    QCOMPARE(m_f->config(), config);
    QCOMPARE(slider->valueLabel()->text(), QString::asprintf("%.2f", moved));
    // The keyboard draws the new configuration at once.
    QCOMPARE(m_f->scene.themeConfig(), config);
    QCOMPARE(m_f->scene.scaledStyle(), ThemeStyle(config).scaled(m_f->scene.unitSize()));
}

void TestStylingSettingsTab::colourTracksFollowTheirColour()
{
    ThemeConfig config = m_f->config();
    config.chassisBrightness = 0;
    config.chassisSaturation = 0;
    config.dropShadow.hue = 0.4;
    m_f->setConfig(config);
    // A black chassis still gets a coloured hue track.
    QCOMPARE(m_f->row(u"chassisHue"_s)->slider()->gradient(), GradientSlider::hueGradient(0, 0));
    QCOMPARE(m_f->row(u"opacity"_s, u"dropShadow"_s)->slider()->gradient(),
        GradientSlider::opacityGradient(0.4, config.dropShadow.saturation, config.dropShadow.brightness));

    // Moving the key cap hue recolours the other key cap tracks, and no other group's.
    const QGradientStops pressedBefore = m_f->row(u"pressedSaturation"_s)->slider()->gradient();
    const double keycapHue = Fixture::click(m_f->row(u"keycapHue"_s), 0.6);
    QCOMPARE(m_f->row(u"keycapSaturation"_s)->slider()->gradient(),
        GradientSlider::saturationGradient(keycapHue, config.keycapBrightness));
    QCOMPARE(m_f->row(u"keycapBrightness"_s)->slider()->gradient(),
        GradientSlider::brightnessGradient(keycapHue, config.keycapSaturation));
    QCOMPARE(m_f->row(u"pressedSaturation"_s)->slider()->gradient(), pressedBefore);
}

void TestStylingSettingsTab::shadowRowsAreInactiveWhileTheShadowIsOff()
{
    ShadowEditor* drop = m_f->tab.dropShadowSection();
    const ThemeConfig before = m_f->config();
    QTest::mouseClick(drop->enabledRow()->toggle(), Qt::LeftButton);
    ThemeConfig expected = before;
    expected.dropShadow.enabled = false;
    QCOMPARE(m_f->config(), expected);
    QCOMPARE(settingsDump(drop->content(), drop),
        (QStringList { u"[ ] Enabled"_s, u"Radius = 4.69 (off)"_s, u"Opacity = 1.00 (off)"_s, u"Hue = 0.00 (off)"_s,
            u"Saturation = 0.00 (off)"_s, u"Brightness = 0.00 (off)"_s, u"X / Y (off)"_s, u"[X|0] (off)"_s,
            u"[Y|0] (off)"_s }));
    QVERIFY(m_f->tab.innerShadowSection()->radiusRow()->isEnabled());

    // Switched back on elsewhere, the rows come back; an inner shadow without radius is not drawn.
    ThemeConfig noRadius = before;
    noRadius.innerShadow.enabled = true;
    noRadius.innerShadow.radius = 0;
    m_f->setConfig(noRadius);
    QVERIFY(settingsDump(drop->content(), drop).filter(u"(off)"_s).isEmpty());
    QVERIFY(!m_f->scene.scaledStyle().innerShadow);
}

void TestStylingSettingsTab::offsetFieldsUseTheUsersLocale()
{
    // A German user: the tab is built after the locale is set, as at start-up.
    m_f.reset();
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    m_f = std::make_unique<Fixture>();
    QVERIFY(QTest::qWaitForWindowExposed(&m_f->tab));
    NumberField* x = m_f->tab.dropShadowSection()->xField();
    NumberField* y = m_f->tab.dropShadowSection()->yField();
    const auto type = [](NumberField* field, const QString& text) {
        field->setFocus();
        field->selectAll();
        QTest::keyClicks(field, text);
    };
    QSignalSpy writes(&m_f->settings, &SettingsStore::valueChanged);
    type(x, u"1,5"_s);
    QCOMPARE(writes.size(), 0); // nothing until the edit is finished
    QTest::keyClick(x, Qt::Key_Return);
    QCOMPARE(m_f->config().dropShadow.x, 1.5);
    QCOMPARE(m_f->config().dropShadow.y, 0.0);

    // Text that is no number here changes nothing and the number comes back.
    for (const QString& garbage : { u"abc"_s, u"1.5"_s, u"inf"_s, QString() }) {
        type(x, garbage);
        QTest::keyClick(x, Qt::Key_Return);
        QCOMPARE(x->text(), u"1,5"_s);
    }
    QCOMPARE(m_f->config().dropShadow.x, 1.5);

    // Leaving the field finishes the edit as well; the arrow keys step at once.
    type(y, u"-2,25"_s);
    x->setFocus();
    QCOMPARE(m_f->config().dropShadow.y, -2.25);
    QCOMPARE(m_f->config().dropShadow.x, 1.5);
    QTest::keyClick(x, Qt::Key_Up);
    QCOMPARE(m_f->config().dropShadow.x, 2.5);
    QCOMPARE(x->text(), u"2,5"_s);

    ThemeConfig config = m_f->config();
    config.dropShadow.y = 3.75;
    m_f->setConfig(config);
    QCOMPARE(y->text(), u"3,75"_s);
    QLocale::setDefault(QLocale::c());
}

QTEST_MAIN(TestStylingSettingsTab)
#include "teststylingsettingstab.moc"
