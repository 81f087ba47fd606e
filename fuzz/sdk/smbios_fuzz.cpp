// Any firmware table: no byte outside it is read, and a UUID that is found is in it.

#include <algorithm>

#include "require.h"
#include "smbios.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto uuid = zop::ZopFindSystemUuid({data, size});
    Require(!uuid || std::search(data, data + size, uuid->begin(), uuid->end()) != data + size);
    return 0;
}
