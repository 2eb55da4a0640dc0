// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/dbusservice.h"

#include "app/remotecontrol.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusReply>
#include <QVariantMap>

using namespace Qt::StringLiterals;

/** The exported interface; Qt builds its introspection data from the slots and the property. */
class OrdalisAdaptor final : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.quietmakers.Ordalis")
    Q_PROPERTY(bool Visible READ visible)
    Q_PROPERTY(QString KeySource READ keySource)
    Q_PROPERTY(bool Paused READ paused)

public:
    explicit OrdalisAdaptor(DBusService& service)
        : QDBusAbstractAdaptor(&service)
        , m_service(service)
    {
    }

    bool visible() const { return m_service.m_control.isVisible(); }
    QString keySource() const { return m_service.m_control.keySource(); }
    bool paused() const { return m_service.m_control.isPaused(); }

public slots:
    void Show() { m_service.m_control.run({ RemoteCommand::Kind::show, {} }); }
    void Hide() { m_service.m_control.run({ RemoteCommand::Kind::hide, {} }); }
    void Toggle() { m_service.m_control.run({ RemoteCommand::Kind::toggle, {} }); }
    void OpenSettings() { m_service.m_control.run({ RemoteCommand::Kind::settings, {} }); }
    void Pause() { m_service.m_control.run({ RemoteCommand::Kind::pause, {} }); }
    void Resume() { m_service.m_control.run({ RemoteCommand::Kind::resume, {} }); }

    void ChooseTheme(const QString& name, const QDBusMessage& message)
    {
        const std::optional<QString> error = m_service.m_control.chooseTheme(name);
        if (!error)
            return;
        message.setDelayedReply(true);
        m_service.m_bus.send(message.createErrorReply(QDBusError::InvalidArgs, *error));
    }

private:
    DBusService& m_service;
};

DBusService::DBusService(RemoteControl& control, QObject* parent)
    : QObject(parent)
    , m_control(control)
{
    new OrdalisAdaptor(*this);
    connect(&m_control, &RemoteControl::visibleChanged, this, &DBusService::announceVisible);
    connect(&m_control, &RemoteControl::keySourceChanged, this, &DBusService::announceKeySource);
    connect(&m_control, &RemoteControl::pausedChanged, this, [this](bool paused) { announce(u"Paused"_s, paused); });
}

DBusService::~DBusService()
{
    unregister();
}

bool DBusService::registerOn(const QDBusConnection& bus)
{
    unregister();
    m_error.clear();
    if (!bus.isConnected()) {
        m_error = u"no D-Bus session bus"_s;
        return false;
    }
    m_bus = bus;
    // The object first, so that whoever sees the name appear can call it at once.
    if (!m_bus.registerObject(QLatin1StringView(objectPath), this, QDBusConnection::ExportAdaptors)) {
        m_error = u"the object %1 is taken on the D-Bus session bus"_s.arg(QLatin1StringView(objectPath));
        return false;
    }
    QDBusConnectionInterface* names = m_bus.interface();
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply = names
        ? names->registerService(QLatin1StringView(serviceName), QDBusConnectionInterface::DontQueueService,
            QDBusConnectionInterface::DontAllowReplacement)
        : QDBusReply<QDBusConnectionInterface::RegisterServiceReply>(QDBusError(QDBusError::Disconnected, {}));
    if (!reply.isValid() || reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        m_error = u"the name %1 is taken on the D-Bus session bus"_s.arg(QLatin1StringView(serviceName));
        if (!reply.isValid())
            m_error = u"the name %1 could not be had on the D-Bus session bus: %2"_s.arg(
                QLatin1StringView(serviceName), reply.error().message());
        m_bus.unregisterObject(QLatin1StringView(objectPath));
        return false;
    }
    m_registered = true;
    return true;
}

void DBusService::unregister()
{
    if (!m_registered)
        return;
    m_registered = false;
    m_bus.unregisterService(QLatin1StringView(serviceName));
    m_bus.unregisterObject(QLatin1StringView(objectPath));
}

void DBusService::announceVisible(bool visible)
{
    announce(u"Visible"_s, visible);
}

void DBusService::announceKeySource(const QString& source)
{
    announce(u"KeySource"_s, source);
}

void DBusService::announce(const QString& property, const QVariant& value)
{
    if (!m_registered)
        return;
    QDBusMessage signal = QDBusMessage::createSignal(
        QLatin1StringView(objectPath), u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s);
    signal << QString::fromLatin1(interfaceName) << QVariantMap { { property, value } } << QStringList();
    m_bus.send(signal);
}

#include "dbusservice.moc"
