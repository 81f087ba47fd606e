#pragma once

// One call of the signer as a command sees it: its messages gathered as findings, streamed with --jsonl, and its key
// taken from a keystore or a key file.

#include <cstdint>
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
    explicit SignerSession(Output& out) : out_(out) {}

    // For ZoSignerLogCallback; the context is the session.
    static void Log(void* session, std::uint32_t level, const wchar_t* message);

    // Shows the findings as a table, if there are any.
    void ShowFindings() const;
    [[nodiscard]] std::size_t Count(std::string_view kind) const;
    // {"findings": [...], "problem": "..."} without the findings where they have been streamed.
    [[nodiscard]] Json Facts() const;
    // What an error message of the library said, for a command that failed.
    [[nodiscard]] const std::string& Problem() const { return problem_; }

  private:
    Output& out_;
    std::vector<SignerFinding> findings_;
    std::string problem_;
};

[[nodiscard]] Json HexJson(const std::uint8_t (&thumbprint)[32]);

// True when the file was read; otherwise says so and sets the exit code.
[[nodiscard]] bool ReadKeyFile(Output& out, const std::string& path, std::vector<std::uint8_t>& blob, int& exitCode);

}  // namespace zoctl
