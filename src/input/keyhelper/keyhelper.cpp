// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/keyhelper/keyhelper.h"

#include "input/wheelsteps.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace KeyHelper {
namespace {

using Clock = std::chrono::steady_clock;
using KeyHelperProtocol::Kind;

// Per device and wake-up, so that one device flooding events cannot starve the others; poll() returns at once
// while a device has more.
constexpr int maxEventsPerWake = 512;
// udev finishes a new node (owner, mode) a moment after it appears, so the directory is read again after this.
constexpr auto retryAfter = std::chrono::milliseconds(500);
constexpr std::size_t maxDevices = 256;
constexpr unsigned int inputMajor = 13;
constexpr std::uint32_t watchedChanges = IN_CREATE | IN_DELETE | IN_ATTRIB | IN_MOVED_TO | IN_MOVED_FROM;

/** The same test as EvdevEventStream::isKeyboard: letter keys, or media keys (often a device of their own). */
bool isKeyboard(const KeyBits& keys)
{
    if (keys[KEY_A] && keys[KEY_Z] && keys[KEY_SPACE])
        return true;
    return keys[KEY_VOLUMEUP] || keys[KEY_VOLUMEDOWN] || keys[KEY_MUTE] || keys[KEY_PLAYPAUSE] || keys[KEY_BRIGHTNESSUP]
        || keys[KEY_BRIGHTNESSDOWN];
}

/** The same test as EvdevEventStream::isPointer: a left button (mice, touchpads) or a wheel. */
bool isPointer(const Device& device)
{
    return device.keyCodes()[BTN_LEFT] || device.hasWheel();
}

/**
 * Whether a key code is passed on. Touchpads and tablets report fingers and pens as keys (BTN_TOUCH, BTN_TOOL_*):
 * those say where the user's hands are, not what is pressed, and are kept back.
 */
bool isForwarded(unsigned int code)
{
    return code < KeyHelperProtocol::keyCodeCount && (code < BTN_DIGI || code > BTN_TOOL_QUADTAP);
}

bool isEventNode(const char* name)
{
    if (std::strncmp(name, "event", 5) != 0 || name[5] == '\0')
        return false;
    return std::all_of(name + 5, name + std::strlen(name), [](char c) { return c >= '0' && c <= '9'; });
}

bool isDeviceNode(const struct stat& st)
{
#ifdef ORDALIS_KEYHELPER_TESTING
    if (S_ISFIFO(st.st_mode))
        return true;
#endif
    return S_ISCHR(st.st_mode) && major(st.st_rdev) == inputMajor;
}

/** Records waiting for standard output, which is written in whole records only. */
class Output
{
public:
    void add(Kind kind, std::uint16_t device = 0, unsigned int code = 0, int value = 0)
    {
        const std::size_t at = m_bytes.size();
        m_bytes.resize(at + KeyHelperProtocol::recordSize);
        KeyHelperProtocol::encode(
            KeyHelperProtocol::makeRecord(kind, device, std::uint16_t(code), std::int16_t(value)), &m_bytes[at]);
    }

    /** False when standard output can no longer be written to. */
    bool flush()
    {
        std::size_t done = 0;
        while (done < m_bytes.size()) {
            const ssize_t n = ::write(STDOUT_FILENO, &m_bytes[done], m_bytes.size() - done);
            if (n > 0) {
                done += std::size_t(n);
            } else if (n < 0 && errno == EAGAIN) {
                pollfd out { STDOUT_FILENO, POLLOUT, 0 };
                ::poll(&out, 1, -1);
            } else if (n == 0 || errno != EINTR) {
                return false; // EPIPE when the reader is gone
            }
        }
        m_bytes.clear();
        return true;
    }

private:
    std::vector<unsigned char> m_bytes;
};

struct OpenDevice
{
    std::string name;
    std::uint16_t id;
    std::unique_ptr<Device> device;
    WheelSteps wheel;
    bool capsLockLed = false;
    bool unfinished = false; // stopped at maxEventsPerWake with events left
};

class Reader
{
public:
    Reader(const char* directory, int dirFd, int inotifyFd)
        : m_path(directory)
        , m_dir(dirFd)
        , m_inotify(inotifyFd)
    {
    }

    int run()
    {
        m_out.add(Kind::hello, 0, KeyHelperProtocol::protocolVersion);
        scan();
        if (!m_out.flush())
            return 1;
        std::vector<pollfd> fds;
        for (;;) {
            fds.assign({ { STDIN_FILENO, POLLIN, 0 }, { m_inotify, POLLIN, 0 } });
            bool unfinished = false;
            for (const OpenDevice& d : m_devices) {
                fds.push_back({ d.device->fd(), POLLIN, 0 });
                unfinished = unfinished || d.unfinished;
            }
            if (::poll(fds.data(), fds.size(), unfinished ? 0 : timeout()) < 0) {
                if (errno == EINTR)
                    continue;
                return 1;
            }
            if (fds[0].revents) {
                char discarded[256];
                const ssize_t n = ::read(STDIN_FILENO, discarded, sizeof discarded);
                if (n == 0)
                    return 0;
                if (n < 0 && errno != EINTR && errno != EAGAIN)
                    return 1;
            }
            // Devices before the directory, which may change the list: fds[2 + i] is m_devices[i] until then.
            for (std::size_t i = m_devices.size(); i-- > 0;) {
                if ((fds[2 + i].revents || m_devices[i].unfinished) && !pump(m_devices[i]))
                    remove(i);
            }
            if (fds[1].revents && !readDirectoryChanges())
                return 1;
            if (m_rescanAt && Clock::now() >= *m_rescanAt) {
                m_rescanAt.reset();
                scan();
            }
            if (!m_out.flush())
                return 1;
        }
    }

private:
    int timeout() const
    {
        if (!m_rescanAt)
            return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*m_rescanAt - Clock::now());
        return int(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, retryAfter.count()));
    }

    void scan()
    {
        std::vector<std::string> names;
        if (DIR* dir = ::opendir(m_path.c_str())) {
            while (const dirent* entry = ::readdir(dir)) {
                if (isEventNode(entry->d_name))
                    names.emplace_back(entry->d_name);
            }
            ::closedir(dir);
        }
        // A node that went without its device reporting an error first is gone all the same.
        for (std::size_t i = m_devices.size(); i-- > 0;) {
            if (std::find(names.begin(), names.end(), m_devices[i].name) == names.end())
                remove(i);
        }
        for (const std::string& name : names)
            open(name.c_str());
    }

    void open(const char* name)
    {
        if (m_devices.size() >= maxDevices || find(name) != m_devices.end())
            return;
        // Only an input device node is opened (opening some other kind of file may do something), and the file
        // opened must be the one looked at.
        struct stat seen, opened;
        if (::fstatat(m_dir, name, &seen, AT_SYMLINK_NOFOLLOW) != 0 || !isDeviceNode(seen))
            return;
        const int fd = ::openat(m_dir, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY);
        if (fd < 0)
            return; // not ready yet: the retry comes after the node appeared
        if (::fstat(fd, &opened) != 0 || opened.st_dev != seen.st_dev || opened.st_ino != seen.st_ino
            || opened.st_mode != seen.st_mode || opened.st_rdev != seen.st_rdev) {
            ::close(fd);
            return;
        }
#ifdef ORDALIS_KEYHELPER_TESTING
        std::unique_ptr<Device> device = S_ISFIFO(opened.st_mode) ? openFakeDevice(fd) : openEvdevDevice(fd);
#else
        std::unique_ptr<Device> device = openEvdevDevice(fd);
#endif
        if (!device || (!isKeyboard(device->keyCodes()) && !isPointer(*device)))
            return;
        m_devices.push_back({ name, freeId(), std::move(device), {} });
        sendState(m_devices.back());
    }

    std::uint16_t freeId()
    {
        // maxDevices ids at most are taken, so this ends; ids come round again only after 65536 devices.
        for (;;) {
            const std::uint16_t id = m_nextId++;
            if (std::none_of(m_devices.begin(), m_devices.end(), [id](const OpenDevice& d) { return d.id == id; }))
                return id;
        }
    }

    std::vector<OpenDevice>::iterator find(const char* name)
    {
        return std::find_if(m_devices.begin(), m_devices.end(), [name](const OpenDevice& d) { return d.name == name; });
    }

    void remove(std::size_t index)
    {
        m_out.add(Kind::removed, m_devices[index].id);
        m_devices.erase(m_devices.begin() + std::ptrdiff_t(index));
    }

    void sendState(OpenDevice& d)
    {
        const DeviceState state = d.device->state();
        m_out.add(Kind::stateBegin, d.id);
        for (unsigned int code = 0; code < state.keysDown.size(); ++code) {
            if (state.keysDown[code] && isForwarded(code))
                m_out.add(Kind::stateKey, d.id, code);
        }
        m_out.add(Kind::stateEnd, d.id, 0, state.capsLockLed);
        d.capsLockLed = state.capsLockLed;
    }

    /** Forwards what the device has to say, up to maxEventsPerWake events; false when the device is gone. */
    bool pump(OpenDevice& d)
    {
        d.unfinished = true;
        for (int i = 0; i < maxEventsPerWake; ++i) {
            input_event event {};
            switch (d.device->next(event)) {
            case Device::Next::event:
                if (event.type == EV_KEY && isForwarded(event.code) && event.value >= 0 && event.value <= 2) {
                    m_out.add(Kind::key, d.id, event.code, event.value);
                } else if (event.type == EV_REL || event.type == EV_SYN) {
                    d.wheel.process(event, [this, &d](WheelSteps::Direction direction) {
                        m_out.add(Kind::scroll, d.id, unsigned(direction));
                    });
                } else if (event.type == EV_LED && event.code == LED_CAPSL && (event.value != 0) != d.capsLockLed) {
                    d.capsLockLed = !d.capsLockLed;
                    m_out.add(Kind::capsLockLed, d.id, 0, d.capsLockLed);
                }
                break;
            case Device::Next::resynced:
                d.wheel.reset();
                sendState(d);
                break;
            case Device::Next::empty:
                d.unfinished = false;
                return true;
            case Device::Next::gone:
                return false;
            }
        }
        return true;
    }

    /** False when the directory itself is gone. */
    bool readDirectoryChanges()
    {
        alignas(inotify_event) char buffer[4096];
        const ssize_t n = ::read(m_inotify, buffer, sizeof buffer);
        if (n <= 0)
            return n < 0 && (errno == EAGAIN || errno == EINTR);
        for (const char* at = buffer; at < buffer + n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            at += sizeof(inotify_event) + event->len;
            if (event->mask & IN_IGNORED)
                return false;
            if (event->mask & IN_Q_OVERFLOW) {
                scan();
            } else if (event->len > 0 && isEventNode(event->name)) {
                if (event->mask & (IN_DELETE | IN_MOVED_FROM)) {
                    if (const auto it = find(event->name); it != m_devices.end())
                        remove(std::size_t(it - m_devices.begin()));
                } else {
                    if ((event->mask & (IN_CREATE | IN_MOVED_TO)) && !m_rescanAt)
                        m_rescanAt = Clock::now() + retryAfter;
                    open(event->name);
                }
            }
        }
        return true;
    }

    std::string m_path;
    int m_dir;
    int m_inotify;
    std::vector<OpenDevice> m_devices;
    std::uint16_t m_nextId = 0;
    std::optional<Clock::time_point> m_rescanAt;
    Output m_out;
};

} // namespace

int run(const char* directory)
{
    const int dirFd = ::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int inotifyFd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (dirFd < 0 || inotifyFd < 0 || ::inotify_add_watch(inotifyFd, directory, watchedChanges | IN_ONLYDIR) < 0)
        return 1;
    return Reader(directory, dirFd, inotifyFd).run();
}

} // namespace KeyHelper
