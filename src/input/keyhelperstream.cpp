// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/keyhelperstream.h"

#include <linux/input.h>

#include <algorithm>

using namespace Qt::StringLiterals;
using KeyHelperProtocol::Kind;
using KeyHelperProtocol::Record;

namespace {

input_event makeEvent(std::uint16_t type, std::uint16_t code, std::int32_t value)
{
    input_event event {};
    event.type = type;
    event.code = code;
    event.value = value;
    return event;
}

} // namespace

static_assert(KeyHelperProtocol::keyCodeCount == LinuxKeymap::codeCount);

KeyHelperStream::KeyHelperStream(KeyEventProcessor& processor)
    : m_processor(processor)
{
}

KeyHelperStream::~KeyHelperStream() = default;

bool KeyHelperStream::feed(const char* data, std::size_t size)
{
    if (m_closed)
        return false;
    // Whoever hears of a key may end the stream (finish()) while a record is being processed; the devices are then
    // released once that record is done with them.
    m_busy = true;
    if (m_partialSize > 0) {
        const std::size_t take = std::min(size, KeyHelperProtocol::recordSize - m_partialSize);
        std::copy_n(data, take, m_partial.begin() + std::ptrdiff_t(m_partialSize));
        m_partialSize += take;
        data += take;
        size -= take;
        if (m_partialSize == KeyHelperProtocol::recordSize) {
            m_partialSize = 0;
            process(KeyHelperProtocol::decode(m_partial.data()));
        }
    }
    while (!m_closed && size >= KeyHelperProtocol::recordSize) {
        process(KeyHelperProtocol::decode(data));
        data += KeyHelperProtocol::recordSize;
        size -= KeyHelperProtocol::recordSize;
    }
    if (!m_closed) {
        std::copy_n(data, size, m_partial.begin() + std::ptrdiff_t(m_partialSize));
        m_partialSize += size;
    }
    m_busy = false;
    if (m_closed)
        releaseEverything();
    return !m_closed;
}

void KeyHelperStream::finish()
{
    m_closed = true;
    if (!m_busy)
        releaseEverything();
}

bool KeyHelperStream::capsLockOn() const
{
    return std::any_of(
        m_devices.cbegin(), m_devices.cend(), [](const Device& device) { return device.stream->capsLockLed(); });
}

bool KeyHelperStream::process(const Record& record)
{
    if (record.reserved != 0)
        return fail(u"a record with unknown contents"_s);
    if (!m_helloSeen) {
        if (record.kind != Kind::hello)
            return fail(u"no greeting"_s);
        if (record.code < KeyHelperProtocol::oldestReadableVersion || record.code > KeyHelperProtocol::protocolVersion)
            return fail(u"a key helper of another version"_s);
        m_version = record.code;
        m_helloSeen = true;
        return true;
    }

    Device* device = findDevice(record.device);
    // Inside a state block only its own records may come.
    if (m_stateDevice && (device != m_stateDevice || (record.kind != Kind::stateKey && record.kind != Kind::stateEnd)))
        return fail(u"an unfinished device state"_s);

    switch (record.kind) {
    case Kind::stateBegin:
        if (!device) {
            if (int(m_devices.size()) >= maxDevices)
                return fail(u"too many devices"_s);
            m_devices.push_back({ record.device, std::make_unique<EvdevEventStream>(m_processor, m_nextStreamId++) });
            device = &m_devices.back();
        }
        m_stateDevice = device;
        m_state = {};
        return true;
    case Kind::stateKey:
        if (!m_stateDevice || record.code >= KeyHelperProtocol::keyCodeCount)
            return fail(u"a key state out of place"_s);
        m_state.keys.set(record.code);
        return true;
    case Kind::stateEnd:
        if (!m_stateDevice || record.value < 0 || record.value > 1)
            return fail(u"a key state out of place"_s);
        m_state.capsLockLed = record.value == 1;
        m_stateDevice = nullptr;
        device->stream->resync(m_state);
        return true;
    case Kind::key:
        if (!device || record.code >= KeyHelperProtocol::keyCodeCount || record.value < 0 || record.value > 2)
            return fail(u"a key event out of place"_s);
        device->stream->processEvent(makeEvent(EV_KEY, record.code, record.value));
        return true;
    case Kind::capsLockLed:
        if (!device || record.value < 0 || record.value > 1)
            return fail(u"a light change out of place"_s);
        device->stream->processEvent(makeEvent(EV_LED, LED_CAPSL, record.value));
        return true;
    case Kind::scroll:
        if (m_version < KeyHelperProtocol::scrollVersion)
            break;
        if (!device || record.code >= KeyHelperProtocol::scrollDirectionCount || record.value != 0)
            return fail(u"a scroll out of place"_s);
        device->stream->scroll(ScrollDirection(record.code));
        return true;
    case Kind::removed: {
        if (!device)
            return fail(u"an unknown device removed"_s);
        // Out of the list before the releases are heard of, so that its LED no longer counts.
        std::unique_ptr<EvdevEventStream> stream = std::move(device->stream);
        m_devices.erase(m_devices.begin() + (device - m_devices.data()));
        stream->deviceRemoved();
        return true;
    }
    case Kind::hello:
        break;
    }
    return fail(u"a record of an unknown kind"_s);
}

bool KeyHelperStream::fail(const QString& why)
{
    if (!m_closed)
        m_error = why;
    m_closed = true;
    return false;
}

KeyHelperStream::Device* KeyHelperStream::findDevice(std::uint16_t id)
{
    const auto it = std::find_if(m_devices.begin(), m_devices.end(), [id](const Device& d) { return d.id == id; });
    return it == m_devices.end() ? nullptr : &*it;
}

void KeyHelperStream::releaseEverything()
{
    m_stateDevice = nullptr;
    std::vector<Device> devices = std::move(m_devices);
    m_devices.clear();
    for (Device& device : devices)
        device.stream->deviceRemoved();
}
