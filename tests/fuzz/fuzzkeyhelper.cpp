// SPDX-License-Identifier: GPL-3.0-or-later
// Arbitrary output of the key helper, cut into pieces of arbitrary sizes, read by KeyHelperStream into the key event
// processor. Whatever arrives, nothing may crash, at most maxDevices devices are ever kept, and once the stream ends
// (or breaks) no key may be left held and no modifier or Caps Lock flag reported.
//
// Input: one byte of options (bit 0: start with a valid hello; bits 1-4: the size of the pieces, 0 meaning a
// size read from the input before each piece), then the stream.
#include "../testsupport.h"
#include "fuzzsupport.h"

#include "input/keyeventprocessor.h"
#include "input/keyhelperprotocol.h"
#include "input/keyhelperstream.h"
#include "input/linuxkeymap.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::ensureApplication();
    if (size == 0)
        return 0;
    const std::uint8_t options = data[0];
    ++data;
    --size;

    TestSupport::FakeInputBackend backend;
    KeyEventProcessor processor(backend);
    KeyHelperStream stream(processor);

    if (options & 1) {
        char hello[KeyHelperProtocol::recordSize];
        KeyHelperProtocol::encode(
            KeyHelperProtocol::makeRecord(KeyHelperProtocol::Kind::hello, 0, KeyHelperProtocol::protocolVersion),
            hello);
        stream.feed(hello, sizeof hello);
    }
    const std::size_t fixedPiece = (options >> 1) & 0x0F;
    while (size > 0) {
        std::size_t piece = fixedPiece;
        if (piece == 0) {
            piece = std::size_t(data[0]) + 1;
            ++data;
            --size;
        }
        piece = std::min(piece, size);
        stream.feed(reinterpret_cast<const char*>(data), piece);
        data += piece;
        size -= piece;
        FUZZ_CHECK(stream.deviceCount() <= KeyHelperStream::maxDevices);
        if (!stream.error().isEmpty())
            FUZZ_CHECK(stream.deviceCount() == 0);
    }
    stream.finish();

    // Later bytes change nothing.
    const char more[KeyHelperProtocol::recordSize] = { 2, 0, 0, 0, 30, 0, 1, 0 };
    FUZZ_CHECK(!stream.feed(more, sizeof more));
    FUZZ_CHECK(stream.deviceCount() == 0);
    for (int code = 0; code < LinuxKeymap::codeCount; ++code)
        FUZZ_CHECK(!processor.isHeld(code));
    FUZZ_CHECK(processor.flags() == 0);
    return 0;
}
