#include "installer_command.h"

#include <windows.h>

#include <sddl.h>

#include <memory>

#include "owned_handles.h"
#include "zoprotector_status.h"

namespace zoctl {

namespace {

// Only those who may install can open the mutex once it is made. Whoever makes it first can keep installers waiting,
// but no longer than --wait.
constexpr wchar_t kAdministratorsAndSystem[] = L"D:P(A;;GA;;;BA)(A;;GA;;;SY)";
constexpr unsigned kDefaultWait = 60;  // seconds

zo::OwnedKernelObject OpenInstallerMutex() {
    void* descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(kAdministratorsAndSystem, SDDL_REVISION_1, &descriptor,
                                                              nullptr)) {
        return {};
    }
    const zo::OwnedLocalMemory owner(descriptor);
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor, FALSE};
    return zo::OwnedKernelObject(CreateMutexW(&attributes, FALSE, kInstallerMutex));
}

// Holds the mutex from Take to the end of its life, for the thread that took it.
class InstallerTurn {
  public:
    InstallerTurn() = default;
    ~InstallerTurn() {
        if (taken_) ReleaseMutex(mutex_.Get());
    }
    InstallerTurn(const InstallerTurn&) = delete;
    InstallerTurn& operator=(const InstallerTurn&) = delete;

    // Waits while another process has the mutex; Ctrl-C ends the wait. Reports why the command cannot go on.
    [[nodiscard]] Ended Take(Output& out, unsigned seconds);

  private:
    zo::OwnedKernelObject mutex_;
    bool taken_ = false;
};

Ended InstallerTurn::Take(Output& out, unsigned seconds) {
    mutex_ = OpenInstallerMutex();
    if (!mutex_) return out.Fail(ZOP_STATUS_FROM_WIN32(GetLastError()), Subject::kAny, "keep other installers away");
    constexpr DWORD kSlice = 100;  // ms, between two looks at Ctrl-C
    constexpr DWORD kSlicesPerSecond = 10;
    const Cancellation cancellation;
    for (DWORD slice = 0;; ++slice) {
        const DWORD waited = WaitForSingleObject(mutex_.Get(), slice == 0 ? 0 : kSlice);
        // The owner of an abandoned mutex died half-way; all of these commands can be repeated.
        taken_ = waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
        if (taken_) return std::nullopt;
        if (waited != WAIT_TIMEOUT) {
            return out.Fail(ZOP_STATUS_FROM_WIN32(GetLastError()), Subject::kAny, "wait for another installer");
        }
        if (slice == seconds * kSlicesPerSecond) {
            return out.Refuse(kExitFailed, "Another process is installing, upgrading or uninstalling the driver.",
                              "Try again when it has finished, or give a longer --wait. Nothing was changed.");
        }
        if (slice == 0) out.Hint("Waiting for another process that installs, upgrades or uninstalls the driver.");
        if (cancellation.Requested()) {
            return out.Refuse(kExitCancelled, "Cancelled while waiting for another process to install the driver.",
                              "Nothing was changed; run it again when that process has finished.");
        }
    }
}

}  // namespace

CLI::App& AddInstallerCommand(Tool& tool, CLI::App& group, const CommandText& text, Action action) {
    const auto seconds = std::make_shared<unsigned>(kDefaultWait);
    CLI::App& command = tool.AddCommand(group, text, [seconds, action = std::move(action)](Output& out) {
        InstallerTurn turn;
        if (const Ended ended = turn.Take(out, *seconds)) return *ended;
        const Cancellation deferred = DeferFirstCtrlC(out);
        return action(out);
    });
    command
        .add_option("--wait", *seconds,
                    "Seconds to wait while another process installs, upgrades or uninstalls the driver")
        ->check(CLI::Range(0, 3600))
        ->capture_default_str();
    return command;
}

Cancellation DeferFirstCtrlC(Output& out) {
    return Cancellation([&out] { out.Hint("Finishing; press Ctrl-C again to abort half-way."); });
}

}  // namespace zoctl
