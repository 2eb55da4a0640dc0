// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/themefieldrows.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "ui/gradientslider.h"
#include "ui/settingsrows.h"

using namespace Qt::StringLiterals;

ThemeFieldRows::ThemeFieldRows(SettingsStore& settings)
    : m_settings(settings)
{
}

SliderRow* ThemeFieldRows::add(const QString& label, double lower, double upper, Field field, const QString& objectName,
    const QGradientStops& gradient)
{
    auto* row = new SliderRow(label, lower, upper, u"%.2f"_s, gradient);
    row->setObjectName(objectName);
    QObject::connect(row, &SliderRow::valueChanged, row, [&settings = m_settings, field](double moved) {
        ThemeConfig config = settings.value(SettingKeys::activeThemeConfig());
        field(config) = moved;
        // The store stays silent when nothing changed, so a move that lands on the stored value writes nothing.
        settings.setValue(SettingKeys::activeThemeConfig(), config);
    });
    m_rows.push_back(Row { row, std::move(field) });
    return row;
}

void ThemeFieldRows::show(const ThemeConfig& config) const
{
    ThemeConfig copy = config;
    for (const Row& row : m_rows)
        row.row->setValue(row.field(copy));
}

ThemeFieldRows::Field ThemeFieldRows::member(double ThemeConfig::*field)
{
    return [field](ThemeConfig& config) -> double& { return config.*field; };
}

ThemeFieldRows::Field ThemeFieldRows::member(ShadowConfig ThemeConfig::*shadow, double ShadowConfig::*field)
{
    return [shadow, field](ThemeConfig& config) -> double& { return config.*shadow.*field; };
}

void ColourRows::showGradients(double h, double s, double b) const
{
    if (hue)
        hue->slider()->setGradient(GradientSlider::hueGradient(s, b));
    if (saturation)
        saturation->slider()->setGradient(GradientSlider::saturationGradient(h, b));
    if (brightness)
        brightness->slider()->setGradient(GradientSlider::brightnessGradient(h, s));
    if (opacity)
        opacity->slider()->setGradient(GradientSlider::opacityGradient(h, s, b));
}
