#pragma once

// The access list of a file that holds a private key: the calling user, the local system and the administrators,
// nothing inherited.

#include <windows.h>

#include <array>
#include <cstddef>

namespace zosigner {

class PrivateAccess {
  public:
    PrivateAccess();
    ~PrivateAccess() = default;
    PrivateAccess(const PrivateAccess&) = delete;  // it points into itself
    PrivateAccess& operator=(const PrivateAccess&) = delete;

    // For a file that is created; null, for the folder's own list, when the accounts cannot be determined.
    [[nodiscard]] SECURITY_ATTRIBUTES* ForNewFile() { return complete_ ? &attributes_ : nullptr; }
    // Replaces the list of a file that is open with WRITE_DAC. A file system without access lists refuses; the key is
    // then as safe as the folder that its owner chose, so no failure is reported.
    void Restrict(HANDLE file);

  private:
    [[nodiscard]] bool Fill();

    static constexpr std::size_t kAclSize = sizeof(ACL) + 3 * (sizeof(ACCESS_ALLOWED_ACE) + SECURITY_MAX_SID_SIZE);

    alignas(ACL) std::array<std::byte, kAclSize> acl_{};
    SECURITY_DESCRIPTOR descriptor_{};
    SECURITY_ATTRIBUTES attributes_{sizeof(SECURITY_ATTRIBUTES), &descriptor_, FALSE};
    bool complete_;
};

}  // namespace zosigner
