#pragma once

// One call of the signer as a command sees it: its paths, its key from a keystore or a key file, its messages gathered
// as findings and streamed with --jsonl, and the end of a call that failed.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "output.h"
#include "signer_messages.h"

namespace zoctl {

// A folder's or a file's place as the library wants it.
struct SealPaths {
    std::string root;
    std::string manifest;
    std::string keystore;
    std::string keyFile;  // a blob instead of the keystore
};

class SignerSession {
  public:
    SignerSession(Output& out, const SealPaths& paths);
    SignerSession(const SignerSession&) = delete;
    SignerSession& operator=(const SignerSession&) = delete;

    // Paths, key and log of ZoSignerSignOptions or ZoSignerVerifyOptions, which point into this object. The command ends
    // when the key file cannot be read.
    template <typename Options>
    [[nodiscard]] Ended Fill(Options& options) {
        if (const Ended ended = ReadKeyFile()) return ended;
        options.root = root_.c_str();
        options.manifest = manifest_.c_str();
        options.keystore = keystore_.c_str();
        options.keyBlob = blob_.data();
        options.keyBlobSize = static_cast<std::uint32_t>(blob_.size());
        options.logCallback = Log;
        options.logContext = this;
        return std::nullopt;
    }

    // Ends a call that failed with a status. verb: "sign" or "verify".
    int Fail(std::int32_t status, const std::string& verb) const;
    // Ends a signing that failed because a folder for the key or the manifest cannot be created.
    int Fail(const std::filesystem::filesystem_error& error) const;

    // "120 files, 2 findings", from any thread while the call runs.
    [[nodiscard]] std::string Counts() const;

    // Shows the findings as a table, if there are any.
    void ShowFindings() const;
    [[nodiscard]] std::size_t Count(std::string_view kind) const;
    // "findings", unless they have been streamed, and the library's "problem", as members after the facts.
    [[nodiscard]] Json AddedTo(Json facts) const;

  private:
    static void Log(void* session, std::uint32_t level, const wchar_t* message);
    void Take(std::uint32_t level, const std::string& text);
    [[nodiscard]] Ended ReadKeyFile();

    Output& out_;
    const SealPaths& paths_;
    std::wstring root_;
    std::wstring manifest_;
    std::wstring keystore_;
    std::vector<std::uint8_t> blob_;
    std::vector<SignerFinding> findings_;
    Records findingRecords_;
    std::string problem_;  // what the library's error messages said, for a command that failed
    std::atomic<std::uint64_t> fileCount_ = 0;
    std::atomic<std::uint64_t> findingCount_ = 0;
};

[[nodiscard]] Json HexJson(const std::uint8_t (&thumbprint)[32]);

}  // namespace zoctl
