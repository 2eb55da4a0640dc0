// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/keyboardlayoutsource.h"

#include "input/desktoplayoutsource.h"
#include "input/x11layoutsource.h"

#include <QDBusConnection>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const XkbLayout usLayout { u"us"_s, {} };

/** Longest model or options text taken from any source; real ones are a few dozen characters. */
constexpr qsizetype maxNameListLength = 1024;

bool onlyCharacters(QStringView text, QStringView extra)
{
    return std::all_of(text.begin(), text.end(), [extra](QChar c) {
        const char16_t u = c.unicode();
        return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || extra.contains(c);
    });
}

} // namespace

XkbLayout ActiveKeyboardLayouts::currentLayout() const
{
    if (layouts.isEmpty())
        return usLayout;
    return layouts.at(std::clamp(current, 0, int(layouts.size()) - 1));
}

StoredLayoutSource::StoredLayoutSource(QString origin, ActiveKeyboardLayouts initial, QObject* parent)
    : KeyboardLayoutSource(parent)
    , m_origin(std::move(origin))
{
    publish(std::move(initial));
}

void StoredLayoutSource::publish(ActiveKeyboardLayouts layouts)
{
    if (layouts.layouts.isEmpty())
        layouts.layouts = { usLayout };
    layouts.current = std::clamp(layouts.current, 0, int(layouts.layouts.size()) - 1);
    if (layouts == m_layouts)
        return;
    m_layouts = std::move(layouts);
    emit changed();
}

namespace KeyboardLayoutNames {

int Parsed::indexOf(int position) const
{
    return std::max(0, int(positions.indexOf(position)));
}

void Parsed::add(std::optional<XkbLayout> layout, int position)
{
    if (!layout)
        return;
    layouts.append(std::move(*layout));
    positions.append(position);
}

Parsed fromLists(QStringView layouts, QStringView variants)
{
    Parsed parsed;
    if (layouts.size() > maxNameListLength || variants.size() > maxNameListLength)
        return parsed;
    const QList<QStringView> names = layouts.split(u',');
    const QList<QStringView> variantNames = variants.split(u',');
    for (int i = 0; i < names.size(); ++i) {
        const QStringView variant = i < variantNames.size() ? variantNames.at(i).trimmed() : QStringView();
        std::optional<XkbLayout> layout = XkbLayout::fromString(names.at(i));
        // A variant that is no valid name loses the whole entry: the layout without it would be the wrong one.
        if (layout && !layout->variant.isEmpty() && !variant.isEmpty())
            layout.reset();
        else if (layout && !variant.isEmpty())
            layout = XkbLayout::fromString(QString(layout->layout + u'(' + variant.toString() + u')'));
        parsed.add(std::move(layout), i);
    }
    return parsed;
}

Parsed fromGnomeSources(const QList<std::pair<QString, QString>>& sources)
{
    Parsed parsed;
    for (int i = 0; i < sources.size(); ++i) {
        if (sources.at(i).first == "xkb"_L1)
            parsed.add(XkbLayout::fromString(sources.at(i).second), i);
    }
    return parsed;
}

std::optional<int> gnomeCurrent(
    const QList<std::pair<QString, QString>>& sources, const QList<std::pair<QString, QString>>& mru)
{
    for (const auto& recent : mru) {
        if (recent.first != "xkb"_L1)
            continue;
        if (const qsizetype at = sources.indexOf(recent); at >= 0)
            return int(at);
    }
    return std::nullopt;
}

QString validModel(QStringView model)
{
    model = model.trimmed();
    return model.size() <= 64 && onlyCharacters(model, u"_-") ? model.toString() : QString();
}

QString validOptions(QStringView options)
{
    options = options.trimmed();
    return options.size() <= maxNameListLength && onlyCharacters(options, u"_-:,+") ? options.toString() : QString();
}

ActiveKeyboardLayouts assemble(const Parsed& parsed, int position, QStringView model, QStringView options)
{
    ActiveKeyboardLayouts result { parsed.layouts, parsed.indexOf(position), validModel(model),
        validOptions(options) };
    if (result.layouts.isEmpty())
        result.layouts = { usLayout };
    return result;
}

XkbRulesNames XkbRulesNames::fromProperty(QByteArrayView property)
{
    // A server may leave out the trailing fields.
    XkbRulesNames names;
    QString* const fields[] = { &names.rules, &names.model, &names.layouts, &names.variants, &names.options };
    qsizetype start = 0;
    for (QString* field : fields) {
        if (start >= property.size())
            break;
        qsizetype end = start;
        while (end < property.size() && property.at(end) != '\0')
            ++end;
        *field = QString::fromLatin1(property.sliced(start, end - start));
        start = end + 1;
    }
    return names;
}

std::optional<ActiveKeyboardLayouts> fromDefaultKeyboard(QByteArrayView contents)
{
    std::optional<QString> layout;
    QString variant;
    QString model;
    QString options;
    for (const QByteArray& wholeLine : contents.toByteArray().split('\n')) {
        const QByteArrayView line = QByteArrayView(wholeLine).trimmed();
        const qsizetype equals = line.indexOf('=');
        if (line.startsWith('#') || equals <= 0)
            continue;
        const QByteArrayView key = line.first(equals).trimmed();
        QByteArrayView value = line.sliced(equals + 1).trimmed();
        if (!value.isEmpty() && (value.front() == '"' || value.front() == '\'')) {
            const qsizetype close = value.indexOf(value.front(), 1);
            value = close > 0 ? value.sliced(1, close - 1) : QByteArrayView();
        } else {
            // Unquoted: up to a blank or a trailing comment.
            qsizetype end = 0;
            while (end < value.size() && value.at(end) != ' ' && value.at(end) != '\t' && value.at(end) != '#')
                ++end;
            value = value.first(end);
        }
        const QString text = QString::fromUtf8(value);
        if (key == "XKBLAYOUT")
            layout = text;
        else if (key == "XKBVARIANT")
            variant = text;
        else if (key == "XKBMODEL")
            model = text;
        else if (key == "XKBOPTIONS")
            options = text;
    }
    if (!layout)
        return std::nullopt;
    return assemble(fromLists(*layout, variant), 0, model, options);
}

} // namespace KeyboardLayoutNames

std::unique_ptr<KeyboardLayoutSource> createKeyboardLayoutSource(bool waylandSession, QObject* parent)
{
    if (!waylandSession) {
        if (auto x11 = X11LayoutSource::create(parent))
            return x11;
    } else {
        if (auto gnome = GnomeLayoutSource::create(qEnvironmentVariable("XDG_CURRENT_DESKTOP"), parent))
            return gnome;
        if (auto kde = KdeLayoutSource::create(QDBusConnection::sessionBus(), parent))
            return kde;
    }
    if (auto locale = Locale1LayoutSource::create(QDBusConnection::systemBus(), parent))
        return locale;
    if (auto file = DefaultKeyboardLayoutSource::create(DefaultKeyboardLayoutSource::systemPath(), parent))
        return file;
    if (waylandSession) {
        if (auto xwayland = X11LayoutSource::create(parent))
            return xwayland;
    }
    return std::make_unique<StoredLayoutSource>(u"fallback"_s, ActiveKeyboardLayouts {}, parent);
}
