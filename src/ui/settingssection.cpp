// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/settingssection.h"

#include "keyboard/symbolicons.h"
#include "ui/settingsstyle.h"

#include <QEvent>
#include <QFocusEvent>
#include <QGraphicsOpacityEffect>
#include <QPainter>
#include <QVBoxLayout>
#include <QVariantAnimation>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr double iconPoints = 12;
constexpr double iconFrameWidth = 18;
constexpr double titlePixels = 13;
constexpr double chevronPoints = 10;
constexpr int iconTitleGap = 6;
constexpr int headerHeight = 30;
constexpr double cornerRadius = 10;
constexpr int animationMilliseconds = int(SettingsSection::animationSeconds * 1000);

/**
 * Shows its one child, the section's content, cut to a height of `progress` × the content's height with the
 * content's bottom edge on its own, so that while the height grows the content slides down into view.
 */
class SlideClip final : public QWidget
{
public:
    SlideClip(QWidget* content, QWidget* parent)
        : QWidget(parent)
        , m_content(content)
    {
        content->setParent(this);
        content->installEventFilter(this);
        QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Fixed);
        policy.setHeightForWidth(true);
        setSizePolicy(policy);
    }

    double progress() const { return m_progress; }
    void setProgress(double progress)
    {
        m_progress = progress;
        if (auto* effect = qobject_cast<QGraphicsOpacityEffect*>(m_content->graphicsEffect()))
            effect->setOpacity(progress);
        updateGeometry();
        place();
    }

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return int(std::ceil(fullHeight(width) * m_progress)); }
    QSize sizeHint() const override
    {
        const QSize content = m_content->sizeHint();
        return { content.width(), heightForWidth(width() > 0 ? width() : content.width()) };
    }
    QSize minimumSizeHint() const override { return { m_content->minimumSizeHint().width(), 0 }; }

protected:
    void resizeEvent(QResizeEvent* event) override
    {
        QWidget::resizeEvent(event);
        place();
    }

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (watched == m_content && event->type() == QEvent::LayoutRequest) {
            updateGeometry();
            place();
        }
        return QWidget::eventFilter(watched, event);
    }

private:
    int fullHeight(int width) const
    {
        return m_content->hasHeightForWidth() ? m_content->heightForWidth(width) : m_content->sizeHint().height();
    }

    void place()
    {
        const int full = fullHeight(width());
        m_content->setGeometry(0, height() - full, width(), full);
    }

    QWidget* m_content;
    double m_progress = 1.0;
};

} // namespace

SettingsSectionHeader::SettingsSectionHeader(const QString& title, const QString& icon, QWidget* parent)
    : QAbstractButton(parent)
    , m_icon(icon)
    , m_turn(new QVariantAnimation(this))
{
    setText(title);
    setCheckable(true);
    setChecked(true);
    setFocusPolicy(Qt::TabFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    m_turn->setDuration(animationMilliseconds);
    m_turn->setEasingCurve(QEasingCurve::InOutQuad);
    connect(m_turn, &QVariantAnimation::valueChanged, this, [this](const QVariant& angle) {
        m_angle = angle.toDouble();
        update();
    });
    connect(this, &QAbstractButton::toggled, this, [this](bool expanded) {
        const double target = expanded ? 90.0 : 0.0;
        m_turn->stop();
        if (!isVisible()) {
            m_angle = target;
            update();
            return;
        }
        m_turn->setStartValue(m_angle);
        m_turn->setEndValue(target);
        m_turn->start();
    });
}

SettingsSectionHeader::~SettingsSectionHeader() = default;

QSize SettingsSectionHeader::sizeHint() const
{
    const QFontMetrics metrics(SettingsStyle::font(this, titlePixels, QFont::Black));
    const int width = int(iconFrameWidth) + iconTitleGap + metrics.horizontalAdvance(text()) + 16
        + int(std::ceil(SymbolIcons::boxSide(chevronPoints)));
    return { width, headerHeight };
}

QSize SettingsSectionHeader::minimumSizeHint() const
{
    return { int(iconFrameWidth) * 3, headerHeight };
}

void SettingsSectionHeader::focusInEvent(QFocusEvent* event)
{
    m_keyboardFocus = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason
        || event->reason() == Qt::ShortcutFocusReason;
    QAbstractButton::focusInEvent(event);
}

void SettingsSectionHeader::mousePressEvent(QMouseEvent* event)
{
    m_keyboardFocus = false;
    QAbstractButton::mousePressEvent(event);
}

void SettingsSectionHeader::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& pal = palette();
    if (!isEnabled())
        painter.setOpacity(0.45);
    SymbolIcons& symbols = SymbolIcons::shared();
    const double middle = height() / 2.0;

    const double iconBox = SymbolIcons::boxSide(iconPoints);
    symbols.paint(painter, QRectF(0, middle - iconBox / 2, iconFrameWidth, iconBox), m_icon, iconPoints,
        SymbolWeight::medium, SettingsStyle::accent(pal));

    const double chevronBox = SymbolIcons::boxSide(chevronPoints);
    const QRectF chevron(width() - chevronBox - 2, middle - chevronBox / 2, chevronBox, chevronBox);
    const double titleLeft = iconFrameWidth + iconTitleGap;
    const QRectF titleRect(titleLeft, 0, chevron.left() - 8 - titleLeft, height());
    painter.setFont(SettingsStyle::font(this, titlePixels, QFont::Black));
    painter.setPen(SettingsStyle::primaryText(pal));
    const QString title = painter.fontMetrics().elidedText(text(), Qt::ElideRight, int(titleRect.width()));
    painter.drawText(titleRect, Qt::AlignLeft | Qt::AlignVCenter, title);

    painter.save();
    painter.translate(chevron.center());
    painter.rotate(m_angle);
    symbols.paint(painter, QRectF(-chevronBox / 2, -chevronBox / 2, chevronBox, chevronBox), u"chevron.right"_s,
        chevronPoints, SymbolWeight::semibold, SettingsStyle::tertiaryText(pal));
    painter.restore();

    if (hasFocus() && m_keyboardFocus) {
        QColor ring = SettingsStyle::accent(pal);
        ring.setAlphaF(0.6f);
        painter.setPen(QPen(ring, 2.0));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(rect()).adjusted(1, 2, -1, -2), 5, 5);
    }
}

SettingsSection::SettingsSection(const QString& title, const QString& icon, double spacing, QWidget* parent)
    : QWidget(parent)
    , m_header(new SettingsSectionHeader(title, icon, this))
    , m_content(new QWidget)
    , m_contentLayout(new QVBoxLayout(m_content))
    , m_slide(new QVariantAnimation(this))
    , m_spacing(spacing)
{
    m_clip = new SlideClip(m_content, this);
    m_contentLayout->setSpacing(int(std::lround(spacing)));
    // Set in from the card's edges, a little further on the leading side than the header's symbol.
    m_contentLayout->setContentsMargins(4, 2, 2, 10);
    m_contentLayout->setAlignment(Qt::AlignTop);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 4, 12, 4);
    layout->setSpacing(0);
    layout->addWidget(m_header);
    layout->addWidget(m_clip);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);

    m_slide->setDuration(animationMilliseconds);
    m_slide->setEasingCurve(QEasingCurve::InOutQuad);
    connect(m_slide, &QVariantAnimation::valueChanged, this,
        [this](const QVariant& progress) { setProgress(progress.toDouble()); });
    connect(m_slide, &QVariantAnimation::finished, this, [this] { setProgress(m_expanded ? 1.0 : 0.0); });
    connect(m_header, &QAbstractButton::clicked, this, [this](bool expanded) { setExpanded(expanded); });
}

SettingsSection::~SettingsSection() = default;

QString SettingsSection::title() const
{
    return m_header->text();
}

QString SettingsSection::icon() const
{
    return m_header->icon();
}

void SettingsSection::addRow(QWidget* row)
{
    m_contentLayout->addWidget(row);
}

bool SettingsSection::isAnimating() const
{
    return m_slide->state() == QAbstractAnimation::Running;
}

void SettingsSection::setExpanded(bool expanded)
{
    if (expanded == m_expanded)
        return;
    m_expanded = expanded;
    m_header->setChecked(expanded);

    const double target = expanded ? 1.0 : 0.0;
    const double from = static_cast<SlideClip*>(m_clip)->progress();
    m_slide->stop();
    if (!isVisible()) {
        setProgress(target);
    } else {
        // Fading needs an effect on the content; it goes again once the content is fully shown.
        if (!m_content->graphicsEffect())
            m_content->setGraphicsEffect(new QGraphicsOpacityEffect(m_content));
        m_clip->setVisible(true);
        m_slide->setStartValue(from);
        m_slide->setEndValue(target);
        m_slide->start();
    }
    emit expandedChanged(expanded);
}

void SettingsSection::setProgress(double progress)
{
    auto* clip = static_cast<SlideClip*>(m_clip);
    clip->setProgress(progress);
    const bool settled = !isAnimating();
    if (settled && progress >= 1.0)
        m_content->setGraphicsEffect(nullptr);
    // Hidden when closed, so the layout leaves no gap and Tab skips the controls.
    clip->setVisible(progress > 0.0 || !settled);
}

void SettingsSection::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF card = QRectF(rect()).adjusted(0.25, 0.25, -0.25, -0.25);
    painter.setPen(QPen(SettingsStyle::whiteLine(0.06), 0.5));
    painter.setBrush(SettingsStyle::materialFill(palette()));
    painter.drawRoundedRect(card, cornerRadius, cornerRadius);
}
