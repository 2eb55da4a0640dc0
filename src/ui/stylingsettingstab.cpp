// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/stylingsettingstab.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "theme/themelibrary.h"
#include "ui/settingsrows.h"
#include "ui/settingssection.h"
#include "ui/settingsstyle.h"
#include "ui/shadoweditor.h"
#include "ui/themelibrarypanel.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr double subHeadingPixels = 12;
constexpr double subHeadingIconPoints = 11;

/** A heading inside a section: a symbol in the accent tint and a short title, set off from the rows above. */
class SubHeading final : public QWidget
{
public:
    SubHeading(const QString& title, const QString& icon, QWidget* parent = nullptr)
        : QWidget(parent)
        , m_iconName(icon)
        , m_icon(new QLabel(this))
        , m_title(new QLabel(title, this))
    {
        m_title->setTextFormat(Qt::PlainText);
        m_title->setFont(SettingsStyle::font(this, subHeadingPixels, QFont::DemiBold));
        auto* layout = new QHBoxLayout(this);
        layout->setContentsMargins(0, 8, 0, 2);
        layout->setSpacing(5);
        layout->addWidget(m_icon);
        layout->addWidget(m_title, 1);
        setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
        restyle();
    }

    QString title() const { return m_title->text(); }
    QString icon() const { return m_iconName; }

protected:
    void changeEvent(QEvent* event) override
    {
        QWidget::changeEvent(event);
        if (event->type() == QEvent::PaletteChange)
            restyle();
    }

private:
    void restyle()
    {
        m_icon->setPixmap(SettingsStyle::symbol(
            this, m_iconName, subHeadingIconPoints, SymbolWeight::medium, SettingsStyle::accent(palette())));
    }

    QString m_iconName;
    QLabel* m_icon;
    QLabel* m_title;
};

} // namespace

StylingSettingsTab::StylingSettingsTab(SettingsStore& settings, ThemeFileAccess& files, QWidget* parent)
    : QScrollArea(parent)
    , m_settings(settings)
    , m_editor(std::make_unique<ThemeLibraryEditor>(settings, files))
    , m_fields(settings)
{
    QVBoxLayout* layout = SettingsStyle::startSettingsPage(this);
    buildThemes();
    buildChassis();
    buildKeycap();
    m_dropShadow = new ShadowEditor(u"Drop Shadow"_s, m_settings, &ThemeConfig::dropShadow);
    m_dropShadow->setObjectName(u"dropShadow"_s);
    m_innerShadow = new ShadowEditor(u"Inner Shadow"_s, m_settings, &ThemeConfig::innerShadow);
    m_innerShadow->setObjectName(u"innerShadow"_s);
    buildText();
    for (QWidget* section :
        std::initializer_list<QWidget*> { m_themes, m_chassis, m_keycap, m_dropShadow, m_innerShadow, m_text })
        layout->addWidget(section);
    SettingsStyle::finishSettingsPage(this, layout);

    // One reading of the configuration per change serves every row of these sections.
    m_settings.bind(SettingKeys::activeThemeConfig(), this, [this](const ThemeConfig& config) { showConfig(config); });
    showConfig(m_settings.value(SettingKeys::activeThemeConfig()));
}

StylingSettingsTab::~StylingSettingsTab()
{
    // The controls call into the library editor up to their end (a rename field losing the focus), so they go first.
    delete takeWidget();
}

void StylingSettingsTab::buildThemes()
{
    m_themes = new SettingsSection(u"Themes"_s, u"rectangle.3.group"_s, ThemeFieldRows::rowSpacing);
    m_themes->setObjectName(u"themes"_s);
    m_library = new ThemeLibraryPanel(*m_editor, m_settings);
    m_themes->addRow(m_library);
}

void StylingSettingsTab::buildChassis()
{
    m_chassis = new SettingsSection(u"Chassis"_s, u"rectangle.inset.filled"_s, ThemeFieldRows::rowSpacing);
    m_chassis->setObjectName(u"chassis"_s);
    const auto add = [this](const QString& label, double upper, double ThemeConfig::*field, const QString& name) {
        SliderRow* row = m_fields.add(label, 0.0, upper, ThemeFieldRows::member(field), name);
        m_chassis->addRow(row);
        return row;
    };
    m_chassisColour.hue = add(u"Hue"_s, 1, &ThemeConfig::chassisHue, u"chassisHue"_s);
    m_chassisColour.saturation = add(u"Saturation"_s, 1, &ThemeConfig::chassisSaturation, u"chassisSaturation"_s);
    m_chassisColour.brightness = add(u"Brightness"_s, 1, &ThemeConfig::chassisBrightness, u"chassisBrightness"_s);
    m_chassisColour.opacity = add(u"Opacity"_s, 1, &ThemeConfig::chassisOpacity, u"chassisOpacity"_s);
    add(u"Blur"_s, 1, &ThemeConfig::chassisBlur, u"chassisBlur"_s);
    add(u"Key Spacing"_s, 15, &ThemeConfig::keySpacing, u"keySpacing"_s);
    add(u"Corner Radius"_s, 30, &ThemeConfig::chassisCornerRadius, u"chassisCornerRadius"_s);
    add(u"Edge Key Radius"_s, 30, &ThemeConfig::cornerKeyRadius, u"cornerKeyRadius"_s);
}

void StylingSettingsTab::buildKeycap()
{
    m_keycap = new SettingsSection(u"Keycap"_s, u"keyboard"_s, ThemeFieldRows::rowSpacing);
    m_keycap->setObjectName(u"keycap"_s);
    const auto add = [this](const QString& label, double upper, double ThemeConfig::*field, const QString& name) {
        SliderRow* row = m_fields.add(label, 0.0, upper, ThemeFieldRows::member(field), name);
        m_keycap->addRow(row);
        return row;
    };
    m_keycapColour.hue = add(u"Hue"_s, 1, &ThemeConfig::keycapHue, u"keycapHue"_s);
    m_keycapColour.saturation = add(u"Saturation"_s, 1, &ThemeConfig::keycapSaturation, u"keycapSaturation"_s);
    m_keycapColour.brightness = add(u"Brightness"_s, 1, &ThemeConfig::keycapBrightness, u"keycapBrightness"_s);
    add(u"Roundness"_s, 20, &ThemeConfig::keycapCornerRadius, u"keycapCornerRadius"_s);
    add(u"Border"_s, 4, &ThemeConfig::keycapBorderWidth, u"keycapBorderWidth"_s);

    auto* pressed = new SubHeading(u"Pressed State"_s, u"hand.tap"_s);
    pressed->setObjectName(u"pressedState"_s);
    m_keycap->addRow(pressed);
    m_pressedColour.hue = add(u"Hue"_s, 1, &ThemeConfig::pressedHue, u"pressedHue"_s);
    m_pressedColour.saturation = add(u"Saturation"_s, 1, &ThemeConfig::pressedSaturation, u"pressedSaturation"_s);
    m_pressedColour.brightness = add(u"Brightness"_s, 1, &ThemeConfig::pressedBrightness, u"pressedBrightness"_s);
}

void StylingSettingsTab::buildText()
{
    m_text = new SettingsSection(u"Text"_s, u"textformat"_s, ThemeFieldRows::rowSpacing);
    m_text->setObjectName(u"text"_s);
    const auto add = [this](const QString& label, double ThemeConfig::*field, const QString& name) {
        SliderRow* row = m_fields.add(label, 0.0, 1.0, ThemeFieldRows::member(field), name);
        m_text->addRow(row);
        return row;
    };
    m_textColour.hue = add(u"Hue"_s, &ThemeConfig::textHue, u"textHue"_s);
    m_textColour.saturation = add(u"Saturation"_s, &ThemeConfig::textSaturation, u"textSaturation"_s);
    m_textColour.brightness = add(u"Brightness"_s, &ThemeConfig::textBrightness, u"textBrightness"_s);
    m_textColour.opacity = add(u"Opacity"_s, &ThemeConfig::textOpacity, u"textOpacity"_s);
}

void StylingSettingsTab::showConfig(const ThemeConfig& config)
{
    m_fields.show(config);
    m_chassisColour.showGradients(config.chassisHue, config.chassisSaturation, config.chassisBrightness);
    m_keycapColour.showGradients(config.keycapHue, config.keycapSaturation, config.keycapBrightness);
    m_pressedColour.showGradients(config.pressedHue, config.pressedSaturation, config.pressedBrightness);
    m_textColour.showGradients(config.textHue, config.textSaturation, config.textBrightness);
}
