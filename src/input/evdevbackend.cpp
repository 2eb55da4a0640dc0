// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/evdevbackend.h"

#include "input/evdeveventstream.h"

#include <QDir>
#include <QFile>
#include <QFileSystemWatcher>
#include <QSocketNotifier>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Bounds the work done per wake-up, so that a device flooding events cannot starve the event loop; the notifier
// fires again for the rest.
constexpr int maxEventsPerRead = 512;

QStringList eventNodes(const QString& directory)
{
    // Event devices are character devices (QDir::System); plain files only ever appear in tests.
    const QDir dir(directory);
    const QStringList names = dir.entryList({ u"event*"_s }, QDir::System | QDir::Files | QDir::NoDotAndDotDot);
    QStringList paths;
    paths.reserve(names.size());
    for (const QString& name : names)
        paths.append(dir.filePath(name));
    return paths;
}

/** Whether `path` opens for reading and reports the letter keys and space bar of a keyboard. */
bool isReadableKeyboard(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    unsigned char bits[(KEY_MAX + 1) / 8] = {};
    const bool answered = ::ioctl(fd, EVIOCGBIT(EV_KEY, sizeof bits), bits) >= 0;
    ::close(fd);
    const auto has = [&bits](int code) { return (bits[code / 8] >> (code % 8)) & 1; };
    return answered && has(KEY_A) && has(KEY_Z) && has(KEY_SPACE);
}

EvdevEventStream::DeviceState readState(const libevdev* evdev)
{
    EvdevEventStream::DeviceState state;
    for (unsigned int code = 0; code < unsigned(LinuxKeymap::codeCount); ++code) {
        if (libevdev_has_event_code(evdev, EV_KEY, code))
            state.keys[code] = libevdev_get_event_value(evdev, EV_KEY, code) != 0;
    }
    state.capsLockLed
        = libevdev_has_event_code(evdev, EV_LED, LED_CAPSL) && libevdev_get_event_value(evdev, EV_LED, LED_CAPSL) != 0;
    return state;
}

} // namespace

struct EvdevBackend::Device
{
    Device(KeyEventProcessor& processor, KeyEventProcessor::DeviceId id, const QString& devicePath, int fileDescriptor,
        libevdev* handle)
        : path(devicePath)
        , fd(fileDescriptor)
        , evdev(handle)
        , stream(processor, id)
    {
    }

    ~Device()
    {
        if (notifier) {
            notifier->setEnabled(false);
            // It may be the very notifier whose signal is being handled.
            notifier.release()->deleteLater();
        }
        libevdev_free(evdev);
        ::close(fd);
    }

    Q_DISABLE_COPY_MOVE(Device)

    QString path;
    int fd;
    libevdev* evdev;
    EvdevEventStream stream;
    std::unique_ptr<QSocketNotifier> notifier;
};

EvdevBackend::EvdevBackend(QObject* parent)
    : EvdevBackend(u"/dev/input"_s, parent)
{
}

EvdevBackend::EvdevBackend(const QString& directory, QObject* parent)
    : InputBackend(parent)
    , m_directory(directory)
    , m_processor(*this)
{
    m_lastAccess = access();

    m_rescanTimer.setSingleShot(true);
    m_rescanTimer.setInterval(1000);
    connect(&m_rescanTimer, &QTimer::timeout, this, &EvdevBackend::rescan);
}

EvdevBackend::~EvdevBackend()
{
    // Nobody should hear of releases while this object is half destroyed.
    blockSignals(true);
    m_devices.clear();
}

QString EvdevBackend::name() const
{
    return u"evdev"_s;
}

InputBackend::Access EvdevBackend::access() const
{
    const QStringList nodes = eventNodes(m_directory);
    if (nodes.isEmpty())
        return Access::unavailable;
    return std::any_of(nodes.cbegin(), nodes.cend(), isReadableKeyboard) ? Access::granted : Access::denied;
}

QString EvdevBackend::accessHelp() const
{
    if (access() != Access::denied)
        return {};
    return u"Ordalis reads the keyboard from the devices in %1, and none of them may be read by you. The README's "
           u"\"Key access\" section explains the ways to allow it and what each one exposes."_s.arg(m_directory);
}

InputBackend::Source EvdevBackend::source() const
{
    return m_running ? Source::devices : Source::none;
}

bool EvdevBackend::start()
{
    if (m_running)
        return true;
    if (access() != Access::granted)
        return false;

    m_running = true;
    m_watcher = std::make_unique<QFileSystemWatcher>(QStringList { m_directory });
    connect(m_watcher.get(), &QFileSystemWatcher::directoryChanged, this, [this] {
        rescan();
        scheduleRescan();
    });
    rescan();
    m_processor.refreshLockState();
    return true;
}

void EvdevBackend::stop()
{
    if (!m_running)
        return;
    m_running = false;
    m_rescanTimer.stop();
    m_watcher.reset();
    while (!m_devices.empty())
        removeDevice(m_devices.back().get());
}

bool EvdevBackend::capsLockOn() const
{
    return std::any_of(m_devices.cbegin(), m_devices.cend(),
        [](const std::unique_ptr<Device>& device) { return device->stream.capsLockLed(); });
}

int EvdevBackend::deviceCount() const
{
    return int(m_devices.size());
}

void EvdevBackend::rescan()
{
    if (!m_running)
        return;
    const QStringList nodes = eventNodes(m_directory);

    // A node that vanished without its device reporting an error first is gone all the same.
    for (std::size_t i = m_devices.size(); i-- > 0;) {
        if (!nodes.contains(m_devices[i]->path))
            removeDevice(m_devices[i].get());
    }
    for (const QString& path : nodes) {
        const bool known = std::any_of(m_devices.cbegin(), m_devices.cend(),
            [&path](const std::unique_ptr<Device>& d) { return d->path == path; });
        if (!known)
            openDevice(path);
    }
    updateAccess();
}

void EvdevBackend::scheduleRescan()
{
    if (m_running)
        m_rescanTimer.start();
}

void EvdevBackend::openDevice(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return; // Not readable (yet): the next rescan tries again.

    libevdev* evdev = nullptr;
    if (libevdev_new_from_fd(fd, &evdev) < 0) {
        ::close(fd);
        return;
    }
    EvdevEventStream::DeviceState state = readState(evdev);
    const bool hasWheel
        = libevdev_has_event_code(evdev, EV_REL, REL_WHEEL) || libevdev_has_event_code(evdev, EV_REL, REL_HWHEEL);
    // Pointers are read where they are readable; access itself still means a keyboard (see access()).
    if (!EvdevEventStream::isKeyboard(state.keys) && !EvdevEventStream::isPointer(state.keys, hasWheel)) {
        libevdev_free(evdev);
        ::close(fd);
        return;
    }

    const KeyEventProcessor::DeviceId id = m_nextDeviceId++;
    auto device = std::make_unique<Device>(m_processor, id, path, fd, evdev);
    device->notifier = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read);
    // Looked up by id: a notification still on its way after the device was closed must find nothing.
    connect(device->notifier.get(), &QSocketNotifier::activated, this, [this, id] {
        if (Device* d = findDevice(id))
            readDevice(d);
    });
    m_devices.push_back(std::move(device));
    // Keys and buttons already down (a modifier held while Ordalis starts) are shown, and their release is then not
    // ignored.
    m_devices.back()->stream.resync(state);
}

void EvdevBackend::readDevice(Device* device)
{
    const KeyEventProcessor::DeviceId id = device->stream.device();
    // Whoever hears of a key may stop this back end; the device must then not be touched again.
    const auto gone = [this, id, removals = m_removals] { return m_removals != removals && !findDevice(id); };
    for (int i = 0; i < maxEventsPerRead; ++i) {
        input_event event {};
        const int rc = libevdev_next_event(device->evdev, LIBEVDEV_READ_FLAG_NORMAL, &event);
        if (rc == LIBEVDEV_READ_STATUS_SUCCESS) {
            device->stream.processEvent(event);
            if (gone())
                return;
        } else if (rc == LIBEVDEV_READ_STATUS_SYNC) {
            // The kernel dropped events. libevdev has re-read the device; take its state rather than replaying the
            // difference event by event, so the result does not depend on what was read before.
            device->stream.processEvent(event);
            for (int j = 0; j < maxEventsPerRead; ++j) {
                if (libevdev_next_event(device->evdev, LIBEVDEV_READ_FLAG_SYNC, &event) != LIBEVDEV_READ_STATUS_SYNC)
                    break;
            }
            device->stream.resync(readState(device->evdev));
            if (gone())
                return;
        } else if (rc == -EAGAIN) {
            return;
        } else if (rc != -EINTR) {
            // -ENODEV when the device was unplugged; any other error leaves it just as unusable.
            removeDevice(device);
            scheduleRescan();
            return;
        }
    }
}

EvdevBackend::Device* EvdevBackend::findDevice(KeyEventProcessor::DeviceId id) const
{
    const auto it = std::find_if(m_devices.cbegin(), m_devices.cend(),
        [id](const std::unique_ptr<Device>& d) { return d->stream.device() == id; });
    return it == m_devices.cend() ? nullptr : it->get();
}

void EvdevBackend::removeDevice(Device* device)
{
    const auto it = std::find_if(
        m_devices.begin(), m_devices.end(), [device](const std::unique_ptr<Device>& d) { return d.get() == device; });
    if (it == m_devices.end())
        return;
    // Out of the list before anyone hears of the releases, so that the lock state no longer counts its LED.
    std::unique_ptr<Device> owned = std::move(*it);
    m_devices.erase(it);
    ++m_removals;
    owned->stream.deviceRemoved();
    updateAccess();
}

void EvdevBackend::updateAccess()
{
    const Access now = access();
    if (now == m_lastAccess)
        return;
    m_lastAccess = now;
    emit accessChanged();
}
