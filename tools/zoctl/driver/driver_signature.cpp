#include "driver_signature.h"

// clang-format off
#include <windows.h>
#include <wintrust.h>
#include <softpub.h>
#include <mscat.h>
// clang-format on

#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "hex.h"
#include "owned_handles.h"
#include "system_call.h"
#include "text.h"

namespace zoctl {

namespace {

// What Microsoft's certificates for drivers are for: drivers that passed the tests, and drivers whose maker attested
// them.
constexpr std::string_view kDriverPurposes[] = {"1.3.6.1.4.1.311.10.3.5", "1.3.6.1.4.1.311.10.3.5.1"};

bool IsForDrivers(PCCERT_CONTEXT certificate) {
    DWORD size = 0;
    if (!CertGetEnhancedKeyUsage(certificate, 0, nullptr, &size)) return false;
    std::vector<std::byte> block(size);
    auto* const usage = reinterpret_cast<CERT_ENHKEY_USAGE*>(block.data());
    if (!CertGetEnhancedKeyUsage(certificate, 0, usage, &size)) return false;
    for (DWORD i = 0; i < usage->cUsageIdentifier; ++i) {
        for (const std::string_view purpose : kDriverPurposes) {
            if (purpose == usage->rgpszUsageIdentifier[i]) return true;
        }
    }
    return false;
}

std::string NameOf(PCCERT_CONTEXT certificate) {
    std::array<wchar_t, 256> name{};
    CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name.data(),
                       static_cast<DWORD>(name.size()));
    return zo::Utf8FromWide(name.data());
}

// One check by the system; the signer is read while its state lives.
DriverSignature Check(WINTRUST_DATA& data) {
    data.cbStruct = sizeof(data);
    data.dwUIChoice = WTD_UI_NONE;
    data.fdwRevocationChecks = WTD_REVOKE_NONE;
    data.dwProvFlags = WTD_CACHE_ONLY_URL_RETRIEVAL;
    data.dwStateAction = WTD_STATEACTION_VERIFY;
    GUID policy = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    const HWND noWindow = static_cast<HWND>(INVALID_HANDLE_VALUE);
    DriverSignature signature;
    signature.trust = static_cast<std::uint32_t>(WinVerifyTrust(noWindow, &policy, &data));
    CRYPT_PROVIDER_DATA* const provider =
        data.hWVTStateData ? WTHelperProvDataFromStateData(data.hWVTStateData) : nullptr;
    CRYPT_PROVIDER_SGNR* const signer = provider ? WTHelperGetProvSignerFromChain(provider, 0, FALSE, 0) : nullptr;
    if (signer && signer->csCertChain > 0 && signer->pasCertChain[0].pCert) {
        signature.signer = NameOf(signer->pasCertChain[0].pCert);
        signature.forDrivers = IsForDrivers(signer->pasCertChain[0].pCert);
    }
    data.dwStateAction = WTD_STATEACTION_CLOSE;
    WinVerifyTrust(noWindow, &policy, &data);  // frees the state, and has nothing to report
    return signature;
}

DriverSignature CheckFile(const std::wstring& path) {
    WINTRUST_FILE_INFO file{};
    file.cbStruct = sizeof(file);
    file.pcwszFilePath = path.c_str();
    WINTRUST_DATA data{};
    data.dwUnionChoice = WTD_CHOICE_FILE;
    data.pFile = &file;
    return Check(data);
}

// The system's catalogues: a driver package is signed there and not in the driver's file.
class Catalogues {
  public:
    explicit Catalogues(const wchar_t* hashAlgorithm) {
        const auto acquire =
            SystemCall<decltype(&CryptCATAdminAcquireContext2)>(kLibrary, "CryptCATAdminAcquireContext2");
        if (!acquire || !acquire(&admin_, nullptr, hashAlgorithm, nullptr, 0)) admin_ = nullptr;
    }
    ~Catalogues() {
        if (catalogue_) CryptCATAdminReleaseCatalogContext(admin_, catalogue_, 0);
        if (admin_) CryptCATAdminReleaseContext(admin_, 0);
    }
    Catalogues(const Catalogues&) = delete;
    Catalogues& operator=(const Catalogues&) = delete;

    // The path of a catalogue that lists the file, empty when there is none.
    [[nodiscard]] std::wstring Find(HANDLE file, std::vector<BYTE>& hash) {
        const auto calculate = SystemCall<decltype(&CryptCATAdminCalcHashFromFileHandle2)>(
            kLibrary, "CryptCATAdminCalcHashFromFileHandle2");
        if (!admin_ || !calculate) return {};
        DWORD size = 0;
        calculate(admin_, file, &size, nullptr, 0);
        hash.resize(size);
        if (size == 0 || !calculate(admin_, file, &size, hash.data(), 0)) return {};
        catalogue_ = CryptCATAdminEnumCatalogFromHash(admin_, hash.data(), size, 0, nullptr);
        CATALOG_INFO info{};
        info.cbStruct = sizeof(info);
        return catalogue_ && CryptCATCatalogInfoFromContext(catalogue_, &info, 0) ? info.wszCatalogFile
                                                                                  : std::wstring();
    }
    [[nodiscard]] HCATADMIN Admin() const { return admin_; }

  private:
    static constexpr wchar_t kLibrary[] = L"wintrust.dll";
    HCATADMIN admin_ = nullptr;
    HCATINFO catalogue_ = nullptr;
};

// Nothing when no catalogue lists the file.
std::optional<DriverSignature> CheckByCatalogue(const std::wstring& path, const wchar_t* hashAlgorithm) {
    const zo::OwnedFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return std::nullopt;
    Catalogues catalogues(hashAlgorithm);
    std::vector<BYTE> hash;
    const std::wstring catalogue = catalogues.Find(file.Get(), hash);
    if (catalogue.empty()) return std::nullopt;
    const std::wstring tag = zo::WideFromUtf8(zo::ToHex(hash, zo::HexCase::kUpper));  // members are named by their hash
    WINTRUST_CATALOG_INFO member{};
    member.cbStruct = sizeof(member);
    member.pcwszCatalogFilePath = catalogue.c_str();
    member.pcwszMemberFilePath = path.c_str();
    member.pcwszMemberTag = tag.c_str();
    member.hMemberFile = file.Get();
    member.pbCalculatedFileHash = hash.data();
    member.cbCalculatedFileHash = static_cast<DWORD>(hash.size());
    member.hCatAdmin = catalogues.Admin();
    WINTRUST_DATA data{};
    data.dwUnionChoice = WTD_CHOICE_CATALOG;
    data.pCatalog = &member;
    return Check(data);
}

bool IsTestMode() {
    struct CodeIntegrity {
        ULONG length;
        ULONG options;
    } integrity{sizeof(integrity), 0};
    using Query = LONG(NTAPI*)(ULONG, void*, ULONG, ULONG*);
    constexpr ULONG kCodeIntegrity = 103;
    constexpr ULONG kTestSigning = 2;
    const auto query = SystemCall<Query>(L"ntdll.dll", "NtQuerySystemInformation");
    return query && query(kCodeIntegrity, &integrity, sizeof(integrity), nullptr) >= 0 &&
           (integrity.options & kTestSigning);
}

}  // namespace

DriverSignature ReadDriverSignature(const std::wstring& path) {
    DriverSignature signature = CheckFile(path);
    for (const wchar_t* algorithm : {BCRYPT_SHA256_ALGORITHM, BCRYPT_SHA1_ALGORITHM}) {
        if (signature.trust == 0 || !signature.signer.empty()) break;
        if (const auto byCatalogue = CheckByCatalogue(path, algorithm)) signature = *byCatalogue;
    }
    signature.testMode = IsTestMode();
    return signature;
}

}  // namespace zoctl
