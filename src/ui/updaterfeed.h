// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringView>
#include <QUrl>

#include <optional>

/** Dotted version numbers such as "1.10.2". */
namespace UpdaterVersions {

/**
 * The dot-separated components as numbers. Anything but non-empty runs of ASCII digits separated by single dots
 * gives no value: "", "1.", "1..2", "v1.2", "1.2-beta", " 1.2", "+1", and components beyond 18 digits.
 */
std::optional<QList<quint64>> parse(QStringView version);

/**
 * Negative, zero or positive as `a` is older than, the same as or newer than `b`. Components compare as numbers
 * (1.10 is newer than 1.9); missing trailing components count as 0 (1.2 is the same as 1.2.0).
 */
int compare(const QList<quint64>& a, const QList<quint64>& b);

} // namespace UpdaterVersions

/** What the update feed announces: the newest version, its release notes and where to download it. */
struct UpdaterFeedEntry
{
    QString version;
    QUrl notes;
    QUrl download;

    /**
     * Reads the feed, a JSON object {"version": "1.2.3", "notes": "https://…", "download": "https://…"}; other
     * members are ignored. No value unless the version parses and both links are absolute https addresses.
     */
    static std::optional<UpdaterFeedEntry> fromJson(const QByteArray& json);
};
