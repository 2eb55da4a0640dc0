// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/evdeveventstream.h"
#include "input/keyhelperprotocol.h"
#include "input/keyeventprocessor.h"

#include <QString>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/**
 * Reads the record stream of ordalis-keyhelper and feeds it, device by device, through the same evdev event streams
 * that reading the devices directly uses: per-device held keys and buttons, resync from a full state, release of a
 * removed device's keys and buttons, Caps Lock from the LED, scroll steps.
 *
 * The helper runs with more privilege than Ordalis, but its output is still treated as untrusted: the first record
 * that breaks the protocol (anything before hello, an unknown kind, a code or value out of range, a device never
 * announced, a state block left open across other records, more devices than any desk has) ends the stream. Then
 * every key it made held is released and everything after is ignored, so garbage never leaves a key lit.
 */
class KeyHelperStream final
{
public:
    /** More devices than this at once is taken as a broken stream. */
    static constexpr int maxDevices = 64;

    /** `processor` must outlive the stream. */
    explicit KeyHelperStream(KeyEventProcessor& processor);
    ~KeyHelperStream();
    Q_DISABLE_COPY_MOVE(KeyHelperStream)

    /**
     * Bytes as they arrive, cut anywhere: whole records are processed, a partial one waits for the rest. False once
     * the stream is broken (now or before).
     */
    bool feed(const char* data, std::size_t size);

    /** The stream has ended (the helper exited): every device is released. Later bytes are ignored. */
    void finish();

    /** hello was read and nothing broke since: keys are flowing. */
    bool isReady() const { return m_helloSeen && !m_closed; }
    /** The stream broke the protocol; why, in a few plain words. Empty while it has not. */
    QString error() const { return m_error; }
    int deviceCount() const { return int(m_devices.size()); }
    /** True while any device's Caps Lock LED is lit. */
    bool capsLockOn() const;

private:
    struct Device
    {
        std::uint16_t id;
        std::unique_ptr<EvdevEventStream> stream;
    };

    bool process(const KeyHelperProtocol::Record& record);
    bool fail(const QString& why);
    Device* findDevice(std::uint16_t id);
    void releaseEverything();

    KeyEventProcessor& m_processor;
    std::vector<Device> m_devices;
    std::array<char, KeyHelperProtocol::recordSize> m_partial {};
    std::size_t m_partialSize = 0;
    /** The device whose state block is open, and the state read so far. */
    Device* m_stateDevice = nullptr;
    EvdevEventStream::DeviceState m_state;
    KeyEventProcessor::DeviceId m_nextStreamId = 1;
    std::uint16_t m_version = 0;
    bool m_helloSeen = false;
    bool m_closed = false;
    bool m_busy = false;
    QString m_error;
};
