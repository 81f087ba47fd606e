#include "channel.h"

#include "zoprotector.h"

namespace zoctl {

Channel::Channel() : status_(ZoProtector_Initialize()) {}

Channel::~Channel() {
    ZoProtector_Uninitialize();  // always succeeds
}

int WithDriver(Output& out, const std::function<int()>& work) {
    const Channel channel;
    if (channel.Status() < 0) return out.Fail(channel.Status(), Subject::kChannel, "reach the driver");
    return work();
}

}  // namespace zoctl
