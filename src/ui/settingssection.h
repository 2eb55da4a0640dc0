// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QAbstractButton>
#include <QWidget>

class QVariantAnimation;
class QVBoxLayout;

/**
 * The header of a SettingsSection: a flat button showing the section's symbol in the accent tint, its title in
 * heavy type and, at the far end, a chevron that points right while collapsed and turns down while expanded.
 * Checkable; checked means expanded.
 */
class SettingsSectionHeader final : public QAbstractButton
{
    Q_OBJECT

public:
    SettingsSectionHeader(const QString& title, const QString& icon, QWidget* parent = nullptr);
    ~SettingsSectionHeader() override;

    QString icon() const { return m_icon; }
    /** The chevron's current turn in degrees: 0 collapsed, 90 expanded, in between while it turns. */
    double chevronAngle() const { return m_angle; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    QString m_icon;
    QVariantAnimation* m_turn;
    double m_angle = 90.0;
    bool m_keyboardFocus = false;
};

/**
 * One titled, collapsible group of settings on a rounded translucent card. Clicking the header opens or closes
 * it; the content slides down from under the header while fading in, and back up while fading out.
 *
 * Controls go into content(), whose vertical layout keeps `spacing` between them. Sections start expanded.
 */
class SettingsSection : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(bool expanded READ isExpanded NOTIFY expandedChanged)

public:
    /** Seconds the content takes to open or close. */
    static constexpr double animationSeconds = 0.2;

    /** `icon` is a symbol name of SymbolIcons; `spacing` is the vertical gap between the controls. */
    SettingsSection(const QString& title, const QString& icon, double spacing, QWidget* parent = nullptr);
    ~SettingsSection() override;

    QString title() const;
    QString icon() const;
    double spacing() const { return m_spacing; }

    /** Holds the controls. */
    QWidget* content() const { return m_content; }
    QVBoxLayout* contentLayout() const { return m_contentLayout; }
    /** Appends a control (a row) to the content. */
    void addRow(QWidget* row);

    SettingsSectionHeader* header() const { return m_header; }

    bool isExpanded() const { return m_expanded; }
    /** Opens or closes the section, sliding the content while the section is shown, at once otherwise. */
    void setExpanded(bool expanded);
    /** Whether the content is in the middle of opening or closing. */
    bool isAnimating() const;

signals:
    void expandedChanged(bool expanded);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void setProgress(double progress);

    SettingsSectionHeader* m_header;
    QWidget* m_clip;
    QWidget* m_content;
    QVBoxLayout* m_contentLayout;
    QVariantAnimation* m_slide;
    double m_spacing;
    bool m_expanded = true;
};
