#include "signature_findings.h"

#include "format.h"

namespace zoctl {

namespace {

// Of the system's check of signatures.
constexpr std::uint32_t kSubjectFormUnknown = 0x800B0003;  // no kind of file that can hold a signature
constexpr std::uint32_t kNoSignature = 0x800B0100;
constexpr std::uint32_t kExpired = 0x800B0101;
constexpr std::uint32_t kUntrustedRoot = 0x800B0109;
constexpr std::uint32_t kNoChain = 0x800B010A;
constexpr std::uint32_t kRevoked = 0x800B010C;
constexpr std::uint32_t kExplicitDistrust = 0x800B0111;
constexpr std::uint32_t kBadDigest = 0x80096010;

constexpr const char* kSubject = "driver signature";

enum class Kind { kGood, kUnsigned, kForeign, kDistrusted, kChanged, kUnknown };

Kind KindOf(const DriverSignature& signature) {
    switch (signature.trust) {
        case 0:
            return signature.forDrivers ? Kind::kGood : Kind::kForeign;
        case kSubjectFormUnknown:
        case kNoSignature:
            return Kind::kUnsigned;
        case kExpired:
        case kUntrustedRoot:
        case kNoChain:
            return Kind::kForeign;
        case kRevoked:
        case kExplicitDistrust:
            return Kind::kDistrusted;
        case kBadDigest:
            return Kind::kChanged;
        default:
            return Kind::kUnknown;
    }
}

// Why a signature does not count, as the end of a sentence.
const char* Objection(std::uint32_t trust) {
    switch (trust) {
        case 0:
            return "not by Microsoft for drivers";
        case kExpired:
            return "with a certificate that has expired";
        default:
            return "with a certificate that this system does not trust";
    }
}

}  // namespace

LoadOutlook OutlookOf(const DriverSignature& signature) {
    switch (KindOf(signature)) {
        case Kind::kGood:
            return LoadOutlook::kLikely;
        case Kind::kForeign:
            return signature.testMode ? LoadOutlook::kLikely : LoadOutlook::kUnlikely;
        case Kind::kUnsigned:
        case Kind::kDistrusted:
        case Kind::kChanged:
            return LoadOutlook::kUnlikely;
        case Kind::kUnknown:
            break;
    }
    return LoadOutlook::kUnknown;
}

const char* OutlookName(LoadOutlook outlook) {
    constexpr const char* kNames[] = {"likely", "unlikely", "unknown"};
    return kNames[static_cast<int>(outlook)];
}

Finding JudgeSignature(const DriverSignature& signature) {
    const std::string signer = signature.signer.empty() ? "an unknown signer" : signature.signer;
    switch (KindOf(signature)) {
        case Kind::kGood:
            return Good(kSubject, "signed by " + signer);
        case Kind::kUnsigned:
            return Note(kSubject, "not signed; Windows is not likely to load the driver",
                        "Use the signed file; the simulator's drivers are never signed and run under Wine only.");
        case Kind::kForeign:
            return Note(
                kSubject,
                zo::Format("signed by {}, {}; Windows is {} to load the driver", signer, Objection(signature.trust),
                           signature.testMode ? "in test mode and likely" : "not likely"),
                "Use the file that Microsoft signed for drivers; other signatures are for test machines.");
        case Kind::kDistrusted:
            return Wrong(kSubject, zo::Format("signed by {}, with a certificate that was revoked", signer),
                         "Get a newer driver file from its maker.");
        case Kind::kChanged:
            return Wrong(kSubject, "the file was changed after it was signed",
                         "Get the driver file again and install it.");
        case Kind::kUnknown:
            break;
    }
    return Note(kSubject, zo::Format("cannot be checked, error 0x{:08X}", signature.trust),
                "Look at the signature in the file's properties.");
}

}  // namespace zoctl
