#include "channel.h"

#include "zoprotector.h"

namespace zoctl {

Channel::Channel() : status_(ZoProtector_Initialize()) {}

Channel::~Channel() {
    ZoProtector_Uninitialize();  // always succeeds
}

Ended Channel::Check(Output& out) const {
    if (status_ >= 0) return std::nullopt;
    return out.Fail(status_, Subject::kChannel, "reach the driver");
}

Action WithDriver(Action action) {
    return [action = std::move(action)](Output& out) {
        const Channel channel;
        if (const Ended ended = channel.Check(out)) return *ended;
        return action(out);
    };
}

}  // namespace zoctl
