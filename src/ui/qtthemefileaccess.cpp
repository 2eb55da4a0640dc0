// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/qtthemefileaccess.h"

#include <QClipboard>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QSaveFile>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

QString jsonFilter()
{
    return u"JSON (*.json)"_s;
}

std::optional<QString> runDialog(QFileDialog& dialog)
{
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    const QStringList chosen = dialog.selectedFiles();
    if (chosen.isEmpty() || chosen.first().isEmpty())
        return std::nullopt;
    return chosen.first();
}

} // namespace

QtThemeFileAccess::QtThemeFileAccess(QWidget* dialogParent)
    : m_dialogParent(dialogParent)
{
}

std::optional<QString> QtThemeFileAccess::chooseFileToOpen()
{
    QFileDialog dialog(m_dialogParent);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setNameFilter(jsonFilter());
    return runDialog(dialog);
}

std::optional<QString> QtThemeFileAccess::chooseFileToSave(const QString& proposedFileName)
{
    QFileDialog dialog(m_dialogParent);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setNameFilter(jsonFilter());
    dialog.setDefaultSuffix(u"json"_s);
    dialog.setOption(QFileDialog::ReadOnly, false); // keeps "Create New Folder" available
    // A theme name may hold a slash, which would read as a folder in the proposed name.
    QString proposed = proposedFileName;
    proposed.replace(u'/', u'-');
    dialog.selectFile(proposed);
    return runDialog(dialog);
}

std::optional<QByteArray> QtThemeFileAccess::readFile(const QString& path)
{
    // Only regular files: reading a pipe or a device could block or never end.
    const QFileInfo info(path);
    if (!info.isFile() || info.size() > maximumReadSize)
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray bytes = file.read(maximumReadSize + 1);
    if (file.error() != QFileDevice::NoError || bytes.size() > maximumReadSize)
        return std::nullopt;
    return bytes;
}

bool QtThemeFileAccess::writeFile(const QString& path, const QByteArray& bytes)
{
    // QSaveFile replaces the file only once everything is written, so a failure leaves the old one intact.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

void QtThemeFileAccess::setClipboardText(const QString& text)
{
    QClipboard* clipboard = QGuiApplication::clipboard();
    if (!clipboard)
        return;
    clipboard->clear();
    clipboard->setText(text, QClipboard::Clipboard);
}
