// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "theme/themefileaccess.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

/** File dialogs, files and the clipboard in memory: the dialogs answer with the choices set here. */
class FakeFileAccess final : public ThemeFileAccess
{
public:
    std::optional<QString> chooseFileToOpen() override { return openChoice; }
    std::optional<QString> chooseFileToSave(const QString& name) override { return proposedNames << name, saveChoice; }
    std::optional<QByteArray> readFile(const QString& path) override
    {
        return files.contains(path) ? std::optional(files.value(path)) : std::nullopt;
    }
    bool writeFile(const QString& path, const QByteArray& bytes) override { return files.insert(path, bytes), true; }
    void setClipboardText(const QString& text) override { clipboard.append(text); }

    std::optional<QString> openChoice = QStringLiteral("in.json");
    std::optional<QString> saveChoice = QStringLiteral("out.json");
    QHash<QString, QByteArray> files;
    QStringList proposedNames;
    QStringList clipboard;
};
