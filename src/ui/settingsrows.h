// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "base/settingsstore.h"
#include "theme/themesettings.h"

#include <QGradientStops>
#include <QLabel>
#include <QString>
#include <QWidget>

class GradientSlider;
class QHBoxLayout;
class ToggleSwitch;

/** Column widths shared by every row of the settings window, in device-independent pixels. */
namespace SettingsLayout {
/** The label column of slider rows. */
inline constexpr int labelWidth = 130;
/** The value column of slider rows. */
inline constexpr int valueWidth = 44;
/** Horizontal gap between the columns of a row. */
inline constexpr int columnGap = 8;
} // namespace SettingsLayout

/**
 * Plain text in one of the settings window's text tones, which it keeps when the palette changes (a switch
 * between light and dark desktop themes).
 */
class ToneLabel final : public QLabel
{
    Q_OBJECT

public:
    enum class Tone { primary, secondary, tertiary, attention };

    ToneLabel(const QString& text, Tone tone, QWidget* parent = nullptr);
    ~ToneLabel() override;

    Tone tone() const { return m_tone; }
    void setTone(Tone tone);

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyTone();

    Tone m_tone;
    bool m_applying = false;
};

/**
 * Label, slider and current value in three columns: the label in labelWidth, the value right-aligned in
 * valueWidth with digits of equal width. The value is shown as stored even when it lies outside the slider's range
 * (the slider then sits at its end). With a gradient the slider is a colour track, without one a plain slider.
 *
 * valueChanged() tells of the user's moves only; setValue() is silent, so following a setting never writes it.
 */
class SliderRow final : public QWidget
{
    Q_OBJECT

public:
    /** `format` is a printf format with one double, e.g. "%.2f" or "%.2fs". */
    SliderRow(const QString& label, double lower, double upper, const QString& format,
        const QGradientStops& gradient = {}, QWidget* parent = nullptr);
    ~SliderRow() override;

    QLabel* label() const { return m_label; }
    GradientSlider* slider() const { return m_slider; }
    ToneLabel* valueLabel() const { return m_value; }
    QString format() const { return m_format; }

    /** The value as last set or moved to. */
    double value() const;
    void setValue(double value);

    /** `value` printed with `format`, independent of the locale. */
    static QString formatted(const QString& format, double value);

signals:
    void valueChanged(double value);

private:
    void showValue(double value);

    QLabel* m_label;
    GradientSlider* m_slider;
    ToneLabel* m_value;
    QString m_format;
};

/**
 * A switch with its text before it. The text wraps; clicking it toggles the switch as clicking the switch does.
 * Further controls (a picker) can sit between the text and the switch.
 *
 * toggled() tells of the user's changes only; setChecked() is silent.
 */
class SwitchRow final : public QWidget
{
    Q_OBJECT

public:
    explicit SwitchRow(const QString& text, QWidget* parent = nullptr);
    ~SwitchRow() override;

    QLabel* label() const { return m_label; }
    ToggleSwitch* toggle() const { return m_switch; }

    bool isChecked() const;
    void setChecked(bool on);

    /** Puts `accessory` between the text and the switch. */
    void addAccessory(QWidget* accessory);

signals:
    void toggled(bool on);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QHBoxLayout* m_layout;
    QLabel* m_label;
    ToggleSwitch* m_switch;
};

/**
 * Connecting rows to settings. A bound row shows the setting's value now, follows every later change of it
 * (from this window, another part of the program, or an edit of the settings file) without writing it back, and
 * writes the user's changes through the key at once. `store` must outlive the row; keys are process-wide.
 *
 * A row can show one field of a structured setting: `read` takes the field from the stored value, `write` puts a
 * new field value into a copy of it, which is then stored whole. For example, a slider of a theme field:
 *
 *     SettingsBinding::bindSlider(row, store, SettingKeys::activeThemeConfig(), &ThemeConfig::chassisHue);
 */
namespace SettingsBinding {

template<typename T, typename Read, typename Write>
void bindSlider(SliderRow* row, SettingsStore& store, const SettingKey<T>& key, Read read, Write write)
{
    row->setValue(read(store.value(key)));
    store.bind(key, row, [row, read](const T& value) { row->setValue(read(value)); });
    QObject::connect(row, &SliderRow::valueChanged, row, [&store, keyOf = &key, write](double moved) {
        T value = store.value(*keyOf);
        write(value, moved);
        store.setValue(*keyOf, value);
    });
}

template<typename T>
void bindSlider(SliderRow* row, SettingsStore& store, const SettingKey<T>& key, double T::*field)
{
    bindSlider(
        row, store, key, [field](const T& value) { return value.*field; },
        [field](T& value, double moved) { value.*field = moved; });
}

inline void bindSlider(SliderRow* row, SettingsStore& store, const SettingKey<double>& key)
{
    bindSlider(
        row, store, key, [](double value) { return value; }, [](double& value, double moved) { value = moved; });
}

template<typename T, typename Read, typename Write>
void bindSwitch(SwitchRow* row, SettingsStore& store, const SettingKey<T>& key, Read read, Write write)
{
    row->setChecked(read(store.value(key)));
    store.bind(key, row, [row, read](const T& value) { row->setChecked(read(value)); });
    QObject::connect(row, &SwitchRow::toggled, row, [&store, keyOf = &key, write](bool on) {
        T value = store.value(*keyOf);
        write(value, on);
        store.setValue(*keyOf, value);
    });
}

template<typename T>
void bindSwitch(SwitchRow* row, SettingsStore& store, const SettingKey<T>& key, bool T::*field)
{
    bindSwitch(
        row, store, key, [field](const T& value) { return value.*field; },
        [field](T& value, bool on) { value.*field = on; });
}

inline void bindSwitch(SwitchRow* row, SettingsStore& store, const SettingKey<bool>& key)
{
    bindSwitch(
        row, store, key, [](bool value) { return value; }, [](bool& value, bool on) { value = on; });
}

} // namespace SettingsBinding
