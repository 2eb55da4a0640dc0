// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QAbstractButton>

class QVariantAnimation;

/**
 * An on/off switch: a rounded track, accent-coloured while on, with a white knob that slides to the side of the
 * state. Always checkable. Space toggles it when focused, as for any button; clicked() tells of the user's changes
 * only, toggled() of every change. The text is not drawn; it is the accessible name when none is set.
 */
class ToggleSwitch final : public QAbstractButton
{
    Q_OBJECT

public:
    explicit ToggleSwitch(QWidget* parent = nullptr);
    ~ToggleSwitch() override;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    /** Where the knob is drawn: 0 at the off end, 1 at the on end; moves over a short animation after a change. */
    double knobPosition() const { return m_position; }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool hitButton(const QPoint& pos) const override;
    void mousePressEvent(QMouseEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void animateTo(bool on);

    QVariantAnimation* m_animation;
    double m_position = 0.0;
    bool m_keyboardFocus = false;
};
