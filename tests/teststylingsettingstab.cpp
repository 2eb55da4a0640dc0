// SPDX-License-Identifier: GPL-3.0-or-later
// The Styling tab's sections on the offscreen platform: real widgets, a real settings store and a keyboard scene
// that follows the same store, as the panel does.
#include "base/clock.h"
#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "keyboard/keyboardscene.h"
#include "theme/themefileaccess.h"
#include "theme/themelibrary.h"
#include "theme/themestyle.h"
#include "ui/gradientslider.h"
#include "ui/settingsrows.h"
#include "ui/settingssection.h"
#include "ui/shadoweditor.h"
#include "ui/stylingsettingstab.h"
#include "ui/toggleswitch.h"

#include <QLabel>
#include <QSignalSpy>
#include <QTemporaryDir>
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
    Fixture()
    {
        tab.resize(560, 900);
        tab.show();
    }

    SliderRow* row(const QString& name, QWidget* within = nullptr) const
    {
        return (within ? within : static_cast<QWidget*>(tab.widget()))->findChild<SliderRow*>(name);
    }

    ThemeConfig config() const { return settings.value(SettingKeys::activeThemeConfig()); }

    /** A click at `fraction` of the slider's knob travel, as the user makes it; returns the value it selects. */
    static double click(SliderRow* row, double fraction)
    {
        GradientSlider* slider = row->slider();
        const double k = slider->knobDiameter();
        const int x = int(std::lround(k / 2 + (slider->width() - k) * fraction));
        QTest::mouseClick(slider, Qt::LeftButton, {}, QPoint(x, slider->height() / 2));
        return slider->valueAt(x);
    }

    QTemporaryDir dir;
    SettingsStore settings { dir.filePath(u"settings.json"_s) };
    ManualClock clock;
    KeyboardScene scene { settings, clock, nullptr };
    NoFiles files;
    StylingSettingsTab tab { settings, files };
};

const NamedTheme& builtIn(const QString& name)
{
    const QList<NamedTheme>& themes = builtInThemes();
    return *std::find_if(themes.begin(), themes.end(), [&](const NamedTheme& theme) { return theme.name == name; });
}

} // namespace

class TestStylingSettingsTab final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_f.reset(); }

    void sectionsInOrder();
    void aMoveWritesOnlyItsFieldAndTheKeyboardFollows_data();
    void aMoveWritesOnlyItsFieldAndTheKeyboardFollows();
    void colourTracksFollowTheirColour();
    void innerShadowWithoutRadiusIsNotDrawn();
    void shadowRowsAreInactiveWhileTheShadowIsOff();
    void offsetFieldsUseTheUsersLocale();
    void editsOfTheSettingsFileShowWithoutWritingBack();

private:
    std::unique_ptr<Fixture> m_f;
};

void TestStylingSettingsTab::init()
{
    QLocale::setDefault(QLocale::c());
    m_f = std::make_unique<Fixture>();
    QVERIFY(QTest::qWaitForWindowExposed(&m_f->tab));
}

void TestStylingSettingsTab::sectionsInOrder()
{
    StylingSettingsTab& tab = m_f->tab;
    const QList<SettingsSection*> sections { tab.themesSection(), tab.chassisSection(), tab.keycapSection(),
        tab.dropShadowSection(), tab.innerShadowSection(), tab.textSection() };
    QStringList titles;
    QStringList icons;
    int previousTop = -1;
    for (SettingsSection* section : sections) {
        titles << section->title();
        icons << section->icon();
        QVERIFY(section->isExpanded());
        QVERIFY(section->geometry().top() > previousTop);
        previousTop = section->geometry().top();
    }
    QCOMPARE(titles,
        QStringList({ u"Themes"_s, u"Chassis"_s, u"Keycap"_s, u"Drop Shadow"_s, u"Inner Shadow"_s, u"Text"_s }));
    QCOMPARE(icons.mid(1),
        QStringList({ u"rectangle.inset.filled"_s, u"keyboard"_s, u"shadow"_s, u"shadow"_s, u"textformat"_s }));

    // "Pressed State" sits between the key cap's own rows and the pressed colour.
    QWidget* pressed = tab.keycapSection()->findChild<QWidget*>(u"pressedState"_s);
    QVERIFY(pressed);
    QVERIFY(pressed->findChildren<QLabel*>().size() == 2);
    const int pressedTop = pressed->mapTo(&tab, QPoint()).y();
    QVERIFY(m_f->row(u"keycapBorderWidth"_s)->mapTo(&tab, QPoint()).y() < pressedTop);
    QVERIFY(m_f->row(u"pressedHue"_s)->mapTo(&tab, QPoint()).y() > pressedTop);
}

namespace {

using Field = double& (*)(ThemeConfig&);
const Field movedFields[] = {
    [](ThemeConfig& c) -> double& { return c.chassisHue; },
    [](ThemeConfig& c) -> double& { return c.keySpacing; },
    [](ThemeConfig& c) -> double& { return c.keycapBrightness; },
    [](ThemeConfig& c) -> double& { return c.pressedSaturation; },
    [](ThemeConfig& c) -> double& { return c.textOpacity; },
    [](ThemeConfig& c) -> double& { return c.dropShadow.radius; },
    [](ThemeConfig& c) -> double& { return c.innerShadow.hue; },
};

} // namespace

void TestStylingSettingsTab::aMoveWritesOnlyItsFieldAndTheKeyboardFollows_data()
{
    QTest::addColumn<QString>("row");
    QTest::addColumn<QString>("within");
    QTest::addColumn<double>("fraction");
    QTest::addColumn<int>("field"); // in movedFields
    QTest::addColumn<double>("expected"); // the value the click selects
    QTest::newRow("chassis hue") << u"chassisHue"_s << QString() << 0.75 << 0 << 0.75;
    QTest::newRow("key spacing, right end") << u"keySpacing"_s << QString() << 1.0 << 1 << 15.0;
    QTest::newRow("key cap brightness") << u"keycapBrightness"_s << QString() << 0.6 << 2 << 0.6;
    QTest::newRow("pressed saturation") << u"pressedSaturation"_s << QString() << 0.1 << 3 << 0.1;
    QTest::newRow("text opacity") << u"textOpacity"_s << QString() << 0.5 << 4 << 0.5;
    QTest::newRow("drop shadow radius, right end") << u"radius"_s << u"dropShadow"_s << 1.0 << 5 << 20.0;
    QTest::newRow("inner shadow hue") << u"hue"_s << u"innerShadow"_s << 0.3 << 6 << 0.3;
}

void TestStylingSettingsTab::aMoveWritesOnlyItsFieldAndTheKeyboardFollows()
{
    QFETCH(QString, row);
    QFETCH(QString, within);
    QFETCH(double, fraction);
    QFETCH(int, field);
    QFETCH(double, expected);
    const Field fieldOf = movedFields[field];
    QWidget* container = within.isEmpty() ? nullptr : m_f->tab.widget()->findChild<QWidget*>(within);
    SliderRow* slider = m_f->row(row, container);
    QVERIFY(slider);
    ThemeConfig config = m_f->config();
    QSignalSpy relayout(&m_f->scene, &KeyboardScene::layoutChanged);

    const double moved = Fixture::click(slider, fraction);
    QVERIFY(qAbs(moved - expected) < 0.01 * slider->slider()->upper()); // within a pixel of the track
    QVERIFY(moved != fieldOf(config));
    fieldOf(config) = moved;
    QCOMPARE(m_f->config(), config);
    QCOMPARE(slider->valueLabel()->text(), QString::asprintf("%.2f", moved));

    // The keyboard draws the new configuration at once.
    QVERIFY(relayout.size() >= 1);
    QCOMPARE(m_f->scene.themeConfig(), config);
    QCOMPARE(m_f->scene.scaledStyle(), ThemeStyle(config).scaled(m_f->scene.unitSize()));
}

void TestStylingSettingsTab::colourTracksFollowTheirColour()
{
    ThemeConfig config = m_f->config();
    config.chassisBrightness = 0;
    config.chassisSaturation = 0;
    m_f->settings.setValue(SettingKeys::activeThemeConfig(), config);
    // A black chassis still gets a coloured hue track.
    const QGradientStops hue = m_f->row(u"chassisHue"_s)->slider()->gradient();
    QCOMPARE(hue.size(), 11);
    QCOMPARE(hue, GradientSlider::hueGradient(0, 0));
    QVERIFY(qAbs(hue.at(0).second.valueF() - 0.3f) < 0.002f);
    QVERIFY(hue.at(3).second.hsvSaturationF() >= 0.5f);

    // Moving the key cap hue recolours the other key cap tracks, and no other group's.
    const QGradientStops pressedBefore = m_f->row(u"pressedSaturation"_s)->slider()->gradient();
    const double keycapHue = Fixture::click(m_f->row(u"keycapHue"_s), 0.6);
    config = m_f->config();
    QCOMPARE(m_f->row(u"keycapSaturation"_s)->slider()->gradient(),
        GradientSlider::saturationGradient(keycapHue, config.keycapBrightness));
    QCOMPARE(m_f->row(u"keycapBrightness"_s)->slider()->gradient(),
        GradientSlider::brightnessGradient(keycapHue, config.keycapSaturation));
    QCOMPARE(m_f->row(u"pressedSaturation"_s)->slider()->gradient(), pressedBefore);

    // The shadow and text opacity tracks show their own colour.
    config.dropShadow.hue = 0.4;
    config.textBrightness = 0.2;
    m_f->settings.setValue(SettingKeys::activeThemeConfig(), config);
    auto* drop = m_f->tab.dropShadowSection();
    QCOMPARE(m_f->row(u"opacity"_s, drop)->slider()->gradient(),
        GradientSlider::opacityGradient(0.4, config.dropShadow.saturation, config.dropShadow.brightness));
    QCOMPARE(m_f->row(u"textOpacity"_s)->slider()->gradient(),
        GradientSlider::opacityGradient(config.textHue, config.textSaturation, 0.2));
}

void TestStylingSettingsTab::innerShadowWithoutRadiusIsNotDrawn()
{
    m_f->settings.setValue(SettingKeys::activeThemeConfig(), builtIn(u"Dark Beige"_s).config);
    QVERIFY(ThemeStyle(m_f->config()).innerShadow);
    ShadowEditor* inner = m_f->tab.innerShadowSection();
    QCOMPARE(inner->radiusRow()->valueLabel()->text(), u"5.77"_s);

    QTest::mouseClick(inner->radiusRow()->slider(), Qt::LeftButton, {}, QPoint(0, 9));
    const ThemeConfig config = m_f->config();
    QCOMPARE(config.innerShadow.radius, 0.0);
    QVERIFY(config.innerShadow.enabled);
    QVERIFY(inner->enabledRow()->isChecked());
    QVERIFY(!m_f->scene.scaledStyle().innerShadow);
    QVERIFY(m_f->scene.scaledStyle().innerShadowConfig.enabled);
}

void TestStylingSettingsTab::shadowRowsAreInactiveWhileTheShadowIsOff()
{
    ShadowEditor* drop = m_f->tab.dropShadowSection();
    const ThemeConfig before = m_f->config();
    QVERIFY(before.dropShadow.enabled);
    QTest::mouseClick(drop->enabledRow()->toggle(), Qt::LeftButton);
    ThemeConfig expected = before;
    expected.dropShadow.enabled = false;
    QCOMPARE(m_f->config(), expected);

    for (SliderRow* row : drop->findChildren<SliderRow*>()) {
        QVERIFY(row->isVisible());
        QVERIFY(!row->isEnabled());
    }
    QVERIFY(drop->xField()->isVisible());
    QVERIFY(!drop->xField()->isEnabled());
    QVERIFY(!drop->yField()->isEnabled());
    QVERIFY(drop->enabledRow()->isEnabled());
    // A disabled slider takes no clicks.
    QTest::ignoreMessage(QtWarningMsg, "Mouse event \"MousePress\" not accepted by receiving widget");
    QTest::ignoreMessage(QtWarningMsg, "Mouse event \"MouseRelease\" not accepted by receiving widget");
    QTest::mouseClick(drop->radiusRow()->slider(), Qt::LeftButton, {}, QPoint(3, 9));
    QCOMPARE(m_f->config(), expected);
    // The other shadow is untouched.
    QVERIFY(m_f->tab.innerShadowSection()->radiusRow()->isEnabled());

    // Switched back on elsewhere, the rows come back.
    m_f->settings.setValue(SettingKeys::activeThemeConfig(), before);
    QVERIFY(drop->enabledRow()->isChecked());
    QVERIFY(drop->radiusRow()->isEnabled());
    QVERIFY(drop->yField()->isEnabled());
}

void TestStylingSettingsTab::offsetFieldsUseTheUsersLocale()
{
    QCOMPARE(NumberField::parse(u" 2.5 "_s, QLocale::c()), 2.5);
    QCOMPARE(NumberField::parse(u"2,5"_s, QLocale::c()), std::nullopt);
    QCOMPARE(NumberField::parse(u"1,000"_s, QLocale::c()), std::nullopt);
    QCOMPARE(NumberField::textFor(-0.0, QLocale::c()), u"0"_s);
    QCOMPARE(NumberField::textFor(1234.5, QLocale::c()), u"1234.5"_s);

    // A German user: the tab is built after the locale is set, as at start-up.
    m_f.reset();
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    m_f = std::make_unique<Fixture>();
    QVERIFY(QTest::qWaitForWindowExposed(&m_f->tab));
    ShadowEditor* drop = m_f->tab.dropShadowSection();
    NumberField* x = drop->xField();
    NumberField* y = drop->yField();
    QCOMPARE(x->placeholderText(), u"X"_s);
    QCOMPARE(y->placeholderText(), u"Y"_s);
    QCOMPARE(x->font().pixelSize(), 12);

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
    QCOMPARE(m_f->scene.scaledStyle().dropShadowConfig.x, 1.5 * m_f->scene.unitSize() / 60);

    // Text that is no number here changes nothing and the number comes back.
    for (const QString& garbage : { u"abc"_s, u"1.5"_s, u"inf"_s, QString() }) {
        type(x, garbage);
        QTest::keyClick(x, Qt::Key_Return);
        QCOMPARE(m_f->config().dropShadow.x, 1.5);
        QCOMPARE(x->text(), u"1,5"_s);
    }

    // Leaving the field finishes the edit as well; the arrow keys step at once.
    type(y, u"-2,25"_s);
    x->setFocus();
    QCOMPARE(m_f->config().dropShadow.y, -2.25);
    QTest::keyClick(x, Qt::Key_Up);
    QCOMPARE(m_f->config().dropShadow.x, 2.5);
    QCOMPARE(x->text(), u"2,5"_s);

    // A change from elsewhere shows in the user's notation.
    ThemeConfig config = m_f->config();
    config.dropShadow.y = 3.75;
    m_f->settings.setValue(SettingKeys::activeThemeConfig(), config);
    QCOMPARE(y->text(), u"3,75"_s);
    QLocale::setDefault(QLocale::c());
}

void TestStylingSettingsTab::editsOfTheSettingsFileShowWithoutWritingBack()
{
    ThemeConfig outside = builtIn(u"Light Rose"_s).config;
    outside.keySpacing = 12.5;
    outside.innerShadow.enabled = false;
    {
        // Another instance of the program (or the user with an editor) changes the file.
        SettingsStore other(m_f->settings.filePath());
        other.setValue(SettingKeys::activeThemeConfig(), outside);
    }
    // The store reads the new file at once but announces it when its file watcher reports.
    QTRY_COMPARE_WITH_TIMEOUT(m_f->row(u"keySpacing"_s)->value(), 12.5, 5000);
    QCOMPARE(m_f->row(u"keySpacing"_s)->valueLabel()->text(), u"12.50"_s);
    QCOMPARE(m_f->row(u"chassisHue"_s)->value(), outside.chassisHue);
    QVERIFY(!m_f->tab.innerShadowSection()->enabledRow()->isChecked());
    QVERIFY(!m_f->tab.innerShadowSection()->radiusRow()->isEnabled());
    QCOMPARE(m_f->row(u"keycapSaturation"_s)->slider()->gradient(),
        GradientSlider::saturationGradient(outside.keycapHue, outside.keycapBrightness));
    // Showing it wrote nothing: the file still holds exactly what the other program wrote.
    QCOMPARE(SettingsStore(m_f->settings.filePath()).value(SettingKeys::activeThemeConfig()), outside);
    QVERIFY(!m_f->settings.hasStoredEntry(SettingKeys::savedThemes().name()));
}

QTEST_MAIN(TestStylingSettingsTab)
#include "teststylingsettingstab.moc"
