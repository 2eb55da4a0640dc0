// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/segmentedcontrol.h"

#include "ui/settingsstyle.h"

#include <QAbstractButton>
#include <QButtonGroup>
#include <QFocusEvent>
#include <QHBoxLayout>
#include <QPainter>

namespace {

constexpr int inset = 2;
constexpr int segmentHeight = 20;
constexpr double trackRadius = 6.5;
constexpr double pillRadius = 5;

class Segment final : public QAbstractButton
{
public:
    Segment(const QString& text, QWidget* parent)
        : QAbstractButton(parent)
    {
        setText(text);
        setCheckable(true);
        setFocusPolicy(Qt::TabFocus);
        setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    }

    QSize sizeHint() const override
    {
        QFont bold = font();
        bold.setWeight(QFont::DemiBold);
        return { QFontMetrics(bold).horizontalAdvance(text()) + 24, segmentHeight };
    }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void focusInEvent(QFocusEvent* event) override
    {
        m_keyboardFocus = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason
            || event->reason() == Qt::ShortcutFocusReason;
        QAbstractButton::focusInEvent(event);
    }

    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QPalette& pal = palette();
        const QRectF pill = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        if (isChecked()) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor(0, 0, 0, 30));
            painter.drawRoundedRect(pill.translated(0, 0.5), pillRadius, pillRadius);
            const QColor raised
                = SettingsStyle::isDark(pal) ? pal.color(QPalette::Window).lighter(190) : pal.color(QPalette::Base);
            painter.setBrush(raised);
            painter.drawRoundedRect(pill, pillRadius, pillRadius);
        } else if (isDown()) {
            painter.setPen(Qt::NoPen);
            QColor pressed = SettingsStyle::primaryText(pal);
            pressed.setAlphaF(0.08f);
            painter.setBrush(pressed);
            painter.drawRoundedRect(pill, pillRadius, pillRadius);
        }
        QFont textFont = font();
        if (isChecked())
            textFont.setWeight(QFont::DemiBold);
        painter.setFont(textFont);
        painter.setPen(isChecked() ? SettingsStyle::primaryText(pal) : SettingsStyle::secondaryText(pal));
        painter.drawText(rect(), Qt::AlignCenter, text());

        if (hasFocus() && m_keyboardFocus) {
            QColor ring = SettingsStyle::accent(pal);
            ring.setAlphaF(0.6f);
            painter.setPen(QPen(ring, 2.0));
            painter.setBrush(Qt::NoBrush);
            painter.drawRoundedRect(pill.adjusted(1, 1, -1, -1), pillRadius, pillRadius);
        }
    }

private:
    bool m_keyboardFocus = false;
};

} // namespace

SegmentedControl::SegmentedControl(const QStringList& labels, QWidget* parent)
    : QWidget(parent)
    , m_group(new QButtonGroup(this))
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(inset, inset, inset, inset);
    layout->setSpacing(0);
    for (int i = 0; i < labels.size(); ++i) {
        auto* segment = new Segment(labels[i], this);
        m_group->addButton(segment, i);
        layout->addWidget(segment);
    }
    m_group->setExclusive(true);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    connect(m_group, &QButtonGroup::idClicked, this, [this](int index) {
        if (index == m_current)
            return;
        m_current = index;
        update();
        emit activated(index);
    });
    connect(m_group, &QButtonGroup::idToggled, this, [this](int, bool) { update(); });
}

SegmentedControl::~SegmentedControl() = default;

int SegmentedControl::count() const
{
    return int(m_group->buttons().size());
}

int SegmentedControl::currentIndex() const
{
    return m_current;
}

void SegmentedControl::setCurrentIndex(int index)
{
    QAbstractButton* chosen = m_group->button(index);
    if (!chosen || index == m_current)
        return;
    m_current = index;
    chosen->setChecked(true);
}

QAbstractButton* SegmentedControl::segment(int index) const
{
    return m_group->button(index);
}

void SegmentedControl::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled())
        painter.setOpacity(0.45);
    QColor track = SettingsStyle::primaryText(palette());
    track.setAlphaF(SettingsStyle::isDark(palette()) ? 0.12f : 0.07f);
    painter.setPen(Qt::NoPen);
    painter.setBrush(track);
    painter.drawRoundedRect(QRectF(rect()), trackRadius, trackRadius);
}
