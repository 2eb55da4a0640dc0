// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QWidget>

class QLineEdit;
class QMenu;
class QToolButton;
class SettingsStore;
class ThemeLibraryEditor;
class ThemeListView;

/**
 * The theme library in the Styling tab: the list of saved themes, the "Save as theme..." field with its add button,
 * and a toolbar with the "Share" menu (copying or saving the active theme or all themes as a theme document) and
 * the import button. Every control goes through `editor`, and shows its state.
 *
 * Return in the name field saves nothing; only the add button does, and only while the name is not blank.
 */
class ThemeLibraryPanel final : public QWidget
{
    Q_OBJECT

public:
    /** `editor` and `settings` must outlive the panel. */
    ThemeLibraryPanel(ThemeLibraryEditor& editor, SettingsStore& settings, QWidget* parent = nullptr);
    ~ThemeLibraryPanel() override;

    ThemeListView* list() const { return m_list; }
    QLineEdit* nameField() const { return m_name; }
    QToolButton* saveButton() const { return m_save; }
    QToolButton* shareButton() const { return m_share; }
    QMenu* shareMenu() const { return m_shareMenu; }
    QToolButton* importButton() const { return m_import; }

protected:
    void changeEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void showName();
    void restyle();

    ThemeLibraryEditor& m_editor;
    ThemeListView* m_list;
    QLineEdit* m_name;
    QToolButton* m_save;
    QToolButton* m_share;
    QMenu* m_shareMenu;
    QToolButton* m_import;
};
