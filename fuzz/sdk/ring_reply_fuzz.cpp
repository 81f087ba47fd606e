// Any reply of the driver, and any storage descriptor: nothing outside the buffers is read or written. The first bytes
// choose capacity, record size and the length that the driver claims; the rest is the reply.

#include <algorithm>
#include <vector>

#include "identifier_text.h"
#include "require.h"
#include "ring_reply.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 4) return 0;
    const std::uint32_t capacity = data[0] % 16;
    const std::uint32_t recordSize = 1u + data[1] % 64;
    const std::uint32_t returned = data[2] * 4u + data[3] % 4;
    data += 4;
    size -= 4;

    // Buffers of exactly the sizes that an export allocates, so that the sanitizer sees one byte too many.
    std::vector<std::uint8_t> reply(zop::ZopReplySize(recordSize, capacity));
    std::copy_n(data, std::min(size, reply.size()), reply.begin());
    std::vector<std::uint8_t> records(std::size_t{recordSize} * capacity);

    ZopDrainReplyHeader header{};
    if (zop::ZopReadHeader(reply.data(), returned, header)) {
        const std::uint32_t copied =
            zop::ZopCopyRecords(reply.data(), header.count, recordSize, records.data(), capacity);
        Require(copied <= capacity && copied <= header.count);
        Require(std::equal(records.data(), records.data() + std::size_t{recordSize} * copied, reply.data() + 16));
    }
    const std::string_view serial = zop::ZopSerialOfDescriptor({data, size}, returned);
    Require(serial.size() <= size && serial.find('\0') == std::string_view::npos);
    return 0;
}
