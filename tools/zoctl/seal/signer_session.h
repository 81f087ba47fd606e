#pragma once

// One call of the signer as a command sees it: its paths, its key from a keystore or a key file, its messages gathered
// as findings and streamed with --jsonl, and the end of a call that failed.

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "key_source.h"
#include "output.h"
#include "signer_messages.h"

namespace zoctl {

struct SealPaths {
    std::string root;
    std::string manifest;
    std::string keystore;
    std::string keyFile;  // instead of the keystore
};

enum class SealVerb { kSign, kVerify };

class SignerSession {
  public:
    SignerSession(Output& out, const SealPaths& paths, SealVerb verb);
    ~SignerSession() = default;
    SignerSession(const SignerSession&) = delete;
    SignerSession& operator=(const SignerSession&) = delete;

    // Paths, key and log of ZoSignerSignOptions or ZoSignerVerifyOptions, which point into this object. The command
    // ends when a path is missing or the key cannot be read.
    template <typename Options>
    [[nodiscard]] Ended Fill(Options& options) {
        if (const Ended ended = CheckPaths()) return ended;
        if (const Ended ended = ReadKeyBytes()) return ended;
        options.root = root_.c_str();
        options.manifest = manifest_.c_str();
        options.keystore = keystore_.c_str();
        options.keyBlob = key_.data();
        options.keyBlobSize = static_cast<std::uint32_t>(key_.size());
        options.logCallback = Log;
        options.logContext = this;
        return std::nullopt;
    }

    // Ends a call that failed with a status.
    int Fail(std::int32_t status) const;

    // "120 files, 1 finding", from any thread while the call runs.
    [[nodiscard]] std::string Counts() const;

    // Shows the findings as a table, if there are any.
    void ShowFindings() const;
    [[nodiscard]] const std::vector<SignerFinding>& Findings() const { return findings_; }
    [[nodiscard]] std::size_t Count(std::string_view kind) const;
    // "findings", unless they have been streamed, and the library's "problem", as members after the facts.
    [[nodiscard]] Json AddedTo(Json facts) const;

  private:
    static void Log(void* session, std::uint32_t level, const wchar_t* message);
    void Take(std::uint32_t level, const std::string& text);
    [[nodiscard]] Ended CheckPaths() const;
    [[nodiscard]] Ended ReadKeyBytes();
    [[nodiscard]] int FailToSign(std::int32_t status) const;
    [[nodiscard]] int FailToVerify(std::int32_t status) const;
    // The Win32 error at the end of a message that begins like this; 0 for other messages.
    [[nodiscard]] std::uint32_t ErrorAfter(std::string_view beginning) const;

    Output& out_;
    const SealPaths& paths_;
    const SealVerb verb_;
    KeySource source_;  // of the key's bytes; no file when the library takes the key from the keystore
    std::wstring root_;
    std::wstring manifest_;
    std::wstring keystore_;
    KeyBytes key_;
    std::vector<SignerFinding> findings_;
    Records findingRecords_;
    std::string problem_;  // what the library's error messages said, for a command that failed
    std::atomic<std::uint64_t> fileCount_ = 0;
    std::atomic<std::uint64_t> findingCount_ = 0;
};

[[nodiscard]] Json HexJson(const std::uint8_t (&thumbprint)[32]);

}  // namespace zoctl
