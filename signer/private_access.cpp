#include "private_access.h"

#include <array>
#include <cstddef>

#include "owned_handles.h"

namespace zosigner {

namespace {

struct alignas(SID) SidBuffer {
    std::array<std::byte, SECURITY_MAX_SID_SIZE> bytes{};

    [[nodiscard]] PSID Get() { return bytes.data(); }
    [[nodiscard]] bool FillWellKnown(WELL_KNOWN_SID_TYPE type) {
        DWORD size = SECURITY_MAX_SID_SIZE;
        return CreateWellKnownSid(type, nullptr, Get(), &size) != FALSE;
    }
};

// The user, not the owner of the file: a file that is replaced can belong to anybody.
bool FillUser(SidBuffer& sid) {
    zo::OwnedKernelObject token;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.Out()) &&  // the thread may act for another user
        !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Out())) {
        return false;
    }
    alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> answer{};
    DWORD size = 0;
    if (!GetTokenInformation(token.Get(), TokenUser, answer.data(), static_cast<DWORD>(answer.size()), &size)) {
        return false;
    }
    const auto* user = reinterpret_cast<const TOKEN_USER*>(answer.data());
    return CopySid(SECURITY_MAX_SID_SIZE, sid.Get(), user->User.Sid) != FALSE;
}

}  // namespace

void RestrictAccess(HANDLE file) {
    SidBuffer user;
    SidBuffer localSystem;
    SidBuffer administrators;
    if (!FillUser(user) || !localSystem.FillWellKnown(WinLocalSystemSid) ||
        !administrators.FillWellKnown(WinBuiltinAdministratorsSid)) {
        return;
    }

    constexpr std::size_t kAclSize = sizeof(ACL) + 3 * (sizeof(ACCESS_ALLOWED_ACE) + SECURITY_MAX_SID_SIZE);
    alignas(ACL) std::array<std::byte, kAclSize> storage{};
    auto* acl = reinterpret_cast<ACL*>(storage.data());
    if (!InitializeAcl(acl, static_cast<DWORD>(storage.size()), ACL_REVISION)) return;
    for (SidBuffer* sid : {&user, &localSystem, &administrators}) {
        if (!AddAccessAllowedAce(acl, ACL_REVISION, FILE_ALL_ACCESS, sid->Get())) return;
    }

    SECURITY_DESCRIPTOR descriptor{};
    if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE) ||
        !SetSecurityDescriptorControl(&descriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED)) {
        return;
    }
    // A file system without access lists refuses; the key is then as safe as the folder that its owner chose.
    static_cast<void>(
        SetKernelObjectSecurity(file, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, &descriptor));
}

}  // namespace zosigner
