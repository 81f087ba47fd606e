#include "key_source.h"

#include <string_view>

#include "cng.h"
#include "console.h"
#include "error_text.h"
#include "files.h"
#include "format.h"
#include "hex.h"
#include "key_blob.h"
#include "owned_handles.h"
#include "seal_paths.h"
#include "text.h"

namespace zoctl {

namespace {

constexpr std::size_t kLargestInput = 0x10000;  // far more than a key

// Secrets often come as text, and not every shell can pass bytes on: hexadecimal digits are taken as well. A key itself
// begins with "RSA", which is not hexadecimal.
void DecodeText(KeyBytes& key) {
    std::string digits;
    for (const std::uint8_t byte : key) {
        if (byte != ' ' && byte != '\t' && byte != '\r' && byte != '\n') digits += static_cast<char>(byte);
    }
    if (std::vector<std::uint8_t> bytes; zo::DecodeHex(digits, bytes)) {
        key.assign(bytes.begin(), bytes.end());
        SecureZeroMemory(bytes.data(), bytes.size());
    }
    SecureZeroMemory(digits.data(), digits.size());
}

// Gives the Win32 error, 0 at the end of the input.
std::uint32_t ReadStandardInput(KeyBytes& key) {
    key.resize(kLargestInput);
    std::size_t size = 0;
    DWORD error = ERROR_SUCCESS;
    while (size < key.size()) {  // a read of no bytes would wait at a pipe
        DWORD read = 0;
        if (!ReadFile(GetStdHandle(STD_INPUT_HANDLE), key.data() + size, static_cast<DWORD>(key.size() - size), &read,
                      nullptr)) {
            error = GetLastError();
            break;
        }
        if (read == 0) break;
        size += read;
    }
    key.resize(size);
    DecodeText(key);
    return error == ERROR_BROKEN_PIPE ? ERROR_SUCCESS : error;  // the writer is done
}

std::uint32_t ReadKeyFile(const std::string& path, KeyBytes& key) {
    std::string bytes;
    const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(path).c_str(), bytes);
    key.assign(bytes.begin(), bytes.end());
    SecureZeroMemory(bytes.data(), bytes.size());
    return read.error;
}

}  // namespace

KeySource KeyOption(const std::string& file) {
    const char advice[] = "Name a key file that \"zoctl keys generate\" made; to sign, private.rsakey.";
    return {file, file == kStandardInput ? "Standard input" : "The key file " + Quote(file), advice};
}

KeySource PrivateKeyOf(const std::string& keystore) {
    const std::string file = PrivateKeyFile(keystore);
    return {file, "The key file " + Quote(file),
            StateOf(file).Absent()
                ? "Check the path of the keystore; \"zoctl keys generate\" makes a new key pair."
                : "Restore the file from a copy; \"zoctl keys generate --replace\" makes a new key pair instead."};
}

std::string PrivateKeyFile(const std::string& keystore) {
    return keystore + "\\private.rsakey";
}

std::string PublicKeyFile(const std::string& keystore) {
    return keystore + "\\public.rsakey";
}

bool ThumbprintOf(const KeyBytes& key, std::uint8_t (&thumbprint)[32]) {
    using zosigner::KeyBlobKind;
    const bool isPublic = zosigner::CheckKeyBlob(key, KeyBlobKind::kPublic) >= 0;
    if (!isPublic && zosigner::CheckKeyBlob(key, KeyBlobKind::kFullPrivate) < 0) return false;
    zo::OwnedAlgorithm provider;
    zo::OwnedCryptoKey handle;
    std::vector<std::uint8_t> blob;
    return BCryptOpenAlgorithmProvider(provider.Out(), BCRYPT_RSA_ALGORITHM, nullptr, 0) >= 0 &&
           BCryptImportKeyPair(provider.Get(), nullptr, isPublic ? BCRYPT_RSAPUBLIC_BLOB : BCRYPT_RSAFULLPRIVATE_BLOB,
                               handle.Out(), const_cast<PUCHAR>(key.data()), static_cast<ULONG>(key.size()), 0) >= 0 &&
           zo::ExportKey(handle.Get(), BCRYPT_RSAPUBLIC_BLOB, blob) >= 0 &&
           zo::HashOnce(BCRYPT_SHA256_ALGORITHM, blob, thumbprint) >= 0;
}

Ended ReadKey(Output& out, const KeySource& source, KeyBytes& key) {
    if (source.file == kStandardInput && InputIsTerminal()) {
        return out.Refuse(kExitUsage, "Standard input is a terminal, so no key can be read from it.",
                          "Redirect a key file to standard input, or name it with --key.");
    }
    const std::uint32_t error = source.file == kStandardInput ? ReadStandardInput(key) : ReadKeyFile(source.file, key);
    if (error == ERROR_SUCCESS && !key.empty()) return std::nullopt;
    const bool absent = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    const std::string reason = error == ERROR_SUCCESS ? "is empty."
                               : absent               ? "does not exist."
                                                      : "cannot be read: " + zo::ErrorText(error);
    return out.Refuse(kExitKey, zo::Format("{} {}", source.name, reason), source.advice);
}

}  // namespace zoctl
