// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/settingsrows.h"

#include "ui/gradientslider.h"
#include "ui/settingsstyle.h"
#include "ui/toggleswitch.h"

#include <QApplication>
#include <QEvent>
#include <QHBoxLayout>
#include <QMouseEvent>

namespace {

constexpr double valuePixels = 12;
constexpr int sliderHeight = 18;

} // namespace

ToneLabel::ToneLabel(const QString& text, Tone tone, QWidget* parent)
    : QLabel(parent)
    , m_tone(tone)
{
    setTextFormat(Qt::PlainText);
    setText(text);
    applyTone();
}

ToneLabel::~ToneLabel() = default;

void ToneLabel::setTone(Tone tone)
{
    if (tone == m_tone)
        return;
    m_tone = tone;
    applyTone();
}

void ToneLabel::changeEvent(QEvent* event)
{
    QLabel::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ParentChange)
        applyTone();
}

void ToneLabel::applyTone()
{
    if (m_applying)
        return;
    // The tone derives from the surroundings' text colour, not from the colour this label was given last time.
    const QPalette around = parentWidget() ? parentWidget()->palette() : QApplication::palette(this);
    QColor colour;
    switch (m_tone) {
    case Tone::primary:
        colour = SettingsStyle::primaryText(around);
        break;
    case Tone::secondary:
        colour = SettingsStyle::secondaryText(around);
        break;
    case Tone::tertiary:
        colour = SettingsStyle::tertiaryText(around);
        break;
    case Tone::attention:
        colour = SettingsStyle::attention(around);
        break;
    }
    if (palette().color(QPalette::WindowText) == colour)
        return;
    m_applying = true;
    QPalette own = palette();
    own.setColor(QPalette::WindowText, colour);
    setPalette(own);
    m_applying = false;
}

SliderRow::SliderRow(const QString& label, double lower, double upper, const QString& format,
    const QGradientStops& gradient, QWidget* parent)
    : QWidget(parent)
    , m_label(new QLabel(label, this))
    , m_slider(new GradientSlider(lower, upper, this))
    , m_value(new ToneLabel({}, ToneLabel::Tone::secondary, this))
    , m_format(format)
{
    m_label->setTextFormat(Qt::PlainText);
    m_label->setFixedWidth(SettingsLayout::labelWidth);
    m_label->setBuddy(m_slider);
    m_slider->setGradient(gradient);
    m_slider->setFixedHeight(sliderHeight);
    m_slider->setAccessibleName(label);
    m_value->setFixedWidth(SettingsLayout::valueWidth);
    m_value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_value->setFont(SettingsStyle::monospacedDigits(valuePixels));

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 2, 0, 2);
    layout->setSpacing(SettingsLayout::columnGap);
    layout->addWidget(m_label);
    layout->addWidget(m_slider, 1);
    layout->addWidget(m_value);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);

    showValue(lower);
    connect(m_slider, &GradientSlider::valueChanged, this, [this](double value) {
        showValue(value);
        emit valueChanged(value);
    });
}

SliderRow::~SliderRow() = default;

double SliderRow::value() const
{
    return m_slider->value();
}

void SliderRow::setValue(double value)
{
    m_slider->setValue(value);
    showValue(value);
}

void SliderRow::showValue(double value)
{
    m_value->setText(formatted(m_format, value));
}

QString SliderRow::formatted(const QString& format, double value)
{
    return QString::asprintf(format.toUtf8().constData(), value);
}

SwitchRow::SwitchRow(const QString& text, QWidget* parent)
    : QWidget(parent)
    , m_layout(new QHBoxLayout(this))
    , m_label(new QLabel(text, this))
    , m_switch(new ToggleSwitch(this))
{
    m_label->setTextFormat(Qt::PlainText);
    // Before the word wrap, which adds height-for-width to the policy.
    m_label->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_label->setWordWrap(true);
    m_label->installEventFilter(this);
    m_switch->setText(text);

    m_layout->setContentsMargins(0, 1, 0, 1);
    m_layout->setSpacing(SettingsLayout::columnGap);
    m_layout->addWidget(m_label, 1);
    m_layout->addWidget(m_switch, 0, Qt::AlignVCenter);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);

    connect(m_switch, &QAbstractButton::clicked, this, &SwitchRow::toggled);
}

SwitchRow::~SwitchRow() = default;

bool SwitchRow::isChecked() const
{
    return m_switch->isChecked();
}

void SwitchRow::setChecked(bool on)
{
    m_switch->setChecked(on);
}

void SwitchRow::addAccessory(QWidget* accessory)
{
    m_layout->insertWidget(m_layout->indexOf(m_switch), accessory, 0, Qt::AlignVCenter);
}

bool SwitchRow::eventFilter(QObject* watched, QEvent* event)
{
    // The text acts as part of the switch, as a check box's does.
    if (watched == m_label && event->type() == QEvent::MouseButtonRelease && m_switch->isEnabled()) {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::LeftButton && m_label->rect().contains(mouse->position().toPoint())) {
            m_switch->click();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
