// SPDX-License-Identifier: GPL-3.0-or-later
// The update feed and version numbers from arbitrary bytes: a feed is rejected or holds a version that parses and
// two https links with a host; version comparison is a consistent order.
#include "fuzzsupport.h"

#include "ui/updaterfeed.h"

namespace {

void checkVersions(const QString& left, const QString& right)
{
    const std::optional<QList<quint64>> a = UpdaterVersions::parse(left);
    const std::optional<QList<quint64>> b = UpdaterVersions::parse(right);
    // A trailing zero names the same version.
    if (a)
        FUZZ_CHECK(!a->isEmpty() && UpdaterVersions::compare(*a, QList<quint64>(*a) << 0) == 0);
    if (a && b) {
        const int ab = UpdaterVersions::compare(*a, *b);
        const int ba = UpdaterVersions::compare(*b, *a);
        FUZZ_CHECK((ab < 0) == (ba > 0) && (ab == 0) == (ba == 0));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    if (const std::optional<UpdaterFeedEntry> entry = UpdaterFeedEntry::fromJson(input)) {
        FUZZ_CHECK(UpdaterVersions::parse(entry->version).has_value());
        for (const QUrl& link : { entry->notes, entry->download })
            FUZZ_CHECK(link.isValid() && link.scheme() == u"https" && !link.host().isEmpty());
    }

    // The same bytes as two version texts, split at the first newline.
    const QString text = QString::fromUtf8(input);
    const qsizetype split = text.indexOf(u'\n');
    checkVersions(split < 0 ? text : text.left(split), split < 0 ? QString() : text.mid(split + 1));
    return 0;
}
