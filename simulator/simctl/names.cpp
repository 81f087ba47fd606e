#include "names.h"

#include <algorithm>
#include <charconv>

#include "driver_records.h"
#include "format.h"
#include "zoprotector_simulator.h"

namespace simctl {

namespace {

constexpr Name kTableNames[] = {
    {"process", ZOSIM_TABLE_PROCESS},         {"file", ZOSIM_TABLE_FILE},
    {"registry", ZOSIM_TABLE_REGISTRY},       {"dll", ZOSIM_TABLE_DLL},
    {"file-ignore", ZOSIM_TABLE_FILE_IGNORE}, {"registry-ignore", ZOSIM_TABLE_REGISTRY_IGNORE},
    {"override", ZOSIM_TABLE_OVERRIDE},       {"known-process", ZOSIM_TABLE_PID},
};
static_assert(std::size(kTableNames) == ZOSIM_TABLE_COUNT);

constexpr Name kRingNames[] = {{"events", ZOSIM_RING_EVENTS}, {"registry", ZOSIM_RING_REGISTRY}};
static_assert(std::size(kRingNames) == ZOSIM_RING_COUNT);

constexpr Name kResumeNames[] = {{"oldest", ZOSIM_RESUME_OLDEST}, {"newest", ZOSIM_RESUME_NEWEST}};

constexpr Name kCommandNames[] = {
    {"any", ZOSIM_ANY_CODE},
    {"add-process-rule", ZOP_IOCTL_ADD_PROCESS_RULE},
    {"remove-process-rule", ZOP_IOCTL_REMOVE_PROCESS_RULE},
    {"clear-process-rules", ZOP_IOCTL_CLEAR_PROCESS_RULES},
    {"list-process-rules", ZOP_IOCTL_LIST_PROCESS_RULES},
    {"add-file-rule", ZOP_IOCTL_ADD_FILE_RULE},
    {"remove-file-rule", ZOP_IOCTL_REMOVE_FILE_RULE},
    {"clear-file-rules", ZOP_IOCTL_CLEAR_FILE_RULES},
    {"enable-file-protect", ZOP_IOCTL_ENABLE_FILE_PROTECT},
    {"add-file-ignore-process", ZOP_IOCTL_ADD_FILE_IGNORE_PROCESS},
    {"remove-file-ignore-process", ZOP_IOCTL_REMOVE_FILE_IGNORE_PROCESS},
    {"clear-file-ignore-processes", ZOP_IOCTL_CLEAR_FILE_IGNORE_PROCESSES},
    {"list-file-rules", ZOP_IOCTL_LIST_FILE_RULES},
    {"add-registry-rule", ZOP_IOCTL_ADD_REGISTRY_RULE},
    {"remove-registry-rule", ZOP_IOCTL_REMOVE_REGISTRY_RULE},
    {"clear-registry-rules", ZOP_IOCTL_CLEAR_REGISTRY_RULES},
    {"add-registry-ignore-process", ZOP_IOCTL_ADD_REGISTRY_IGNORE_PROCESS},
    {"remove-registry-ignore-process", ZOP_IOCTL_REMOVE_REGISTRY_IGNORE_PROCESS},
    {"clear-registry-ignore-processes", ZOP_IOCTL_CLEAR_REGISTRY_IGNORE_PROCESSES},
    {"drain-registry-events", ZOP_IOCTL_DRAIN_REGISTRY_EVENTS},
    {"list-registry-rules", ZOP_IOCTL_LIST_REGISTRY_RULES},
    {"enable-dll-load-filter", ZOP_IOCTL_ENABLE_DLL_LOAD_FILTER},
    {"add-dll-whitelist-folder", ZOP_IOCTL_ADD_DLL_WHITELIST_FOLDER},
    {"remove-dll-whitelist-folder", ZOP_IOCTL_REMOVE_DLL_WHITELIST_FOLDER},
    {"clear-dll-whitelist", ZOP_IOCTL_CLEAR_DLL_WHITELIST},
    {"list-dll-whitelist", ZOP_IOCTL_LIST_DLL_WHITELIST},
    {"copy-directory", ZOP_IOCTL_COPY_DIRECTORY},
    {"replace-file", ZOP_IOCTL_REPLACE_FILE},
    {"get-status", ZOP_IOCTL_GET_STATUS},
    {"get-version", ZOP_IOCTL_GET_VERSION},
    {"get-stats", ZOP_IOCTL_GET_STATS},
    {"drain-events", ZOP_IOCTL_DRAIN_EVENTS},
    {"query-pid-signature", ZOP_IOCTL_QUERY_PID_SIGNATURE},
    {"get-signature-policy", ZOP_IOCTL_GET_SIGNATURE_POLICY},
    {"set-signature-policy", ZOP_IOCTL_SET_SIGNATURE_POLICY},
    {"refresh-pid-signature", ZOP_IOCTL_REFRESH_PID_SIGNATURE},
    {"add-signature-override", ZOP_IOCTL_ADD_SIGNATURE_OVERRIDE},
    {"remove-signature-override", ZOP_IOCTL_REMOVE_SIGNATURE_OVERRIDE},
    {"clear-signature-overrides", ZOP_IOCTL_CLEAR_SIGNATURE_OVERRIDES},
    {"set-master-enabled", ZOP_IOCTL_SET_MASTER_ENABLED},
    {"get-master-enabled", ZOP_IOCTL_GET_MASTER_ENABLED},
    {"force-crash", ZOP_IOCTL_FORCE_CRASH},
};

constexpr Name kStatusNames[] = {
    {"success", 0x00000000},
    {"buffer-overflow", 0x80000005},
    {"unsuccessful", 0xC0000001},
    {"invalid-parameter", 0xC000000D},
    {"access-denied", 0xC0000022},
    {"buffer-too-small", 0xC0000023},
    {"object-name-not-found", 0xC0000034},
    {"object-name-collision", 0xC0000035},
    {"quota-exceeded", 0xC0000044},
    {"device-does-not-exist", 0xC00000C0},
    {"not-found", 0xC0000225},
};

constexpr Name kCounterNames[] = {
    {"requests", ZOSIM_COUNTER_REQUESTS},
    {"refused", ZOSIM_COUNTER_REFUSED},
    {"rules-added", ZOSIM_COUNTER_RULES_ADDED},
    {"rules-removed", ZOSIM_COUNTER_RULES_REMOVED},
    {"events", ZOSIM_COUNTER_EVENTS},
    {"events-dropped", ZOSIM_COUNTER_EVENTS_DROPPED},
    {"registry-events", ZOSIM_COUNTER_REGISTRY_EVENTS},
    {"registry-events-dropped", ZOSIM_COUNTER_REGISTRY_EVENTS_DROPPED},
    {"files-copied", ZOSIM_COUNTER_FILES_COPIED},
    {"files-replaced", ZOSIM_COUNTER_FILES_REPLACED},
    {"unsigned-bypass", ZOSIM_COUNTER_UNSIGNED_BYPASS},
    {"refreshes", ZOSIM_COUNTER_REFRESHES},
};

}  // namespace

const Vocabulary kTables{"table", kTableNames, false};
const Vocabulary kRings{"ring", kRingNames, false};
const Vocabulary kResumes{"place to resume", kResumeNames, false};
const Vocabulary kCommands{"driver command", kCommandNames, true};
const Vocabulary kStatuses{"status", kStatusNames, true};
const Vocabulary kCounters{"counter", kCounterNames, true};

std::optional<std::uint32_t> Vocabulary::Find(std::string_view text) const {
    const auto found = std::find_if(names.begin(), names.end(), [&](const Name& name) { return name.text == text; });
    if (found != names.end()) return found->value;
    return numbersToo ? ParseNumber(text) : std::nullopt;
}

std::string Vocabulary::TextOf(std::uint32_t value) const {
    const auto found = std::find_if(names.begin(), names.end(), [&](const Name& name) { return name.value == value; });
    return found != names.end() ? std::string(found->text) : zo::Format("0x{:08X}", value);
}

std::optional<std::uint32_t> ParseNumber(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) text.remove_prefix(2);
    std::uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, hexadecimal ? 16 : 10);
    return error == std::errc() && stop == end && !text.empty() ? std::optional(value) : std::nullopt;
}

CLI::Validator Named(const Vocabulary& vocabulary) {
    return CLI::Validator(
        [&vocabulary](std::string& text) {
            if (const auto value = vocabulary.Find(text)) {
                text = zo::Format("{}", *value);
                return std::string();
            }
            return zo::Format("'{}' is not a {}; \"simctl names\" lists them", text, vocabulary.kind);
        },
        "");
}

}  // namespace simctl
