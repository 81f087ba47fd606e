#include "channel.h"

namespace zoctl {

Ended Channel::Check(Output& out) const {
    if (!error_) return std::nullopt;
    return out.Fail(error_.value(), Subject::kChannel, "reach the driver");
}

Action WithDriver(Action action) {
    return [action = std::move(action)](Output& out) {
        const Channel channel;
        if (const Ended ended = channel.Check(out)) return *ended;
        return action(out);
    };
}

}  // namespace zoctl
