// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/jsonsettingsformat.h"

#include <QFile>
#include <QFileDevice>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace {

// Paths whose last read failed in this thread. QSettings reads and then writes within one sync() call on the
// same thread, so the write can tell that it would replace a file it could not understand.
thread_local QSet<QString> t_unreadablePaths;

QString pathOf(const QIODevice& device)
{
    if (const auto* file = qobject_cast<const QFileDevice*>(&device))
        return file->fileName();
    return {};
}

bool readJson(QIODevice& device, QSettings::SettingsMap& map)
{
    const QString path = pathOf(device);
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(device.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        t_unreadablePaths.insert(path);
        return false;
    }
    t_unreadablePaths.remove(path);
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it)
        map.insert(it.key(), it.value().toVariant());
    return true;
}

bool parsesAsSettings(const QByteArray& text)
{
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    return error.error == QJsonParseError::NoError && document.isObject();
}

bool writeJson(QIODevice& device, const QSettings::SettingsMap& map)
{
    const QString path = pathOf(device);
    if (t_unreadablePaths.contains(path)) {
        // The file may have been repaired or moved aside since the failed read; only refuse while it is still
        // there and still unreadable.
        QFile current(path);
        if (current.exists() && (!current.open(QIODevice::ReadOnly) || !parsesAsSettings(current.readAll())))
            return false;
        t_unreadablePaths.remove(path);
    }
    QJsonObject object;
    for (auto it = map.begin(); it != map.end(); ++it)
        object.insert(it.key(), QJsonValue::fromVariant(it.value()));
    const QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Indented);
    return device.write(text) == text.size();
}

} // namespace

namespace JsonSettingsFormat {

QSettings::Format format()
{
    static const QSettings::Format registered = QSettings::registerFormat(QStringLiteral("json"), readJson, writeJson);
    return registered;
}

} // namespace JsonSettingsFormat
