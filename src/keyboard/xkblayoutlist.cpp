// SPDX-License-Identifier: GPL-3.0-or-later
#include "keyboard/xkblayoutlist.h"

#include <QCollator>
#include <QFile>
#include <QXmlStreamReader>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace XkbLayoutList {

namespace {

struct ConfigItem
{
    QString name;
    QString description;
};

/** Reads the <configItem> the reader stands on, up to its end tag. */
ConfigItem readConfigItem(QXmlStreamReader& xml)
{
    ConfigItem item;
    while (xml.readNextStartElement()) {
        if (xml.name() == u"name"_s)
            item.name = xml.readElementText().trimmed();
        else if (xml.name() == u"description"_s)
            item.description = xml.readElementText().trimmed();
        else
            xml.skipCurrentElement();
    }
    return item;
}

} // namespace

QList<XkbLayoutInfo> parse(QIODevice& device)
{
    QList<XkbLayoutInfo> result;
    QXmlStreamReader xml(&device);
    QString currentLayout;
    while (!xml.atEnd() && !xml.hasError()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == u"layout"_s) {
            currentLayout.clear();
        } else if (xml.name() == u"configItem"_s) {
            // Inside a <layout>, the first configItem names the layout and every later one a variant of it.
            const bool inVariant = !currentLayout.isEmpty();
            const ConfigItem item = readConfigItem(xml);
            if (!inVariant) {
                const auto name = XkbLayout::fromString(item.name);
                if (!name || !name->variant.isEmpty())
                    continue;
                currentLayout = name->layout;
                result.append({ *name, item.description.isEmpty() ? name->toString() : item.description });
            } else {
                const auto variant = XkbLayout::fromString(currentLayout + u'(' + item.name + u')');
                if (!variant)
                    continue;
                result.append({ *variant, item.description.isEmpty() ? variant->toString() : item.description });
            }
        } else if (xml.name() == u"modelList"_s || xml.name() == u"optionList"_s) {
            xml.skipCurrentElement();
        }
    }
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(result.begin(), result.end(), [&collator](const XkbLayoutInfo& a, const XkbLayoutInfo& b) {
        return collator.compare(a.description, b.description) < 0;
    });
    return result;
}

QString registryPath()
{
    QString root = qEnvironmentVariable("XKB_CONFIG_ROOT");
    if (root.isEmpty())
        root = u"/usr/share/X11/xkb"_s;
    return root + u"/rules/evdev.xml"_s;
}

const QList<XkbLayoutInfo>& all()
{
    static const QList<XkbLayoutInfo> layouts = [] {
        QFile file(registryPath());
        if (!file.open(QIODevice::ReadOnly))
            return QList<XkbLayoutInfo>();
        return parse(file);
    }();
    return layouts;
}

std::optional<XkbLayoutInfo> find(const XkbLayout& layout)
{
    for (const XkbLayoutInfo& info : all()) {
        if (info.name == layout)
            return info;
    }
    return std::nullopt;
}

} // namespace XkbLayoutList
