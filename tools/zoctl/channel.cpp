#include "channel.h"

#include "zoprotector.h"

namespace zoctl {

namespace {

struct OpenChannel {
    OpenChannel() = default;
    ~OpenChannel() { ZoProtector_Uninitialize(); }  // always succeeds
    OpenChannel(const OpenChannel&) = delete;
    OpenChannel& operator=(const OpenChannel&) = delete;
};

}  // namespace

int WithDriver(Output& out, const std::function<int()>& work) {
    const std::int32_t status = ZoProtector_Initialize();
    if (status < 0) return out.Fail(status, Subject::kChannel, "reach the driver");
    const OpenChannel channel;
    return work();
}

}  // namespace zoctl
