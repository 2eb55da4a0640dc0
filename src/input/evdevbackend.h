// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/inputbackend.h"
#include "input/keyeventprocessor.h"

#include <QString>
#include <QTimer>

#include <memory>
#include <vector>

class QFileSystemWatcher;

/**
 * Reads every keyboard under /dev/input directly (libevdev), for sessions where the display server will not tell
 * other clients about keys (Wayland), and the mice and touchpads that are readable as well, for their buttons and
 * wheels. Needs read access to the keyboards' event devices, which the desktop gives
 * only where a udev rule grants it or the user joined the "input" group; elsewhere KeyHelperBackend reads them.
 *
 * All reading happens on the main thread through socket notifiers; keyboards plugged in while running are picked
 * up, and one that is unplugged lets go of the keys it held.
 */
class EvdevBackend final : public InputBackend
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(EvdevBackend)

public:
    explicit EvdevBackend(QObject* parent = nullptr);
    /** Reads the event devices found in `directory` instead of /dev/input. */
    explicit EvdevBackend(const QString& directory, QObject* parent = nullptr);
    ~EvdevBackend() override;

    QString name() const override;
    /**
     * Granted if a keyboard with letter keys can be read (a readable game controller or mouse does not count),
     * denied if event devices exist but no such keyboard is readable, unavailable if there are none.
     */
    Access access() const override;
    QString accessHelp() const override;
    /** False when no event device is readable; otherwise reads what keyboards there are and watches for more. */
    bool start() override;
    /** Closes every device and releases what they held. */
    void stop() override;
    /** devices while reading. */
    Source source() const override;
    /** True while any keyboard's Caps Lock LED is lit. */
    bool capsLockOn() const override;

    /** The number of keyboards and pointers being read. */
    int deviceCount() const;

private:
    struct Device;

    void rescan();
    void scheduleRescan();
    void openDevice(const QString& path);
    void readDevice(Device* device);
    Device* findDevice(KeyEventProcessor::DeviceId id) const;
    void removeDevice(Device* device);
    void updateAccess();

    QString m_directory;
    KeyEventProcessor m_processor;
    std::vector<std::unique_ptr<Device>> m_devices;
    std::unique_ptr<QFileSystemWatcher> m_watcher;
    /** A second look after a device appears: its permissions are often set a moment after the node. */
    QTimer m_rescanTimer;
    Access m_lastAccess;
    KeyEventProcessor::DeviceId m_nextDeviceId = 1;
    /** Counts closed devices, so that reading can tell cheaply whether its device may be gone. */
    quint64 m_removals = 0;
    bool m_running = false;
};
