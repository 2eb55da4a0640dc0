// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QUrl>

/**
 * Addresses the program reaches out to. They are build options (ORDALIS_CONTACT_URL, ORDALIS_PRIVACY_POLICY_URL,
 * ORDALIS_UPDATE_FEED_URL); an address a build leaves unset is empty, and whatever would use it is not offered.
 */
namespace AppConfig {

/** The application's reverse-domain id: the name of its desktop entries. */
inline QString applicationId()
{
    return QStringLiteral("com.quietmakers.Ordalis");
}

/** The update feed: a small JSON object {"version", "notes", "download"} (see UpdaterFeed). */
QUrl updateFeedUrl();

/** The maker's contact page; the menu adds the query item "app" with the application name. */
QUrl contactUrl();

QUrl privacyPolicyUrl();

} // namespace AppConfig
