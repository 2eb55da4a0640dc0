// SPDX-License-Identifier: GPL-3.0-or-later
#include "theme/themeconfig.h"

using namespace Qt::StringLiterals;

namespace {

NamedTheme builtIn(const QString& name, const ThemeConfig& config)
{
    return { QUuid::createUuid(), name, config };
}

// Every row lists the fields in declaration order:
//   chassis hue, saturation, brightness, opacity, blur, corner radius; corner key radius; key spacing;
//   key cap hue, saturation, brightness, corner radius, border width; pressed hue, saturation, brightness;
//   drop shadow {enabled, radius, opacity, hue, saturation, brightness, x, y}; inner shadow {likewise};
//   text hue, saturation, brightness, opacity.
QList<NamedTheme> makeBuiltInThemes()
{
    // clang-format off
    return {
        builtIn(u"Spacegray"_s,
            { 0.687, 0.05, 1, 0.448, 0.854, 24.787, 18, 7,
                0, 0, 0.093, 6, 0.5, 0.1, 0.68, 0.95,
                { true, 4.689, 1, 0, 0, 0, 0, 0 },
                { true, 0, 0, 0, 0, 0, 0, 0 },
                0, 0, 0.871, 1 }),
        builtIn(u"Chiclet"_s,
            { 0.687, 0.022, 0.705, 0.6, 0.72, 28.441, 22.777, 7,
                0, 0, 0.093, 18.246, 0.5, 0.104, 0.63, 0.916,
                { true, 4.689, 1, 0, 0, 0, 0, 0 },
                { true, 0, 0, 0, 0, 0, 0, 0 },
                0, 0, 0.871, 1 }),
        builtIn(u"Black"_s,
            { 0.862, 0.318, 0.062, 1, 0, 24.787, 18, 7,
                0.709, 0.217, 0, 8.743, 1.257, 0.086, 0.512, 1,
                { true, 2.534, 0.321, 0.12, 0.198, 0.904, 0, 0 },
                { true, 0, 0, 0, 0, 0, 0, 0 },
                0, 0, 0.871, 1 }),
        builtIn(u"Muted"_s,
            { 0.862, 0, 0.088, 1, 0, 24.787, 18, 9.386,
                0.709, 0.028, 0.136, 8.743, 0, 0.996, 0.561, 0.655,
                { false, 2.534, 0.321, 0.12, 0.198, 0.904, 0, 0 },
                { false, 0, 0, 0, 0, 0, 0, 0 },
                0, 0, 0.871, 1 }),
        builtIn(u"Dark Beige"_s,
            { 0.137, 0.011, 0.211, 1, 0, 12.122, 11, 9.25,
                0.065, 0.016, 0.11, 4.498, 0, 0.081, 0.109, 0.883,
                { true, 2.347, 0.365, 0.182, 0.074, 0, 7, 7 },
                { true, 5.772, 0.423, 0.181, 0.119, 0.142, 0, 0 },
                0, 0, 1, 1 }),
        builtIn(u"Warm Gray"_s,
            { 0.064, 0.06, 0.79, 1, 0, 26.472, 18, 7,
                0.082, 0.107, 0.178, 12.049, 0, 0.144, 0.321, 0.349,
                { true, 2.343, 0.334, 0.063, 0.074, 0.26, 0, 1 },
                { true, 11.889, 0.761, 0.181, 0, 0, 0, 6 },
                0.091, 0.083, 0.96, 1 }),
        builtIn(u"Nude"_s,
            { 0.064, 0.06, 0.786, 1, 0, 26.472, 18, 7,
                0.981, 0.107, 0.367, 12.049, 0, 0.979, 0.152, 0.965,
                { true, 2.343, 0.334, 0.063, 0.074, 0.26, 0, 1 },
                { true, 5.155, 0.234, 0.181, 0.119, 0.142, 0, 0 },
                0.091, 0.148, 0.913, 1 }),
        builtIn(u"Low Key"_s,
            { 0.064, 0.06, 0.801, 1, 0, 26.472, 18, 7,
                0, 0.015, 0.9, 12.049, 0, 0.144, 0.321, 0.349,
                { true, 2.877, 0.465, 0.182, 0.074, 0.26, 0, 1 },
                { true, 5.155, 0.234, 0.181, 0.119, 0.142, 0, 0 },
                0.047, 0.142, 0.228, 1 }),
        builtIn(u"Light Indigo"_s,
            { 0.715, 0.078, 1, 0.63, 0.75, 24.787, 18, 7,
                0, 0, 0.972, 10.521, 0, 0.752, 0.105, 0.331,
                { true, 2.914, 0.334, 0.977, 0.074, 0.26, 0, 4 },
                { true, 5.155, 0.234, 0.979, 0.119, 0.142, 0, 0 },
                0, 0, 0.12, 1 }),
        builtIn(u"Light Rose"_s,
            { 0.967, 0.078, 1, 0.63, 0.75, 24.787, 18, 7,
                0, 0, 0.971, 10.521, 0, 0.971, 0.22, 0.349,
                { true, 2.914, 0.334, 0.977, 0.074, 0.26, 0, 4 },
                { true, 5.155, 0.234, 0.979, 0.119, 0.142, 0, 0 },
                0, 0, 0.12, 1 }),
        builtIn(u"Light Green"_s,
            { 0.385, 0.078, 1, 0.63, 0.75, 24.787, 18, 7,
                0, 0, 0.974, 10.521, 0, 0.421, 0.22, 0.349,
                { true, 2.914, 0.334, 0.448, 0.074, 0.26, 0, 4 },
                { true, 5.155, 0.234, 0.445, 0.119, 0.142, 0, 0 },
                0, 0, 0.12, 1 }),
        builtIn(u"Light Blue"_s,
            { 0.595, 0.144, 1, 0.63, 0.75, 24.787, 18, 7,
                0, 0, 0.973, 10.521, 0, 0.585, 0.321, 0.349,
                { true, 2.914, 0.334, 0.639, 0.074, 0.26, 0, 4 },
                { true, 5.155, 0.234, 0.592, 0.119, 0.142, 0, 0 },
                0, 0, 0.12, 1 }),
        builtIn(u"Light Yellow"_s,
            { 0.112, 0.099, 1, 0.63, 0.75, 24.787, 18, 7,
                0, 0, 0.975, 10.521, 0, 0.144, 0.321, 0.349,
                { true, 2.914, 0.334, 0.182, 0.074, 0.26, 0, 4 },
                { true, 5.155, 0.234, 0.181, 0.119, 0.142, 0, 0 },
                0, 0, 0.12, 1 }),
        builtIn(u"Beige"_s,
            { 0.137, 0.011, 0.717, 1, 0, 12.122, 11, 9.25,
                0.065, 0.016, 0.988, 4.498, 0, 0.144, 0.321, 0.349,
                { true, 2.347, 0.365, 0.182, 0.074, 0, 7, 7 },
                { true, 5.772, 0.423, 0.181, 0.119, 0.142, 0, 0 },
                0, 0, 0.12, 1 }),
    };
    // clang-format on
}

} // namespace

const QList<NamedTheme>& builtInThemes()
{
    // Built on first use (thread-safe static initialisation), so the random ids are fixed for the rest of the run
    // and the same entry can be found again by id.
    static const QList<NamedTheme> themes = makeBuiltInThemes();
    return themes;
}

const ThemeConfig& defaultThemeConfig()
{
    return builtInThemes().constFirst().config;
}
