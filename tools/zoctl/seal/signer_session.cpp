#include "signer_session.h"

#include <algorithm>

#include "error_text.h"
#include "files.h"
#include "format.h"
#include "hex.h"
#include "message_beginnings.h"
#include "text.h"
#include "zosigner.h"

namespace zoctl {

namespace {

constexpr char kKeyAdvice[] = "Name a key file that \"zoctl keys generate\" made; private.rsakey to sign.";

Json FindingJson(const SignerFinding& finding) {
    return {{"kind", finding.kind}, {"detail", finding.detail}, {"path", finding.path}};
}

}  // namespace

SignerSession::SignerSession(Output& out, const SealPaths& paths)
    : out_(out),
      paths_(paths),
      root_(zo::WideFromUtf8(paths.root)),
      manifest_(zo::WideFromUtf8(paths.manifest)),
      keystore_(zo::WideFromUtf8(paths.keystore)),
      findingRecords_(out, "findings") {}

Ended SignerSession::ReadKeyFile() {
    if (paths_.keyFile.empty()) return std::nullopt;
    std::string bytes;
    const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(paths_.keyFile).c_str(), bytes);
    if (read && !bytes.empty()) {
        blob_.assign(bytes.begin(), bytes.end());
        return std::nullopt;
    }
    return out_.Refuse(kExitKey,
                       zo::Format("The key file {} {}", Quote(paths_.keyFile),
                                  read ? "is empty." : "cannot be read: " + zo::ErrorText(read.error)),
                       kKeyAdvice);
}

void SignerSession::Log(void* session, std::uint32_t level, const wchar_t* message) {
    static_cast<SignerSession*>(session)->Take(level, zo::Utf8FromWide(message));
}

void SignerSession::Take(std::uint32_t level, const std::string& text) {
    if (auto finding = FindingOf(level, text)) {
        findingRecords_.Add(FindingJson(*finding));
        findings_.push_back(std::move(*finding));
        ++findingCount_;
    } else if (level == ZOSIG_LOG_ERROR) {
        problem_ += (problem_.empty() ? "" : "; ") + text;
    } else if (const std::uint64_t files = FilesFound(text); files != 0) {
        fileCount_ = files;
    }
}

std::string SignerSession::Counts() const {
    std::string counts;
    if (const std::uint64_t files = fileCount_; files != 0) counts = zo::Format("{} files", files);
    if (const std::uint64_t findings = findingCount_; findings != 0) {
        counts += zo::Format("{}{} findings", counts.empty() ? "" : ", ", findings);
    }
    return counts;
}

int SignerSession::Fail(std::int32_t status, const std::string& verb) const {
    // A key of the wrong kind, a cut one and any other file fail with a status of the platform's cryptography each.
    if (!paths_.keyFile.empty() && problem_.starts_with(zosigner::kKeyImportFailed)) {
        return out_.Refuse(kExitKey,
                           zo::Format("The file {} holds no {}key: {}.", Quote(paths_.keyFile),
                                      verb == "sign" ? "private " : "", problem_),
                           kKeyAdvice, AddedTo(Json::object()));
    }
    if (!problem_.empty()) out_.Hint(EscapeControls(problem_));
    return out_.Fail(status, Subject::kSigner, verb + " " + Quote(paths_.root), AddedTo(Json::object()));
}

int SignerSession::Fail(const std::filesystem::filesystem_error& error) const {
    const std::string folder = zo::Utf8FromWide(error.path1().wstring());
    return out_.Refuse(kExitFailed,
                       zo::Format("Could not sign {}: the folder {} cannot be created: {}", Quote(paths_.root),
                                  Quote(folder), zo::ErrorText(static_cast<std::uint32_t>(error.code().value()))),
                       "Check that you have access to the folder and that no other program uses it, then try again.",
                       AddedTo(Json::object()));
}

void SignerSession::ShowFindings() const {
    if (findings_.empty()) return;
    TextTable table({"finding", "what", "path"});
    for (const SignerFinding& finding : findings_)
        table.Add({finding.kind, finding.detail, finding.path});
    out_.Table(table);
}

std::size_t SignerSession::Count(std::string_view kind) const {
    return static_cast<std::size_t>(std::count_if(
        findings_.begin(), findings_.end(), [kind](const SignerFinding& finding) { return finding.kind == kind; }));
}

Json SignerSession::AddedTo(Json facts) const {
    findingRecords_.PutInto(facts);
    if (!problem_.empty()) facts["problem"] = problem_;
    return facts;
}

Json HexJson(const std::uint8_t (&thumbprint)[32]) {
    return zo::ToHex(thumbprint);
}

}  // namespace zoctl
