// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themeconfig.h"
#include "ui/settingssection.h"
#include "ui/themefieldrows.h"

#include <QLineEdit>
#include <QLocale>

#include <optional>

class SettingsStore;
class SliderRow;
class SwitchRow;

/**
 * A text field holding one number, shown and read in the field's locale (the user's, unless set otherwise): "1,5"
 * in German, "1.5" in English, without group separators.
 *
 * Typing changes nothing until the edit is finished with Return or by leaving the field; then valueEdited() tells
 * of the new number. Text that is no finite number is dropped and the field shows the number it had again. The Up
 * and Down keys step the number by 1 at once. setValue() is silent, and leaves text the user is still typing alone.
 */
class NumberField final : public QLineEdit
{
    Q_OBJECT

public:
    /** `title` is the placeholder and the accessible name. */
    explicit NumberField(const QString& title, QWidget* parent = nullptr);
    ~NumberField() override;

    double value() const { return m_value; }
    void setValue(double value);

    /** `value` as the field shows it in `locale`. */
    static QString textFor(double value, const QLocale& locale);
    /** The finite number `text` stands for in `locale` (surrounding spaces allowed), or none. */
    static std::optional<double> parse(const QString& text, const QLocale& locale);

    QSize sizeHint() const override;

signals:
    /** The user finished an edit with a number different from value(); value() already holds it. */
    void valueEdited(double value);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void finishEditing();
    void showValue();

    double m_value = 0.0;
};

/**
 * A section editing one shadow of the active theme configuration: "Enabled", "Radius", "Opacity", "Hue",
 * "Saturation", "Brightness" and the "X / Y" offset. While the shadow is off the other rows stay visible but cannot
 * be used. Every change writes the whole configuration with only this shadow's one field changed; changes made
 * elsewhere show at once and are never written back.
 *
 * The controls are named after the fields they edit ("enabled", "radius", …, "x", "y").
 */
class ShadowEditor final : public SettingsSection
{
    Q_OBJECT

public:
    /**
     * A section titled `title` editing `shadow` (ThemeConfig::dropShadow or ThemeConfig::innerShadow).
     * `settings` must outlive the editor.
     */
    ShadowEditor(
        const QString& title, SettingsStore& settings, ShadowConfig ThemeConfig::*shadow, QWidget* parent = nullptr);
    ~ShadowEditor() override;

    SwitchRow* enabledRow() const { return m_enabled; }
    SliderRow* radiusRow() const { return m_radius; }
    const ColourRows& colourRows() const { return m_colour; }
    NumberField* xField() const { return m_x; }
    NumberField* yField() const { return m_y; }

private:
    void showConfig(const ThemeConfig& config);
    void writeField(double ShadowConfig::*field, double value);

    SettingsStore& m_settings;
    ShadowConfig ThemeConfig::*m_shadow;
    ThemeFieldRows m_fields;
    SwitchRow* m_enabled = nullptr;
    SliderRow* m_radius = nullptr;
    ColourRows m_colour;
    QWidget* m_offsetRow = nullptr;
    NumberField* m_x = nullptr;
    NumberField* m_y = nullptr;
};
