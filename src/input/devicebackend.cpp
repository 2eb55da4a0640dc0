// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/devicebackend.h"

using namespace Qt::StringLiterals;

DeviceBackend::DeviceBackend(
    std::unique_ptr<InputBackend> direct, std::unique_ptr<InputBackend> helper, QObject* parent)
    : InputBackend(parent)
    , m_direct(std::move(direct))
    , m_helper(std::move(helper))
{
    connect(m_direct.get(), &InputBackend::accessChanged, this, &InputBackend::accessChanged);
    connect(m_helper.get(), &InputBackend::accessChanged, this, [this] {
        // A helper the user allowed after start-up takes over, unless the devices are read directly already.
        if (m_started && m_active != m_direct.get() && m_helper->access() == Access::granted)
            forward(m_helper.get());
        emit accessChanged();
    });
    connect(m_helper.get(), &InputBackend::accessRequestFailed, this, &InputBackend::accessRequestFailed);
    connect(m_direct.get(), &InputBackend::accessRequestFailed, this, &InputBackend::accessRequestFailed);
}

DeviceBackend::~DeviceBackend()
{
    forward(nullptr);
}

QString DeviceBackend::name() const
{
    return u"devices"_s;
}

InputBackend::Access DeviceBackend::access() const
{
    if (m_direct->access() == Access::granted || m_helper->access() == Access::granted)
        return Access::granted;
    if (m_helper->access() == Access::denied)
        return Access::denied;
    return m_direct->access();
}

QString DeviceBackend::accessHelp() const
{
    if (access() == Access::granted)
        return {};
    if (m_helper->access() == Access::unavailable)
        return m_helper->accessHelp();
    return m_direct->accessHelp();
}

bool DeviceBackend::start()
{
    m_started = true;
    if (m_direct->access() == Access::granted && m_direct->start()) {
        // Reading directly needs nothing more.
        m_helper->stop();
        forward(m_direct.get());
        return true;
    }
    forward(m_helper.get());
    return m_helper->start();
}

void DeviceBackend::stop()
{
    m_started = false;
    m_direct->stop();
    m_helper->stop();
    forward(nullptr);
}

InputBackend::Source DeviceBackend::source() const
{
    return m_active ? m_active->source() : Source::none;
}

bool DeviceBackend::capsLockOn() const
{
    return m_active && m_active->capsLockOn();
}

bool DeviceBackend::canRequestAccess() const
{
    return source() == Source::none && m_direct->access() != Access::granted && m_helper->canRequestAccess();
}

void DeviceBackend::requestAccess()
{
    if (canRequestAccess())
        m_helper->requestAccess();
}

void DeviceBackend::forward(InputBackend* part)
{
    if (part == m_active)
        return;
    for (const QMetaObject::Connection& connection : std::as_const(m_keyConnections))
        disconnect(connection);
    m_keyConnections.clear();
    m_active = part;
    if (!part)
        return;
    m_keyConnections = {
        connect(part, &InputBackend::keyDown, this, &InputBackend::keyDown),
        connect(part, &InputBackend::keyUp, this, &InputBackend::keyUp),
        connect(part, &InputBackend::flagsChanged, this, &InputBackend::flagsChanged),
        connect(part, &InputBackend::capsLockKey, this, &InputBackend::capsLockKey),
        connect(part, &InputBackend::mediaKey, this, &InputBackend::mediaKey),
        connect(part, &InputBackend::pointerButton, this, &InputBackend::pointerButton),
        connect(part, &InputBackend::scrolled, this, &InputBackend::scrolled),
    };
}
