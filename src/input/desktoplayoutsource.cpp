// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/desktoplayoutsource.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QFile>
#include <QFileInfo>

// GLib's headers have a struct field named `signals`, which Qt defines as a keyword.
#pragma push_macro("signals")
#undef signals
#include <gio/gio.h>
#pragma pop_macro("signals")

using namespace Qt::StringLiterals;

namespace {

/** More layouts than anyone switches between; a list longer than this is cut. */
constexpr qsizetype maxSources = 64;
/** Every D-Bus call made while choosing a source waits at most this long. */
constexpr int probeTimeoutMs = 500;

constexpr char gnomeSchema[] = "org.gnome.desktop.input-sources";

const QString kdeService = u"org.kde.keyboard"_s;
const QString kdePath = u"/Layouts"_s;
const QString kdeInterface = u"org.kde.KeyboardLayouts"_s;

const QString localeService = u"org.freedesktop.locale1"_s;
const QString localePath = u"/org/freedesktop/locale1"_s;
const QString localeInterface = u"org.freedesktop.locale1"_s;
const QString propertiesInterface = u"org.freedesktop.DBus.Properties"_s;

} // namespace

// GNOME ----------------------------------------------------------------------------------------------------------

struct GnomeLayoutSource::Settings
{
    GSettingsSchema* schema = nullptr;
    GSettings* settings = nullptr;
    gulong handler = 0;

    ~Settings()
    {
        if (settings) {
            if (handler)
                g_signal_handler_disconnect(settings, handler);
            g_object_unref(settings);
        }
        if (schema)
            g_settings_schema_unref(schema);
    }

    bool has(const char* key) const { return g_settings_schema_has_key(schema, key); }

    /** An a(ss) key as pairs; empty when missing or of another type. */
    QList<std::pair<QString, QString>> pairs(const char* key) const
    {
        QList<std::pair<QString, QString>> result;
        if (!has(key))
            return result;
        GVariant* value = g_settings_get_value(settings, key);
        if (g_variant_is_of_type(value, G_VARIANT_TYPE("a(ss)"))) {
            GVariantIter iter;
            g_variant_iter_init(&iter, value);
            const char* type = nullptr;
            const char* id = nullptr;
            while (result.size() < maxSources && g_variant_iter_next(&iter, "(&s&s)", &type, &id))
                result.append({ QString::fromUtf8(type), QString::fromUtf8(id) });
        }
        g_variant_unref(value);
        return result;
    }
};

std::unique_ptr<GnomeLayoutSource> GnomeLayoutSource::create(const QString& currentDesktop, QObject* parent)
{
    GSettingsSchemaSource* schemas = g_settings_schema_source_get_default();
    if (!schemas)
        return nullptr;
    auto settings = std::make_unique<Settings>();
    // g_settings_new aborts the program on a schema that is not installed, so look it up first.
    settings->schema = g_settings_schema_source_lookup(schemas, gnomeSchema, TRUE);
    if (!settings->schema || !settings->has("sources"))
        return nullptr;
    settings->settings = g_settings_new_full(settings->schema, nullptr, nullptr);
    const bool gnome = currentDesktop.split(u':').contains("GNOME"_L1, Qt::CaseInsensitive);
    if (!gnome && KeyboardLayoutNames::fromGnomeSources(settings->pairs("sources")).layouts.isEmpty())
        return nullptr;
    return std::unique_ptr<GnomeLayoutSource>(new GnomeLayoutSource(std::move(settings), parent));
}

GnomeLayoutSource::GnomeLayoutSource(std::unique_ptr<Settings> settings, QObject* parent)
    : StoredLayoutSource(u"gnome"_s, {}, parent)
    , m_settings(std::move(settings))
{
    // GSettings reports only keys read since the handler was connected, so connect first, then read.
    m_settings->handler = g_signal_connect(m_settings->settings, "changed",
        G_CALLBACK(+[](GSettings*, const char*, gpointer self) {
            auto* source = static_cast<GnomeLayoutSource*>(self);
            source->publish(source->read());
        }),
        this);
    publish(read());
}

GnomeLayoutSource::~GnomeLayoutSource() = default;

ActiveKeyboardLayouts GnomeLayoutSource::read() const
{
    const QList<std::pair<QString, QString>> sources = m_settings->pairs("sources");
    std::optional<int> current = KeyboardLayoutNames::gnomeCurrent(sources, m_settings->pairs("mru-sources"));
    // GNOME before 3.30 kept the index of the current source instead.
    if (!current && m_settings->has("current")) {
        GVariant* value = g_settings_get_value(m_settings->settings, "current");
        if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32) && g_variant_get_uint32(value) < maxSources)
            current = int(g_variant_get_uint32(value));
        g_variant_unref(value);
    }
    QString options;
    if (m_settings->has("xkb-options")) {
        GVariant* value = g_settings_get_value(m_settings->settings, "xkb-options");
        if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING_ARRAY)) {
            gsize count = 0;
            const gchar** strings = g_variant_get_strv(value, &count);
            QStringList list;
            for (gsize i = 0; i < count && i < gsize(maxSources); ++i)
                list.append(QString::fromUtf8(strings[i]));
            g_free(strings);
            options = list.join(u',');
        }
        g_variant_unref(value);
    }
    return KeyboardLayoutNames::assemble(
        KeyboardLayoutNames::fromGnomeSources(sources), current.value_or(0), QString(), options);
}

// KDE ------------------------------------------------------------------------------------------------------------

std::unique_ptr<KdeLayoutSource> KdeLayoutSource::create(const QDBusConnection& bus, QObject* parent)
{
    if (!bus.isConnected())
        return nullptr;
    QDBusMessage ask = QDBusMessage::createMethodCall(
        u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, u"NameHasOwner"_s);
    ask.setArguments({ kdeService });
    const QDBusMessage reply = bus.call(ask, QDBus::Block, probeTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.signature() != "b"_L1
        || !reply.arguments().constFirst().toBool())
        return nullptr;
    return std::unique_ptr<KdeLayoutSource>(new KdeLayoutSource(bus, parent));
}

KdeLayoutSource::KdeLayoutSource(const QDBusConnection& bus, QObject* parent)
    : StoredLayoutSource(u"kde"_s, {}, parent)
    , m_bus(bus)
{
    // Signals whose arguments are of other types match no slot and are dropped by Qt.
    m_bus.connect(kdeService, kdePath, kdeInterface, u"layoutChanged"_s, this, SLOT(onLayoutChanged(uint)));
    m_bus.connect(kdeService, kdePath, kdeInterface, u"layoutListChanged"_s, this, SLOT(onLayoutListChanged()));
    auto* watcher = new QDBusServiceWatcher(kdeService, m_bus, QDBusServiceWatcher::WatchForRegistration, this);
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, &KdeLayoutSource::onLayoutListChanged);
    onLayoutListChanged();
}

void KdeLayoutSource::onLayoutChanged(uint index)
{
    ++m_indexGeneration;
    const int position = index < uint(maxSources) ? int(index) : 0;
    // An index past the list known here means the list changed too.
    if (!m_parsed.positions.contains(position))
        onLayoutListChanged();
    publishPosition(position);
}

void KdeLayoutSource::onLayoutListChanged()
{
    const QDBusMessage call = QDBusMessage::createMethodCall(kdeService, kdePath, kdeInterface, u"getLayoutsList"_s);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, probeTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, &KdeLayoutSource::onListReply);
    requestIndex();
}

void KdeLayoutSource::requestIndex()
{
    const QDBusMessage call = QDBusMessage::createMethodCall(kdeService, kdePath, kdeInterface, u"getLayout"_s);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, probeTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
        [this, generation = m_indexGeneration](QDBusPendingCallWatcher* w) { onIndexReply(w, generation); });
}

void KdeLayoutSource::onIndexReply(QDBusPendingCallWatcher* watcher, quint64 generation)
{
    watcher->deleteLater();
    const QDBusMessage reply = watcher->reply();
    if (generation != m_indexGeneration || reply.type() != QDBusMessage::ReplyMessage || reply.signature() != "u"_L1)
        return;
    const uint index = reply.arguments().constFirst().toUInt();
    publishPosition(index < uint(maxSources) ? int(index) : 0);
}

void KdeLayoutSource::onListReply(QDBusPendingCallWatcher* watcher)
{
    watcher->deleteLater();
    const QDBusMessage reply = watcher->reply();
    if (reply.type() != QDBusMessage::ReplyMessage || reply.signature() != "a(sss)"_L1)
        return;
    // (short name, variant, long name) for each layout.
    const auto list = reply.arguments().constFirst().value<QDBusArgument>();
    KeyboardLayoutNames::Parsed parsed;
    list.beginArray();
    // Read to the end whatever the length: every begin needs its end, or the reader's state leaks.
    for (int position = 0; !list.atEnd(); ++position) {
        QString name;
        QString variant;
        QString description;
        list.beginStructure();
        list >> name >> variant >> description;
        list.endStructure();
        if (position < maxSources)
            parsed.add(XkbLayout::fromString(variant.isEmpty() ? name : name + u'(' + variant + u')'), position);
    }
    list.endArray();
    // An empty or wholly invalid list is no news worth dropping the last good one for.
    if (parsed.layouts.isEmpty())
        return;
    m_parsed = std::move(parsed);
    publishPosition(m_position);
}

void KdeLayoutSource::publishPosition(int position)
{
    m_position = position;
    publish(KeyboardLayoutNames::assemble(m_parsed, m_position, QString(), QString()));
}

// org.freedesktop.locale1 ----------------------------------------------------------------------------------------

std::unique_ptr<Locale1LayoutSource> Locale1LayoutSource::create(const QDBusConnection& bus, QObject* parent)
{
    if (!bus.isConnected())
        return nullptr;
    QDBusMessage call = QDBusMessage::createMethodCall(localeService, localePath, propertiesInterface, u"GetAll"_s);
    call.setArguments({ localeInterface });
    const QDBusMessage reply = bus.call(call, QDBus::Block, probeTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.signature() != "a{sv}"_L1)
        return nullptr;
    const auto properties = qdbus_cast<QVariantMap>(reply.arguments().constFirst());
    if (KeyboardLayoutNames::fromLists(properties.value(u"X11Layout"_s).toString(), {}).layouts.isEmpty())
        return nullptr;
    return std::unique_ptr<Locale1LayoutSource>(new Locale1LayoutSource(bus, properties, parent));
}

Locale1LayoutSource::Locale1LayoutSource(const QDBusConnection& bus, const QVariantMap& properties, QObject* parent)
    : StoredLayoutSource(u"locale1"_s, {}, parent)
    , m_bus(bus)
{
    m_bus.connect(localeService, localePath, propertiesInterface, u"PropertiesChanged"_s, this,
        SLOT(onPropertiesChanged(QString, QVariantMap, QStringList)));
    apply(properties);
}

void Locale1LayoutSource::onPropertiesChanged(
    const QString& interface, const QVariantMap& changed, const QStringList& invalidated)
{
    if (interface != localeInterface)
        return;
    QVariantMap properties = m_properties;
    properties.insert(changed);
    apply(properties);
    if (!invalidated.isEmpty())
        requestAll();
}

void Locale1LayoutSource::requestAll()
{
    QDBusMessage call = QDBusMessage::createMethodCall(localeService, localePath, propertiesInterface, u"GetAll"_s);
    call.setArguments({ localeInterface });
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, probeTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        const QDBusMessage reply = w->reply();
        if (reply.type() == QDBusMessage::ReplyMessage && reply.signature() == "a{sv}"_L1)
            apply(qdbus_cast<QVariantMap>(reply.arguments().constFirst()));
    });
}

void Locale1LayoutSource::apply(const QVariantMap& properties)
{
    const auto text = [&properties](const QString& key) {
        const QVariant value = properties.value(key);
        return value.typeId() == QMetaType::QString ? value.toString() : QString();
    };
    const KeyboardLayoutNames::Parsed parsed
        = KeyboardLayoutNames::fromLists(text(u"X11Layout"_s), text(u"X11Variant"_s));
    // Keep the last good layouts when the service sends nothing usable.
    if (parsed.layouts.isEmpty())
        return;
    m_properties = properties;
    publish(KeyboardLayoutNames::assemble(parsed, 0, text(u"X11Model"_s), text(u"X11Options"_s)));
}

// /etc/default/keyboard ------------------------------------------------------------------------------------------

namespace {

std::optional<ActiveKeyboardLayouts> readDefaultKeyboard(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // The real file is a few hundred bytes.
    return KeyboardLayoutNames::fromDefaultKeyboard(file.read(64 * 1024));
}

} // namespace

QString DefaultKeyboardLayoutSource::systemPath()
{
    return u"/etc/default/keyboard"_s;
}

std::unique_ptr<DefaultKeyboardLayoutSource> DefaultKeyboardLayoutSource::create(const QString& path, QObject* parent)
{
    std::optional<ActiveKeyboardLayouts> initial = readDefaultKeyboard(path);
    if (!initial)
        return nullptr;
    return std::unique_ptr<DefaultKeyboardLayoutSource>(
        new DefaultKeyboardLayoutSource(path, std::move(*initial), parent));
}

DefaultKeyboardLayoutSource::DefaultKeyboardLayoutSource(QString path, ActiveKeyboardLayouts initial, QObject* parent)
    : StoredLayoutSource(u"default-keyboard"_s, std::move(initial), parent)
    , m_path(std::move(path))
{
    // Tools replace the file rather than write into it, which ends a watch on the file; the folder's stays.
    m_watcher.addPath(m_path);
    m_watcher.addPath(QFileInfo(m_path).absolutePath());
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, &DefaultKeyboardLayoutSource::reread);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &DefaultKeyboardLayoutSource::reread);
}

void DefaultKeyboardLayoutSource::reread()
{
    if (!m_watcher.files().contains(m_path))
        m_watcher.addPath(m_path);
    if (std::optional<ActiveKeyboardLayouts> layouts = readDefaultKeyboard(m_path))
        publish(std::move(*layouts));
}
