// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themeconfig.h"

#include <QGradientStops>
#include <QString>

#include <functional>
#include <vector>

class SettingsStore;
class SliderRow;
class QWidget;

/**
 * Slider rows that each edit one number of the active theme configuration. A move reads the stored configuration,
 * changes that one number and writes the configuration back whole, so the keyboard redraws while the slider moves.
 *
 * The rows do not follow the setting on their own: the owner calls show() with the configuration whenever it
 * changes, which sets every row at once without writing anything back. `settings` must outlive the rows.
 */
class ThemeFieldRows final
{
public:
    /** Gives access to one number of a configuration. */
    using Field = std::function<double&(ThemeConfig&)>;

    /** Vertical gap between the rows of a section of theme fields. */
    static constexpr double rowSpacing = 4;

    explicit ThemeFieldRows(SettingsStore& settings);

    /**
     * A new row labelled `label` over `lower` … `upper`, showing its value with "%.2f", named `objectName`.
     * A non-empty `gradient` makes it a colour track. The caller places the row; it is not parented here.
     */
    SliderRow* add(const QString& label, double lower, double upper, Field field, const QString& objectName,
        const QGradientStops& gradient = {});

    /** Shows the numbers of `config` in every row. */
    void show(const ThemeConfig& config) const;

    /** A field of the configuration itself. */
    static Field member(double ThemeConfig::*field);
    /** A field of one of its shadows. */
    static Field member(ShadowConfig ThemeConfig::*shadow, double ShadowConfig::*field);

private:
    struct Row
    {
        SliderRow* row;
        Field field;
    };

    SettingsStore& m_settings;
    std::vector<Row> m_rows;
};

/**
 * The sliders of one colour: hue, saturation, brightness and, for colours that have one, opacity. Their tracks
 * show the colours they select around the current colour, and must be shown again whenever it changes.
 */
struct ColourRows
{
    SliderRow* hue = nullptr;
    SliderRow* saturation = nullptr;
    SliderRow* brightness = nullptr;
    SliderRow* opacity = nullptr;

    /** Gives each track the gradient for the colour (`h`, `s`, `b`). */
    void showGradients(double h, double s, double b) const;
};
