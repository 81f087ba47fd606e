// signer_bench [--files N] [--big MEGABYTES] [--rounds R]
//
// Signing and verifying against the bare platform calls, alternately in one run, at 1, 100 and N files and for one big
// file, with the platform's cryptography's share.
// The defaults take seconds; --files 10000 --big 1024 is the whole measurement.

// clang-format off
#include <windows.h>
#include <shellapi.h>
// clang-format on

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "bare_signer.h"
#include "zosigner.h"

namespace {

using namespace zobench;

struct Measured {
    double library = 1e9;
    double bare = 1e9;
    double crypto = 0;  // of the bare run that counts

    void Take(double librarySeconds, double bareSeconds, double cryptoSeconds) {
        library = std::min(library, librarySeconds);
        if (bareSeconds >= bare) return;
        bare = bareSeconds;
        crypto = cryptoSeconds;
    }
};

void Require(std::int32_t status) {
    if (status < 0) throw std::runtime_error("an export failed");
}

double TimeSign(const BenchTree& tree) {
    ZoSignerSignOptions options{};
    options.root = tree.root.c_str();
    options.manifest = tree.manifest.c_str();
    options.keystore = tree.keystore.c_str();
    const double begin = Seconds();
    Require(ZoSigner_SignDirectory(&options, nullptr));
    return Seconds() - begin;
}

double TimeVerify(const BenchTree& tree) {
    ZoSignerVerifyOptions options{};
    options.root = tree.root.c_str();
    options.manifest = tree.manifest.c_str();
    options.keystore = tree.keystore.c_str();
    const double begin = Seconds();
    Require(ZoSigner_VerifyDirectory(&options, nullptr));
    return Seconds() - begin;
}

std::size_t FileSize(const std::wstring& path) {
    return static_cast<std::size_t>(std::filesystem::file_size(path));
}

void Print(const char* what, const char* job, const Measured& measured) {
    std::printf("%-22s %-7s library %9.3f ms   bare %9.3f ms   ratio %5.3f   crypto %3.0f %%\n", what, job,
                measured.library * 1e3, measured.bare * 1e3, measured.library / measured.bare,
                measured.crypto / measured.bare * 100);
}

void Compare(const char* what, std::uint32_t files, std::uint64_t bytes, int rounds) {
    const BenchTree tree(files, bytes);
    Require(ZoSigner_GenerateKeyPair(tree.keystore.c_str()));
    TimeSign(tree);
    Measured sign;
    Measured verify;
    BareSignatures signatures;
    for (int round = 0; round < rounds; ++round) {
        const double library = TimeSign(tree);
        double crypto = 0;
        const double begin = Seconds();
        BareSign(tree, FileSize(tree.manifest), signatures, crypto);
        sign.Take(library, Seconds() - begin, crypto);
    }
    // Each goes first as often as the other: what runs second finds the caches as the first left them.
    for (int round = 0; round < rounds * 2; ++round) {
        const double early = round % 2 == 0 ? TimeVerify(tree) : 0;
        double crypto = 0;
        const double begin = Seconds();
        BareVerify(tree, signatures, crypto);
        const double bare = Seconds() - begin;
        verify.Take(round % 2 == 0 ? early : TimeVerify(tree), bare, crypto);
    }
    Print(what, "sign", sign);
    Print(what, "verify", verify);
    std::fflush(stdout);
}

int Run(int count, wchar_t** arguments) {
    std::uint32_t files = 1000;
    std::uint32_t big = 64;
    int rounds = 3;
    for (int i = 1; i + 1 < count; i += 2) {
        const std::wstring_view name = arguments[i];
        const auto value = static_cast<std::uint32_t>(std::wcstoul(arguments[i + 1], nullptr, 10));
        if (name == L"--files") files = value;
        if (name == L"--big") big = value;
        if (name == L"--rounds") rounds = static_cast<int>(value);
    }
    Compare("1 file of 4 KB", 1, 4096, rounds * 10);
    Compare("100 files of 4 KB", 100, 4096, rounds * 2);
    if (files != 0) Compare((std::to_string(files) + " files of 4 KB").c_str(), files, 4096, rounds);
    if (big != 0) Compare((std::to_string(big) + " MB in one file").c_str(), 1, std::uint64_t{big} << 20, rounds);
    return 0;
}

}  // namespace

int main() {
    int count = 0;
    wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    if (arguments == nullptr) return 1;
    try {
        return Run(count, arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
