// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// What ordalis-keyhelper writes to its standard output and Ordalis reads: a stream of fixed-size records, nothing
// else. Shared by both programs, so it uses the C++ standard library only.
//
// The stream starts with one `hello` record. Every device the helper reads is announced by a state block before any
// other record names it; a state block is sent again after the kernel dropped events. Records of one device come in
// the order the device produced them; records of different devices may interleave, but never inside a state block.
//
//   hello       code = protocolVersion
//   key         code = Linux key code (below keyCodeCount), value = 0 release, 1 press, 2 auto-repeat; pointer
//               buttons are key codes too (BTN_LEFT and so on)
//   capsLockLed value = 0 off, 1 on
//   stateBegin  the device's full state follows
//   stateKey    code = a Linux key code that is down now (inside a state block only)
//   stateEnd    value = the Caps Lock LED (0 or 1); the state is complete
//   removed     the device is gone; its id may be used again by a later device
//   scroll      code = 0 up, 1 down, 2 left, 3 right: the device's wheel moved by one notch (see WheelSteps)
//
// Version 2 added the scroll record and pointer devices. A reader of version 1 refuses a version 2 stream at its
// hello, so it never meets a record it does not know; a version 1 stream has no scroll records.
// No record carries text, names, paths or times.

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace KeyHelperProtocol {

constexpr std::uint16_t protocolVersion = 2;
/** The oldest version a reader of this one understands. */
constexpr std::uint16_t oldestReadableVersion = 1;
/** The first version with scroll records. */
constexpr std::uint16_t scrollVersion = 2;
/** Scroll directions carried: the codes 0 to 3. */
constexpr int scrollDirectionCount = 4;

/** Linux key codes carried: KEY_MAX + 1, the size of an evdev key bitmap. */
constexpr int keyCodeCount = 768;

enum class Kind : std::uint8_t {
    hello = 1,
    key = 2,
    capsLockLed = 3,
    stateBegin = 4,
    stateKey = 5,
    stateEnd = 6,
    removed = 7,
    scroll = 8,
};

/** One record, in the byte order of the machine (both ends run on it). */
struct Record
{
    Kind kind;
    std::uint8_t reserved; // always 0
    std::uint16_t device;
    std::uint16_t code;
    std::int16_t value;
};

constexpr std::size_t recordSize = 8;
static_assert(sizeof(Record) == recordSize && std::is_trivially_copyable_v<Record>);

inline Record makeRecord(Kind kind, std::uint16_t device = 0, std::uint16_t code = 0, std::int16_t value = 0)
{
    return Record { kind, 0, device, code, value };
}

/** The record in the first recordSize bytes of `bytes`. */
inline Record decode(const void* bytes)
{
    Record record;
    std::memcpy(&record, bytes, recordSize);
    return record;
}

inline void encode(const Record& record, void* bytes)
{
    std::memcpy(bytes, &record, recordSize);
}

} // namespace KeyHelperProtocol
