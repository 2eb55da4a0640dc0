// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/**
 * What the theme library needs from the desktop to import and export theme documents: file choosers restricted to
 * JSON files, whole-file reads and writes, and the clipboard. The Qt implementation is QtThemeFileAccess; tests
 * substitute their own. Main thread only.
 */
class ThemeFileAccess
{
public:
    virtual ~ThemeFileAccess() = default;

    /** Lets the user pick one existing JSON file; none when cancelled. */
    virtual std::optional<QString> chooseFileToOpen() = 0;

    /** Lets the user pick where to save a JSON file, proposing `proposedFileName`; none when cancelled. */
    virtual std::optional<QString> chooseFileToSave(const QString& proposedFileName) = 0;

    /** The whole content of the file at `path`; none when it cannot be read. */
    virtual std::optional<QByteArray> readFile(const QString& path) = 0;

    /** Writes `bytes` to `path`, replacing any existing file; false on failure. */
    virtual bool writeFile(const QString& path, const QByteArray& bytes) = 0;

    /** Replaces the clipboard content with `text` as plain text. */
    virtual void setClipboardText(const QString& text) = 0;

protected:
    ThemeFileAccess() = default;
    ThemeFileAccess(const ThemeFileAccess&) = default;
    ThemeFileAccess& operator=(const ThemeFileAccess&) = default;
};
