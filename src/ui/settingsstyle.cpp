// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/settingsstyle.h"

#include <QFontDatabase>
#include <QPalette>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>
#include <QWidget>

namespace SettingsStyle {

namespace {

QColor withAlpha(QColor colour, double alpha)
{
    colour.setAlphaF(float(colour.alphaF() * alpha));
    return colour;
}

} // namespace

QColor accent(const QPalette& palette)
{
    return palette.color(QPalette::Highlight);
}

QColor primaryText(const QPalette& palette)
{
    return palette.color(QPalette::WindowText);
}

QColor secondaryText(const QPalette& palette)
{
    return withAlpha(primaryText(palette), 0.6);
}

QColor tertiaryText(const QPalette& palette)
{
    return withAlpha(primaryText(palette), 0.45);
}

QColor attention(const QPalette& palette)
{
    // The orange reads on white and on near-black alike; dark palettes take the slightly lighter tone.
    return isDark(palette) ? QColor(255, 159, 10) : QColor(230, 126, 0);
}

bool isDark(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightnessF() < palette.color(QPalette::WindowText).lightnessF();
}

QColor materialFill(const QPalette& palette)
{
    // A light window gets a whiter card; a dark one a card of lightened window colour, as a translucent layer
    // over whatever lies below (the window, or the card of an enclosing section).
    if (isDark(palette))
        return withAlpha(palette.color(QPalette::Window).lighter(160), 0.6);
    return withAlpha(palette.color(QPalette::Base), 0.6);
}

QColor whiteLine(double opacity)
{
    QColor white(Qt::white);
    white.setAlphaF(float(opacity));
    return white;
}

QFont font(const QWidget* widget, double pixelSize, QFont::Weight weight)
{
    QFont result = widget ? widget->font() : QFont();
    result.setPixelSize(qRound(pixelSize));
    result.setWeight(weight);
    return result;
}

QFont monospacedDigits(double pixelSize)
{
    QFont result = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    result.setPixelSize(qRound(pixelSize));
    return result;
}

QPixmap symbol(const QWidget* widget, const QString& name, double pointSize, SymbolWeight weight, const QColor& colour)
{
    const qreal ratio = widget ? widget->devicePixelRatioF() : 1.0;
    const QImage image = SymbolIcons::shared().image(name, pointSize, weight, colour, ratio);
    return image.isNull() ? QPixmap() : QPixmap::fromImage(image);
}

QVBoxLayout* startSettingsPage(QScrollArea* area)
{
    constexpr int pageMargin = 16;
    constexpr int sectionGap = 12;
    area->setFrameShape(QFrame::NoFrame);
    area->setWidgetResizable(true);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area->viewport()->setAutoFillBackground(false);
    auto* page = new QWidget;
    page->setAutoFillBackground(false);
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(pageMargin, pageMargin, pageMargin, pageMargin);
    layout->setSpacing(sectionGap);
    return layout;
}

void finishSettingsPage(QScrollArea* area, QVBoxLayout* layout)
{
    QWidget* page = layout->parentWidget();
    layout->addStretch(1);
    area->setWidget(page);
    // The page only scrolls vertically, so the tab is never narrower than the page can be.
    area->setMinimumWidth(page->minimumSizeHint().width() + area->verticalScrollBar()->sizeHint().width());
}

} // namespace SettingsStyle
