// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QUrl>

/** Addresses the program reaches out to. They are kept here and nowhere else. */
namespace AppConfig {

/** The application's reverse-domain id: the name of its desktop entries. */
inline QString applicationId()
{
    return QStringLiteral("com.quietmakers.Ordalis");
}

/** The update feed: a small JSON object {"version", "notes", "download"} (see UpdaterFeed). */
inline QUrl updateFeedUrl()
{
    return QUrl(QStringLiteral("https://ordalis.quietmakers.invalid/updates/latest.json"));
}

/** The maker's contact page; the menu adds the query item "app" with the application name. */
inline QUrl contactUrl()
{
    return QUrl(QStringLiteral("https://ordalis.quietmakers.invalid/contact"));
}

inline QUrl privacyPolicyUrl()
{
    return QUrl(QStringLiteral("https://ordalis.quietmakers.invalid/privacy"));
}

} // namespace AppConfig
