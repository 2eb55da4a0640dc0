// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themefileaccess.h"

#include <QPointer>
#include <QWidget>

/**
 * Theme file access through Qt: modal QFileDialogs limited to JSON files, QSaveFile for writing and the system
 * clipboard. Main thread only; needs a QApplication.
 */
class QtThemeFileAccess final : public ThemeFileAccess
{
public:
    /** Dialogs open over `dialogParent` (may be null, or go away before this object). */
    explicit QtThemeFileAccess(QWidget* dialogParent = nullptr);

    std::optional<QString> chooseFileToOpen() override;
    std::optional<QString> chooseFileToSave(const QString& proposedFileName) override;
    std::optional<QByteArray> readFile(const QString& path) override;
    bool writeFile(const QString& path, const QByteArray& bytes) override;
    void setClipboardText(const QString& text) override;

    /** Theme documents are small; a larger file is not read at all. */
    static constexpr qint64 maximumReadSize = 16 * 1024 * 1024;

private:
    QPointer<QWidget> m_dialogParent;
};
