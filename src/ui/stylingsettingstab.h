// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themeconfig.h"
#include "ui/themefieldrows.h"

#include <QScrollArea>

#include <memory>

class SettingsSection;
class SettingsStore;
class ShadowEditor;
class ThemeFileAccess;
class ThemeLibraryEditor;
class ThemeLibraryPanel;

/**
 * The Styling tab of the settings window: the theme library ("Themes": the saved themes, saving, sharing and
 * importing) and, below it, every parameter of the active theme configuration in the sections "Chassis",
 * "Keycap" (with its "Pressed State"), "Drop Shadow", "Inner Shadow" and "Text".
 *
 * Each control edits one field of the stored configuration and writes the whole configuration at every move, so
 * the keyboard itself is the preview. Controls follow the configuration when it changes elsewhere (the tray menu,
 * the theme list, an edit of the settings file) without writing it back, and the colour tracks follow the colour
 * they belong to. Slider rows are named after their field ("chassisHue", …); the shadow sections are named
 * "dropShadow" and "innerShadow". Scrolls when the window is shorter than the tab.
 *
 * The tab owns the editing state of the theme library, which starts afresh with every tab.
 */
class StylingSettingsTab final : public QScrollArea
{
    Q_OBJECT

public:
    /** `settings` and `files` must outlive the tab. */
    StylingSettingsTab(SettingsStore& settings, ThemeFileAccess& files, QWidget* parent = nullptr);
    ~StylingSettingsTab() override;

    /** The theme library's editing state and operations behind the theme list. */
    ThemeLibraryEditor& editor() const { return *m_editor; }

    SettingsSection* themesSection() const { return m_themes; }
    SettingsSection* chassisSection() const { return m_chassis; }
    SettingsSection* keycapSection() const { return m_keycap; }
    ShadowEditor* dropShadowSection() const { return m_dropShadow; }
    ShadowEditor* innerShadowSection() const { return m_innerShadow; }
    SettingsSection* textSection() const { return m_text; }
    ThemeLibraryPanel* library() const { return m_library; }

private:
    void buildThemes();
    void buildChassis();
    void buildKeycap();
    void buildText();
    void showConfig(const ThemeConfig& config);

    SettingsStore& m_settings;
    std::unique_ptr<ThemeLibraryEditor> m_editor;
    ThemeFieldRows m_fields;
    ColourRows m_chassisColour;
    ColourRows m_keycapColour;
    ColourRows m_pressedColour;
    ColourRows m_textColour;

    SettingsSection* m_themes = nullptr;
    ThemeLibraryPanel* m_library = nullptr;
    SettingsSection* m_chassis = nullptr;
    SettingsSection* m_keycap = nullptr;
    ShadowEditor* m_dropShadow = nullptr;
    ShadowEditor* m_innerShadow = nullptr;
    SettingsSection* m_text = nullptr;
};
