// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/appconfig.h"

namespace {

// Only absolute https addresses count; anything else a build passes in is treated as unset.
QUrl address(const char* text)
{
    const QUrl url(QString::fromUtf8(text), QUrl::StrictMode);
    return url.isValid() && url.scheme() == QLatin1String("https") && !url.host().isEmpty() ? url : QUrl();
}

} // namespace

QUrl AppConfig::updateFeedUrl()
{
    return address(ORDALIS_UPDATE_FEED_URL);
}

QUrl AppConfig::contactUrl()
{
    return address(ORDALIS_CONTACT_URL);
}

QUrl AppConfig::privacyPolicyUrl()
{
    return address(ORDALIS_PRIVACY_POLICY_URL);
}
