#include "groups.h"

namespace zoctl {

std::span<const RegisterGroup> CommandGroups() {
    static constexpr RegisterGroup kGroups[] = {
        RegisterStatus,
        RegisterDriver,
    };
    return kGroups;
}

}  // namespace zoctl
