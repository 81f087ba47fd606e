#include "private_access.h"

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

// The user, not the owner of the file: an older file can belong to anybody.
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

PrivateAccess::PrivateAccess() : complete_(Fill()) {}

bool PrivateAccess::Fill() {
    SidBuffer user;
    SidBuffer localSystem;
    SidBuffer administrators;
    if (!FillUser(user) || !localSystem.FillWellKnown(WinLocalSystemSid) ||
        !administrators.FillWellKnown(WinBuiltinAdministratorsSid)) {
        return false;
    }
    auto* acl = reinterpret_cast<ACL*>(acl_.data());
    if (!InitializeAcl(acl, static_cast<DWORD>(acl_.size()), ACL_REVISION)) return false;
    for (SidBuffer* sid : {&user, &localSystem, &administrators}) {
        if (!AddAccessAllowedAce(acl, ACL_REVISION, FILE_ALL_ACCESS, sid->Get())) return false;
    }
    return InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) &&
           SetSecurityDescriptorDacl(&descriptor_, TRUE, acl, FALSE) &&
           SetSecurityDescriptorControl(&descriptor_, SE_DACL_PROTECTED, SE_DACL_PROTECTED);
}

void PrivateAccess::Restrict(HANDLE file) {
    if (!complete_) return;
    static_cast<void>(
        SetKernelObjectSecurity(file, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, &descriptor_));
}

}  // namespace zosigner
