// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "keyboard/keylabelsettings.h"

#include <QAbstractButton>
#include <QFrame>
#include <QString>

class QLineEdit;
class QListView;
class QStyleOptionComboBox;
class LayoutChoiceFilter;
class LayoutChoiceDelegate;

/** Text folded for matching: case-folded, without accents ("Français" and "FRANCAIS" both give "francais"). */
QString foldedForSearch(const QString& text);

/**
 * The pop-up list of a LayoutPicker: a search field over every key label choice, "Follow Keyboard Layout" and
 * "As Printed (US)" first, then each installed layout by description with its name beside it. Typing filters the
 * layouts by description or name (every word must match, ignoring case and accents); the two fixed choices stay.
 * The arrow keys move through the list while the search field keeps the focus; Return or a click chooses,
 * Escape closes without choosing.
 */
class LayoutPopup final : public QFrame
{
    Q_OBJECT

public:
    explicit LayoutPopup(QWidget* opener);
    ~LayoutPopup() override;

    QLineEdit* searchField() const { return m_search; }
    QListView* list() const { return m_list; }

    /** Clears the search, marks `current` and shows the popup below `opener` (above it when there is no room). */
    void open(const KeyLabels& current);

signals:
    void chosen(const KeyLabels& labels);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    void search(const QString& text);
    void step(int rows);
    void chooseCurrent();
    void select(int proxyRow);
    void place();

    QWidget* m_opener;
    QLineEdit* m_search;
    QListView* m_list;
    LayoutChoiceFilter* m_filter;
    LayoutChoiceDelegate* m_delegate;
    QString m_currentRaw;
};

/**
 * A button drawn as the style's drop-down box, showing the chosen key labels' display name (its text); clicking it
 * opens a LayoutPopup below it. So do Alt+Down, F4 and the arrow keys, and typing a letter, which then starts
 * the search with it.
 *
 * chosen() tells of the user's choices only; setCurrent() is silent.
 */
class LayoutPicker final : public QAbstractButton
{
    Q_OBJECT

public:
    explicit LayoutPicker(QWidget* parent = nullptr);
    ~LayoutPicker() override;

    KeyLabels current() const { return m_current; }
    void setCurrent(const KeyLabels& labels);

    /** The popup; made on first opening, so none before. */
    LayoutPopup* popup() const { return m_popup; }
    void showPopup();

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    /** The user chose `labels`, different from what was shown. */
    void chosen(const KeyLabels& labels);

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void initStyleOption(QStyleOptionComboBox* option) const;

    KeyLabels m_current;
    LayoutPopup* m_popup = nullptr;
};
