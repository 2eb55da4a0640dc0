// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themeconfig.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QUuid>

#include <optional>

class SettingsStore;
class ThemeFileAccess;

/**
 * The rules that keep the saved-theme list, the active configuration and the active theme name consistent.
 *
 * The active configuration is never tied to a list entry by identity: entries are matched by name for the active
 * name and by configuration for the unsaved state. Every operation reads the settings when it runs and writes whole
 * values back. Main thread only.
 */
namespace ThemeLibrary {

/** The text of the item that stands for an active configuration no saved theme holds. */
QString currentUnsavedText();

/** The all-zero UUID: the list tag of the "Current (unsaved)" row, never the id of a saved theme. */
QUuid unsavedMarkerID();

/** True when no entry of `saved` has a configuration equal to `active` (so always for an empty list). */
bool isCurrentConfigUnsaved(const ThemeConfig& active, const QList<NamedTheme>& saved);

/** isCurrentConfigUnsaved() for what `settings` holds now. */
bool isCurrentConfigUnsaved(const SettingsStore& settings);

/** Makes `theme` the active one: "activeThemeConfig" becomes its configuration, then "activeThemeName" its name. */
void chooseThemeFromMenu(SettingsStore& settings, const NamedTheme& theme);

/** `name` without leading and trailing spaces and tabs (line breaks are kept). */
QString trimmedThemeName(const QString& name);

/**
 * A theme document holding the active theme: the first saved entry named like "activeThemeName" as saved, or, when
 * there is none, a new theme (fresh id) of that name with the active configuration. Numbers are rounded to three
 * decimals. None when the theme cannot be encoded.
 */
std::optional<QByteArray> exportActiveTheme(const SettingsStore& settings);

/** A theme document holding every saved theme in list order, rounded like exportActiveTheme(). */
std::optional<QByteArray> exportAllThemes(const SettingsStore& settings);

} // namespace ThemeLibrary

/**
 * The editing state of the theme list in the settings window, and the operations behind its controls.
 *
 * Create one each time the settings window opens; the state starts empty. While it exists, every change of
 * "activeThemeConfig" to a different value runs configChanged(), whoever made it. Setting selectedThemeID to a
 * different value runs selectTheme(). `settings` and `files` must outlive the editor.
 */
class ThemeLibraryEditor final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ThemeLibraryEditor)

public:
    ThemeLibraryEditor(SettingsStore& settings, ThemeFileAccess& files, QObject* parent = nullptr);
    ~ThemeLibraryEditor() override;

    /** Contents of the "Save as theme..." field. */
    QString newThemeName() const { return m_newThemeName; }
    void setNewThemeName(const QString& name);

    /** The entry whose name is being edited in place; none when no name is. */
    std::optional<QUuid> editingThemeID() const { return m_editingThemeID; }

    /** The highlighted row: an entry's id, ThemeLibrary::unsavedMarkerID() for "Current (unsaved)", or none. */
    std::optional<QUuid> selectedThemeID() const { return m_selectedThemeID; }
    /** A different value runs selectTheme() for it. */
    void setSelectedThemeID(const std::optional<QUuid>& id);

    /** The entry the current unsaved edits started from. */
    std::optional<QUuid> baseThemeID() const { return m_baseThemeID; }

    /** Whether the "Current (unsaved)" row is shown. */
    bool isCurrentConfigUnsaved() const;
    /** Whether "Delete" is offered: the list holds at least two entries. */
    bool canDeleteThemes() const;
    /** Whether the plus button beside the "Save as theme..." field is enabled. */
    bool canSaveAsTheme() const;

    /** Makes entry `id` active; nothing for none, the unsaved marker or an id no entry has. */
    void selectTheme(const std::optional<QUuid>& id);
    /** Follows a change of the active configuration; runs by itself, see the class comment. */
    void configChanged();

    /** Saves the active configuration under the trimmed newThemeName, over an entry of that name if there is one. */
    void saveAsTheme();
    /** Gives entry `id` the active configuration. */
    void replaceWithCurrentConfig(const QUuid& id);

    void beginRename(const QUuid& id);
    /** Renames entry `id` to `newName` exactly as typed; the active name follows when it was the old name. */
    void renameTheme(const QUuid& id, const QString& newName);
    void endRename();

    /** Removes entry `id`; when it held the active name, the first remaining entry becomes active. */
    void deleteTheme(const QUuid& id);

    /** Asks for a theme document and appends its themes under unique names and fresh ids; all or nothing. */
    void importThemes();

    /** "Copy to Clipboard" */
    void copyActiveThemeToClipboard();
    /** "Copy All to Clipboard" */
    void copyAllThemesToClipboard();
    /** "Save as JSON File…" */
    void saveActiveThemeToFile();
    /** "Save All as JSON File…" */
    void saveAllThemesToFile();

signals:
    void newThemeNameChanged(const QString& name);
    void editingThemeIDChanged(const std::optional<QUuid>& id);
    void selectedThemeIDChanged(const std::optional<QUuid>& id);
    void baseThemeIDChanged(const std::optional<QUuid>& id);
    /** "savedThemes", "activeThemeConfig" or "activeThemeName" changed; editing state has already followed. */
    void libraryChanged();

private:
    void setEditingThemeID(const std::optional<QUuid>& id);
    void setBaseThemeID(const std::optional<QUuid>& id);
    void onSettingChanged(const QString& name);
    void copyToClipboard(const std::optional<QByteArray>& document);
    void saveToFile(const std::optional<QByteArray>& document, const QString& proposedFileName);

    SettingsStore& m_settings;
    ThemeFileAccess& m_files;
    QString m_newThemeName;
    std::optional<QUuid> m_editingThemeID;
    std::optional<QUuid> m_selectedThemeID;
    bool m_suppressConfigChange = false;
    std::optional<QUuid> m_baseThemeID;
};
