// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/inputbackend.h"

#include <QList>

#include <memory>

/**
 * Keys from the keyboard devices, with the least privilege that works: read directly when the user may read a
 * keyboard (a udev rule, or the "input" group), otherwise through the key helper once the user allows it
 * (requestAccess()). Used on Wayland sessions, where the display server tells no client about keys typed into
 * others. Main thread only.
 */
class DeviceBackend final : public InputBackend
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DeviceBackend)

public:
    /** Both parts are owned; either may be a stand-in. */
    DeviceBackend(std::unique_ptr<InputBackend> direct, std::unique_ptr<InputBackend> helper,
        QObject* parent = nullptr);
    ~DeviceBackend() override;

    QString name() const override;
    /** Granted while a keyboard is readable or the helper runs; denied while the helper could be asked for. */
    Access access() const override;
    QString accessHelp() const override;
    /** Reads directly if it may, else takes keys from the helper once that runs (also when it starts later). */
    bool start() override;
    void stop() override;
    Source source() const override;
    bool capsLockOn() const override;
    bool canRequestAccess() const override;
    void requestAccess() override;

    InputBackend& direct() const { return *m_direct; }
    InputBackend& helper() const { return *m_helper; }

private:
    void forward(InputBackend* part);

    std::unique_ptr<InputBackend> m_direct;
    std::unique_ptr<InputBackend> m_helper;
    /** The part whose keys are passed on; nullptr before start(). */
    InputBackend* m_active = nullptr;
    QList<QMetaObject::Connection> m_keyConnections;
    bool m_started = false;
};
