#include "groups.h"

#include "crash_group.h"
#include "driver_commands.h"
#include "events_group.h"
#include "manual_group.h"
#include "rules_commands.h"
#include "seal_commands.h"
#include "upgrade_commands.h"
#include "vocabulary_option.h"

namespace zoctl {

std::span<const RegisterGroup> CommandGroups() {
    // clang-format off
    static constexpr RegisterGroup kGroups[] = {
        RegisterDoctor,
        RegisterDriver,
        RegisterUpgrade,
        RegisterStatus,
        RegisterProcess,
        RegisterFile,
        RegisterRegistry,
        RegisterDll,
        RegisterSignature,
        RegisterRules,
        RegisterEvents,
        RegisterVocabulary,
        RegisterKeys,
        RegisterSeal,
        RegisterManifest,
        RegisterMaintenance,
        RegisterCrash,
        RegisterManual,
    };
    // clang-format on
    return kGroups;
}

}  // namespace zoctl
