// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/keyboardview.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace ArrowClusterView {

double verticalGap(const ThemeStyle& style)
{
    return style.keySpacing <= 3 ? style.keySpacing : 3.0;
}

double width(const ThemeStyle& style, double unitSize)
{
    return 3 * unitSize + 2 * style.keySpacing;
}

std::array<QRectF, 4> layout(QPointF origin, const ThemeStyle& style, double unitSize, double keyHeight)
{
    const double gap = verticalGap(style);
    const double s = style.keySpacing;
    const double arrowHeight = (keyHeight - gap) / 2;
    const double bottom = origin.y() + arrowHeight + gap;
    const QSizeF size(unitSize, arrowHeight);
    return {
        QRectF(QPointF(origin.x() + unitSize + s, origin.y()), size),
        QRectF(QPointF(origin.x(), bottom), size),
        QRectF(QPointF(origin.x() + unitSize + s, bottom), size),
        QRectF(QPointF(origin.x() + 2 * (unitSize + s), bottom), size),
    };
}

} // namespace ArrowClusterView

double KeyboardView::computedUnitSize(const QSizeF& size, double keySpacing)
{
    const double k = keySpacing / 60.0;
    return std::min(size.width() / (rowWidthUnits + rowWidthSpacings * k),
        size.height() / (rowsHeightUnits + rowsHeightSpacings * k));
}

CornerKeyPosition KeyboardView::cornerPosition(int row, int rowCount, const KeyDef& key)
{
    if (row == 0) {
        if (key.keycode == 53)
            return CornerKeyPosition::topLeft;
        if (key.label == u"touchid"_s)
            return CornerKeyPosition::topRight;
        return CornerKeyPosition::none;
    }
    if (row == rowCount - 1 && key.keycode == 63)
        return CornerKeyPosition::bottomLeft;
    return CornerKeyPosition::none;
}

double KeyboardView::keyWidth(double widthMultiplier, double unitSize, double keySpacing)
{
    return widthMultiplier * unitSize + (widthMultiplier - 1) * keySpacing;
}

KeyboardView::KeyboardView(const ThemeConfig& config, const QRectF& rect, std::optional<double> overrideUnitSize,
    std::optional<ThemeStyle> overrideStyle, const KeyBoard& board)
{
    const ThemeStyle base(config);
    m_unitSize = overrideUnitSize ? *overrideUnitSize : computedUnitSize(rect.size(), base.keySpacing);
    m_style = overrideStyle ? *overrideStyle : base.scaled(m_unitSize);

    const double u = m_unitSize;
    const double s = m_style.keySpacing;
    const double keyHeight = u * keyHeightUnits;
    const QList<KeyRow>& rows = board.rows;
    const int rowCount = int(rows.size());
    // The ISO home row is short by Return's lower part, which hangs down from the row above.
    const int isoHomeRow = board.iso && rowCount > 3 ? 3 : -1;

    // Row widths first: the stack is as wide as its widest row and centres the others in it.
    QList<double> rowWidths;
    rowWidths.reserve(rowCount);
    for (int r = 0; r < rowCount; ++r) {
        double w = 0;
        for (const KeyDef& key : rows[r])
            w += keyWidth(key.widthMultiplier, u, s);
        w += s * double(std::max<qsizetype>(rows[r].size() - 1, 0));
        if (r == rowCount - 1)
            w += s + ArrowClusterView::width(m_style, u);
        rowWidths.append(w);
    }
    if (isoHomeRow >= 0)
        rowWidths[isoHomeRow] = 0;
    const double stackWidth = rowWidths.isEmpty() ? 0 : *std::max_element(rowWidths.cbegin(), rowWidths.cend());
    if (isoHomeRow >= 0)
        rowWidths[isoHomeRow] = stackWidth;
    const double stackHeight = rowCount * keyHeight + std::max(rowCount - 1, 0) * s;
    const double left = rect.left() + (rect.width() - stackWidth) / 2;
    const double top = rect.top() + (rect.height() - stackHeight) / 2;

    m_keys.reserve(allLayoutKeyCodes().size());
    for (int r = 0; r < rowCount; ++r) {
        double x = left + (stackWidth - rowWidths[r]) / 2;
        const double y = top + r * (keyHeight + s);
        for (const KeyDef& key : rows[r]) {
            const double w = keyWidth(key.widthMultiplier, u, s);
            m_keys.append({ &key, QRectF(x, y, w, keyHeight), r, r == 0, false, cornerPosition(r, rowCount, key), QSizeF() });
            x += w + s;
        }
        if (r == isoHomeRow && r > 0 && !rows[r - 1].isEmpty()) {
            // Return, last on the row above, reaches down to this row's end of keys, one spacing away.
            for (KeyPlacement& placement : m_keys) {
                if (placement.row != r - 1 || placement.key != &rows[r - 1].last())
                    continue;
                const double notchWidth = x - placement.rect.left();
                if (notchWidth > 0 && notchWidth < placement.rect.width()) {
                    placement.rect.setHeight(2 * keyHeight + s);
                    placement.notch = QSizeF(notchWidth, keyHeight + s);
                }
            }
        }
        if (r == rowCount - 1) {
            const auto arrows = ArrowClusterView::layout(QPointF(x, y), m_style, u, keyHeight);
            const KeyDef* arrowKeys[] = { &upArrowKey(), &leftArrowKey(), &downArrowKey(), &rightArrowKey() };
            for (int i = 0; i < 4; ++i) {
                const bool isRight = arrowKeys[i] == &rightArrowKey();
                m_keys.append({ arrowKeys[i], arrows[std::size_t(i)], r, false, true,
                    isRight ? CornerKeyPosition::bottomRight : CornerKeyPosition::none, QSizeF() });
            }
        }
    }
}

const KeyPlacement* KeyboardView::placement(KeyCode code) const
{
    for (const KeyPlacement& p : m_keys) {
        if (p.key->keycode == code)
            return &p;
    }
    return nullptr;
}
