// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/updaterfeed.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace UpdaterVersions {

std::optional<QList<quint64>> parse(QStringView version)
{
    // 18 digits always fit 64 bits.
    constexpr qsizetype maxDigits = 18;
    QList<quint64> components;
    for (QStringView component : version.split(u'.')) {
        if (component.isEmpty() || component.size() > maxDigits
            || !std::all_of(component.begin(), component.end(), [](QChar c) { return c >= u'0' && c <= u'9'; }))
            return std::nullopt;
        quint64 value = 0;
        for (QChar c : component)
            value = value * 10 + (c.unicode() - u'0');
        components.append(value);
    }
    return components;
}

int compare(const QList<quint64>& a, const QList<quint64>& b)
{
    for (qsizetype i = 0; i < std::max(a.size(), b.size()); ++i) {
        const quint64 left = a.value(i, 0);
        const quint64 right = b.value(i, 0);
        if (left != right)
            return left < right ? -1 : 1;
    }
    return 0;
}

} // namespace UpdaterVersions

namespace {

std::optional<QUrl> httpsLink(const QJsonValue& value)
{
    if (!value.isString())
        return std::nullopt;
    const QUrl url(value.toString(), QUrl::StrictMode);
    if (!url.isValid() || url.scheme() != u"https" || url.host().isEmpty())
        return std::nullopt;
    return url;
}

} // namespace

std::optional<UpdaterFeedEntry> UpdaterFeedEntry::fromJson(const QByteArray& json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();

    const QJsonValue version = object.value(u"version"_s);
    if (!version.isString() || !UpdaterVersions::parse(version.toString()))
        return std::nullopt;
    const std::optional<QUrl> notes = httpsLink(object.value(u"notes"_s));
    const std::optional<QUrl> download = httpsLink(object.value(u"download"_s));
    if (!notes || !download)
        return std::nullopt;
    return UpdaterFeedEntry { version.toString(), *notes, *download };
}
