#ifndef ZOSIGNER_HPP
#define ZOSIGNER_HPP

/* ZoProtectorLib for C++20: the directory signer.
 *
 * Each function has the name of its C function without "ZoSigner_", and zosigner.h says what it does. docs/cpp.md has
 * the rules of the whole layer.
 *
 *     zosigner::SignDirectory({.root = folder, .manifest = manifest, .keystore = keys});
 *     zosigner::VerifyDirectory({.root = folder, .manifest = manifest, .keystore = keys},
 *                               [](zosigner::Level, std::wstring_view message) { Show(message); });
 *
 * Callbacks run on the calling thread. An exception that one raises ends at the caller of the function, once the call
 * is over; that callback is not run again in this call.
 */

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <system_error>

#include "zosigner.h"
#include "zostatus.hpp"

namespace zosigner {

using zostatus::ErrorTo;
using zostatus::Status;
using zostatus::Text;

enum class Level : std::uint32_t { kInfo = ZOSIG_LOG_INFO, kWarning = ZOSIG_LOG_WARNING, kError = ZOSIG_LOG_ERROR };

enum class SealMode : std::uint32_t { kAll = ZOSIG_SEAL_ALL, kNone = ZOSIG_SEAL_NONE };

using Thumbprint = std::array<std::uint8_t, 32>;

/* Gets each message; its text is valid during the call only. */
using OnMessage = zostatus::FunctionRef<void(Level level, std::wstring_view message)>;

/* Decides about one folder, "." for the root and "a/b" below it. */
struct SealAnswer {
    bool seal = true;
    bool applyToRest = false; /* the same for every folder that follows */
};
using OnFolder = zostatus::FunctionRef<SealAnswer(std::wstring_view relativePath)>;

/* Give a key store, or the bytes of a private key in keyBlob. */
struct SignOptions {
    Text root;
    Text manifest;
    Text keystore = {};
    std::span<const std::uint8_t> keyBlob = {};
    SealMode seal = SealMode::kAll; /* not asked for when a function decides */
};

/* Give a key store, or the bytes of a public or private key in keyBlob. */
struct VerifyOptions {
    Text root;
    Text manifest;
    Text keystore = {};
    std::span<const std::uint8_t> keyBlob = {};
};

/* What VerifyDirectory throws. counts is zero unless code() is Status::kVerifyFailed. */
class VerifyError : public std::system_error {
  public:
    VerifyError(std::error_code error, const char* function, const ZoSignerVerifyResult& found)
        : std::system_error(error, function), counts(found) {}

    ZoSignerVerifyResult counts;
};

namespace detail {

/* What the library hands back to the two callbacks. */
class Callbacks {
  public:
    Callbacks(OnMessage message, OnFolder folder) : message_(message), folder_(folder) {}

    template <typename Options>
    void Into(Options& options) {
        if (!message_) return;
        options.logContext = this;
        options.logCallback = [](void* self, std::uint32_t level, const wchar_t* message) {
            auto& callbacks = *static_cast<Callbacks*>(self);
            callbacks.carrier_.Guard(0, [&] {
                callbacks.message_(static_cast<Level>(level), message);
                return 0;
            });
        };
    }
    void AskInto(ZoSignerSignOptions& options) {
        if (!folder_) return;
        options.sealMode = ZOSIG_SEAL_ASK;
        options.sealContext = this;
        options.sealCallback = [](void* self, const wchar_t* path, std::int32_t* seal, std::int32_t* rest) {
            auto& callbacks = *static_cast<Callbacks*>(self);
            return callbacks.carrier_.Guard(ZOP_E_FAILED, [&]() -> std::int32_t {
                const SealAnswer answer = callbacks.folder_(path);
                *seal = answer.seal;
                *rest = answer.applyToRest;
                return 0;
            });
        };
    }
    void Rethrow() { carrier_.Rethrow(); }

  private:
    OnMessage message_;
    OnFolder folder_;
    zostatus::Carrier carrier_;
};

template <typename COptions, typename Options>
[[nodiscard]] COptions Convert(const Options& options) noexcept {
    COptions converted{};
    converted.root = options.root.Get();
    converted.manifest = options.manifest.Get();
    converted.keystore = options.keystore.Get();
    converted.keyBlob = options.keyBlob.data();
    converted.keyBlobSize = static_cast<std::uint32_t>(options.keyBlob.size());
    return converted;
}

inline ZoSignerVerifyResult Verify(ZoSigner_VerifyDirectoryFn verify, const char* what, const VerifyOptions& options,
                                   OnMessage message, ErrorTo error) {
    Callbacks callbacks(message, {});
    auto converted = Convert<ZoSignerVerifyOptions>(options);
    callbacks.Into(converted);
    ZoSignerVerifyResult result{};
    const std::int32_t status = verify(&converted, &result);
    callbacks.Rethrow();
    if (status < 0 && error.Throws()) throw VerifyError(zostatus::CodeOf(status), what, result);
    error.Take(status, what);
    return result;
}

}  // namespace detail

inline void GenerateKeyPair(Text keystore, ErrorTo error = {}) {
    error.Take(ZoSigner_GenerateKeyPair(keystore.Get()), "ZoSigner_GenerateKeyPair");
}

[[nodiscard]] inline Thumbprint GetPublicKeyThumbprint(Text keystore, ErrorTo error = {}) {
    Thumbprint thumbprint{};
    error.Take(ZoSigner_GetPublicKeyThumbprint(keystore.Get(), thumbprint.data()), "ZoSigner_GetPublicKeyThumbprint");
    return thumbprint;
}

/* With decide given, each folder is asked about and options.seal does not count. */
inline ZoSignerSignResult SignDirectory(const SignOptions& options, OnMessage message = {}, OnFolder decide = {},
                                        ErrorTo error = {}) {
    detail::Callbacks callbacks(message, decide);
    auto converted = detail::Convert<ZoSignerSignOptions>(options);
    converted.sealMode = static_cast<std::uint32_t>(options.seal);
    callbacks.Into(converted);
    callbacks.AskInto(converted);
    ZoSignerSignResult result{};
    const std::int32_t status = ZoSigner_SignDirectory(&converted, &result);
    callbacks.Rethrow();
    error.Take(status, "ZoSigner_SignDirectory");
    return result;
}

/* Returns when the folder is as it was sealed. Anything else is a VerifyError, so that a change cannot be overlooked;
 * with a std::error_code the counts are returned beside it. */
inline ZoSignerVerifyResult VerifyDirectory(const VerifyOptions& options, OnMessage message = {}, ErrorTo error = {}) {
    return detail::Verify(&ZoSigner_VerifyDirectory, "ZoSigner_VerifyDirectory", options, message, error);
}

/* The same with the key that the library was built with; keystore and keyBlob do not count. */
inline ZoSignerVerifyResult VerifyDirectoryWithEmbeddedKey(const VerifyOptions& options, OnMessage message = {},
                                                           ErrorTo error = {}) {
    return detail::Verify(&ZoSigner_VerifyDirectoryWithEmbeddedKey, "ZoSigner_VerifyDirectoryWithEmbeddedKey", options,
                          message, error);
}

}  // namespace zosigner

#endif
