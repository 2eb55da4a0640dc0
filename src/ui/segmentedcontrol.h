// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QStringList>
#include <QWidget>

class QAbstractButton;
class QButtonGroup;

/**
 * A row of mutually exclusive choices on one rounded track; the chosen one sits on a raised pill. Each choice is
 * a checkable button, so the arrow keys move between them and assistive technology sees them by their labels.
 *
 * activated() tells of the user's choices only; setCurrentIndex() is silent.
 */
class SegmentedControl final : public QWidget
{
    Q_OBJECT

public:
    explicit SegmentedControl(const QStringList& labels, QWidget* parent = nullptr);
    ~SegmentedControl() override;

    int count() const;
    /** The chosen segment; -1 before the first choice. */
    int currentIndex() const;
    void setCurrentIndex(int index);
    QAbstractButton* segment(int index) const;

signals:
    /** The user chose segment `index` (a different one from before). */
    void activated(int index);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QButtonGroup* m_group;
    int m_current = -1;
};
