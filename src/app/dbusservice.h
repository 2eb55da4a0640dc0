// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

class RemoteControl;

/**
 * Ordalis on the D-Bus session bus: the name com.quietmakers.Ordalis with the object /com/quietmakers/Ordalis,
 * interface com.quietmakers.Ordalis:
 *
 *   methods     Show(), Hide(), Toggle(), OpenSettings(), ChooseTheme(s name), Pause(), Resume()
 *   properties  Visible (b, read-only), KeySource (s, read-only: "x11", "devices", "helper" or "none"), Paused (b,
 *               read-only: keys are kept from the screen, by hand or in a private moment), each announced through
 *               org.freedesktop.DBus.Properties.PropertiesChanged
 *
 * ChooseTheme with a name no saved theme has fails with org.freedesktop.DBus.Error.InvalidArgs and changes nothing.
 * Main thread only; `control` must outlive the service.
 */
class DBusService final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DBusService)

public:
    static constexpr char serviceName[] = "com.quietmakers.Ordalis";
    static constexpr char objectPath[] = "/com/quietmakers/Ordalis";
    static constexpr char interfaceName[] = "com.quietmakers.Ordalis";

    explicit DBusService(RemoteControl& control, QObject* parent = nullptr);
    ~DBusService() override;

    /**
     * Offers the object and then the name on `bus`. False when either cannot be had; errorText() says why, and
     * nothing stays registered.
     */
    bool registerOn(const QDBusConnection& bus);
    /** Gives the name and the object up again; also done by the destructor. */
    void unregister();

    QString errorText() const { return m_error; }

    /** Sends PropertiesChanged for Visible. */
    void announceVisible(bool visible);
    /** Sends PropertiesChanged for KeySource. */
    void announceKeySource(const QString& source);

private:
    friend class OrdalisAdaptor;

    void announce(const QString& property, const QVariant& value);

    RemoteControl& m_control;
    QDBusConnection m_bus { QString() };
    bool m_registered = false;
    QString m_error;
};
