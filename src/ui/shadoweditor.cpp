// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/shadoweditor.h"

#include "base/settingkeys.h"
#include "theme/themesettings.h"
#include "base/settingsstore.h"
#include "ui/gradientslider.h"
#include "ui/settingsrows.h"
#include "ui/settingsstyle.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr double fieldTextPixels = 12;
/** Wide enough for a signed offset with two decimals. */
constexpr int fieldWidth = 76;

QLocale withoutGroupSeparators(QLocale locale)
{
    locale.setNumberOptions(QLocale::OmitGroupSeparator | QLocale::RejectGroupSeparator);
    return locale;
}

} // namespace

NumberField::NumberField(const QString& title, QWidget* parent)
    : QLineEdit(parent)
{
    setPlaceholderText(title);
    setAccessibleName(title);
    setFont(SettingsStyle::font(this, fieldTextPixels));
    setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    showValue();
    connect(this, &QLineEdit::editingFinished, this, &NumberField::finishEditing);
}

NumberField::~NumberField() = default;

void NumberField::setValue(double value)
{
    m_value = value;
    // An edit in progress stays as typed; finishing it decides.
    if (!(hasFocus() && isModified()))
        showValue();
}

QString NumberField::textFor(double value, const QLocale& locale)
{
    // Shortest text that reads back as the same number; never "-0".
    return withoutGroupSeparators(locale).toString(value == 0.0 ? 0.0 : value, 'f', QLocale::FloatingPointShortest);
}

std::optional<double> NumberField::parse(const QString& text, const QLocale& locale)
{
    bool ok = false;
    const double value = withoutGroupSeparators(locale).toDouble(text.trimmed(), &ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    return value;
}

QSize NumberField::sizeHint() const
{
    return { fieldWidth, QLineEdit::sizeHint().height() };
}

void NumberField::keyPressEvent(QKeyEvent* event)
{
    const int key = event->key();
    if (key == Qt::Key_Up || key == Qt::Key_Down) {
        const double from = parse(text(), locale()).value_or(m_value);
        m_value = from + (key == Qt::Key_Up ? 1.0 : -1.0);
        showValue();
        emit valueEdited(m_value);
        event->accept();
        return;
    }
    if (key == Qt::Key_Escape && isModified()) {
        showValue();
        event->accept();
        return;
    }
    QLineEdit::keyPressEvent(event);
}

void NumberField::changeEvent(QEvent* event)
{
    QLineEdit::changeEvent(event);
    if (event->type() == QEvent::LocaleChange)
        showValue();
}

void NumberField::finishEditing()
{
    const std::optional<double> typed = parse(text(), locale());
    const bool changed = typed && *typed != m_value;
    if (changed)
        m_value = *typed;
    // Also tidies an accepted number ("1,50" shows as "1,5") and brings back the number when the text was none.
    showValue();
    if (changed)
        emit valueEdited(m_value);
}

void NumberField::showValue()
{
    const QString shown = textFor(m_value, locale());
    if (text() != shown)
        setText(shown);
    setModified(false);
}

ShadowEditor::ShadowEditor(
    const QString& title, SettingsStore& settings, ShadowConfig ThemeConfig::*shadow, QWidget* parent)
    : SettingsSection(title, u"shadow"_s, ThemeFieldRows::rowSpacing, parent)
    , m_settings(settings)
    , m_shadow(shadow)
    , m_fields(settings)
{
    m_enabled = new SwitchRow(u"Enabled"_s);
    m_enabled->setObjectName(u"enabled"_s);
    addRow(m_enabled);

    const auto add = [&](const QString& label, double upper, double ShadowConfig::*field, const QString& name) {
        SliderRow* row = m_fields.add(label, 0.0, upper, ThemeFieldRows::member(shadow, field), name);
        addRow(row);
        return row;
    };
    m_radius = add(u"Radius"_s, 20.0, &ShadowConfig::radius, u"radius"_s);
    m_colour.opacity = add(u"Opacity"_s, 1.0, &ShadowConfig::opacity, u"opacity"_s);
    m_colour.hue = add(u"Hue"_s, 1.0, &ShadowConfig::hue, u"hue"_s);
    m_colour.saturation = add(u"Saturation"_s, 1.0, &ShadowConfig::saturation, u"saturation"_s);
    m_colour.brightness = add(u"Brightness"_s, 1.0, &ShadowConfig::brightness, u"brightness"_s);

    m_offsetRow = new QWidget;
    m_offsetRow->setObjectName(u"offset"_s);
    auto* offsetLayout = new QHBoxLayout(m_offsetRow);
    offsetLayout->setContentsMargins(0, 2, 0, 2);
    offsetLayout->setSpacing(SettingsLayout::columnGap);
    auto* offsetLabel = new QLabel(u"X / Y"_s);
    offsetLabel->setTextFormat(Qt::PlainText);
    offsetLabel->setFixedWidth(SettingsLayout::labelWidth);
    m_x = new NumberField(u"X"_s);
    m_x->setObjectName(u"x"_s);
    m_y = new NumberField(u"Y"_s);
    m_y->setObjectName(u"y"_s);
    offsetLabel->setBuddy(m_x);
    offsetLayout->addWidget(offsetLabel);
    offsetLayout->addWidget(m_x);
    offsetLayout->addWidget(m_y);
    offsetLayout->addStretch(1);
    m_offsetRow->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    addRow(m_offsetRow);

    connect(m_enabled, &SwitchRow::toggled, this, [this](bool on) {
        ThemeConfig config = m_settings.value(SettingKeys::activeThemeConfig());
        (config.*m_shadow).enabled = on;
        m_settings.setValue(SettingKeys::activeThemeConfig(), config);
    });
    connect(m_x, &NumberField::valueEdited, this, [this](double x) { writeField(&ShadowConfig::x, x); });
    connect(m_y, &NumberField::valueEdited, this, [this](double y) { writeField(&ShadowConfig::y, y); });

    m_settings.bind(SettingKeys::activeThemeConfig(), this, [this](const ThemeConfig& config) { showConfig(config); });
    showConfig(m_settings.value(SettingKeys::activeThemeConfig()));
}

ShadowEditor::~ShadowEditor() = default;

void ShadowEditor::writeField(double ShadowConfig::*field, double value)
{
    ThemeConfig config = m_settings.value(SettingKeys::activeThemeConfig());
    config.*m_shadow.*field = value;
    m_settings.setValue(SettingKeys::activeThemeConfig(), config);
}

void ShadowEditor::showConfig(const ThemeConfig& config)
{
    const ShadowConfig& shadow = config.*m_shadow;
    m_fields.show(config);
    m_colour.showGradients(shadow.hue, shadow.saturation, shadow.brightness);
    m_enabled->setChecked(shadow.enabled);
    m_x->setValue(shadow.x);
    m_y->setValue(shadow.y);

    // Off: everything but the switch stays in view, greyed out.
    for (SliderRow* row : { m_radius, m_colour.opacity, m_colour.hue, m_colour.saturation, m_colour.brightness }) {
        row->setEnabled(shadow.enabled);
        row->valueLabel()->setTone(shadow.enabled ? ToneLabel::Tone::secondary : ToneLabel::Tone::tertiary);
    }
    m_offsetRow->setEnabled(shadow.enabled);
}
