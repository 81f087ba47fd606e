// trust_certificate add|remove|check FILE: adds a certificate to the trusted roots, removes it again, or says whether
// it is there. From a program's next connection on, the crash server's own certificate is then good for it. On Windows
// these are the machine's roots; in a Wine prefix, those of its user.

// clang-format off
#include <windows.h>
#include <wincrypt.h>
// clang-format on

#include <cstdio>
#include <string>
#include <string_view>

#include "error_text.h"
#include "files.h"
#include "owned_handles.h"

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kNotThere = 7;

struct StoreKind {
    using Handle = HCERTSTORE;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { CertCloseStore(handle, 0); }
};

struct CertificateKind {
    using Handle = PCCERT_CONTEXT;
    static Handle None() noexcept { return nullptr; }
    static void Close(Handle handle) noexcept { CertFreeCertificateContext(handle); }
};

using OwnedStore = zo::Owned<StoreKind>;
using OwnedCertificate = zo::Owned<CertificateKind>;

int Fail(const char* what, DWORD error) {
    std::fprintf(stderr, "trust_certificate: %s: %s\n", what, zo::ErrorText(error).c_str());
    return kFailed;
}

int Change(std::wstring_view verb, HCERTSTORE store, PCCERT_CONTEXT certificate) {
    if (verb == L"add") {
        if (!CertAddCertificateContextToStore(store, certificate, CERT_STORE_ADD_REPLACE_EXISTING, nullptr))
            return Fail("cannot add the certificate", GetLastError());
        return kDone;
    }
    OwnedCertificate found(
        CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, certificate, nullptr));
    if (!found) return kNotThere;
    // Deleting releases the certificate whether it succeeds or not.
    if (verb == L"remove" && !CertDeleteCertificateFromStore(found.Release()))
        return Fail("cannot remove the certificate", GetLastError());
    return kDone;
}

// A program that starts under Wine 10 puts the machine's roots back to those of the host; the user's stay. Windows asks
// the user before it adds one of the user's, while the machine's only need an administrator.
DWORD RootsLocation() {
    const bool isWine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    return isWine ? CERT_SYSTEM_STORE_CURRENT_USER : CERT_SYSTEM_STORE_LOCAL_MACHINE;
}

int Run(std::wstring_view verb, const wchar_t* path) {
    std::string bytes;
    if (const zo::FileReadResult read = zo::ReadWholeFile(path, bytes); !read)
        return Fail("cannot read the file", read.error);
    const OwnedCertificate certificate(CertCreateCertificateContext(
        X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size())));
    if (!certificate) return Fail("the file holds no certificate in DER form", GetLastError());
    // The store itself, not the collection around it: Wine removes nothing from a store through its collection.
    const OwnedStore store(CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, RootsLocation(), L"Root"));
    if (!store) return Fail("cannot open the store of trusted roots", GetLastError());
    return Change(verb, store.Get(), certificate.Get());
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
    const std::wstring_view verb = count == 3 ? arguments[1] : L"";
    if (verb != L"add" && verb != L"remove" && verb != L"check") {
        std::fputs("usage: trust_certificate add|remove|check FILE.der\n", stderr);
        return kUsage;
    }
    return Run(verb, arguments[2]);
}
