// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themeconfig.h"

#include <QAbstractListModel>
#include <QColor>
#include <QListView>
#include <QUuid>

#include <memory>
#include <optional>

class QMenu;
class QToolButton;
class SettingsStore;
class ThemeLibraryEditor;

/**
 * The rows of the theme list: one per saved theme in list order and, while the active configuration is one no saved
 * theme holds, a last "Current (unsaved)" row tagged ThemeLibrary::unsavedMarkerID().
 *
 * refresh() brings the rows up to date with the settings, touching only the rows that changed, so a row being
 * renamed keeps its editor and the selection stays where it is.
 */
class ThemeListModel final : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role
    {
        /** The row's tag: the theme's id, or the unsaved marker. */
        IdRole = Qt::UserRole + 1,
        /** The row stands for the unsaved active configuration. */
        UnsavedRole,
        /** The key cap colour the row's swatch shows, opaque. */
        SwatchColourRole,
    };

    /** `settings` must outlive the model. */
    explicit ThemeListModel(SettingsStore& settings, QObject* parent = nullptr);
    ~ThemeListModel() override;

    /** Reads the saved themes and the active configuration again. */
    void refresh();

    /** The row tagged `id`; invalid when there is none. */
    QModelIndex indexOf(const QUuid& id) const;
    /** Whether the last row is the "Current (unsaved)" row. */
    bool hasUnsavedRow() const { return !m_rows.isEmpty() && m_rows.last().unsaved; }
    /** The tag of the row at `index`; none for an invalid index. */
    std::optional<QUuid> idAt(const QModelIndex& index) const;

    /** The opaque key cap colour of `config`. */
    static QColor keycapColour(const ThemeConfig& config);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    struct Row
    {
        QUuid id;
        QString name;
        QColor swatch;
        bool unsaved = false;

        friend bool operator==(const Row&, const Row&) = default;
    };

    SettingsStore& m_settings;
    QList<Row> m_rows;
};

/**
 * The list of saved themes in the Styling tab, in sidebar style, bound to a ThemeLibraryEditor.
 *
 * The highlighted row is the editor's selectedThemeID: choosing a row (click or arrow keys) sets it, which makes
 * that theme active; when the editor changes it, the list shows that without setting it back. Each theme row has
 * its key cap swatch and name; while the editor renames an entry, that row holds a field ("Name") that renames on
 * every edit and ends on Return (or on leaving it; Escape restores the name it had). The entry the unsaved edits
 * started from offers a button that replaces it with the current configuration. A theme row's context menu offers
 * "Rename…", "Delete" (while there are two themes or more), "Copy to Clipboard" and "Save as JSON File…"; F2
 * renames the highlighted theme.
 *
 * The list follows the settings, whoever changes them, and never writes while it only shows a change.
 */
class ThemeListView final : public QListView
{
    Q_OBJECT

public:
    /** `editor` and `settings` must outlive the view. */
    ThemeListView(ThemeLibraryEditor& editor, SettingsStore& settings, QWidget* parent = nullptr);
    ~ThemeListView() override;

    ThemeListModel* themeModel() const { return m_model; }

    /** The button "Replace with current config"; shown over the base entry's row while the edits are unsaved. */
    QToolButton* replaceButton() const { return m_replace; }

    /** The open rename field, if any. */
    QWidget* renameEditor() const;

    /** The context menu of the row at `index`; null for rows that have none. */
    std::unique_ptr<QMenu> createContextMenu(const QModelIndex& index);

    /** Height of one row. */
    int rowHeight() const;
    /** Whether the highlighted row shows in the accent colour: the list (or its rename field) has the focus. */
    bool showsFocusedSelection() const;
    /** Rows shown before the list scrolls. */
    static constexpr int visibleRows = 8;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    void updateGeometries() override;
    void selectionChanged(const QItemSelection& selected, const QItemSelection& deselected) override;

private:
    class Delegate;

    void followLibrary();
    void showSelection();
    void showRenaming();
    void placeReplaceButton();
    void restyle();

    ThemeLibraryEditor& m_editor;
    ThemeListModel* m_model;
    Delegate* m_delegate;
    QToolButton* m_replace;
    QColor m_replaceTint;
    /** Set while the list only shows a change, so selection changes are not the user's. */
    bool m_reflecting = false;
    std::optional<QUuid> m_shownSelection;
    QPersistentModelIndex m_renaming;
};
