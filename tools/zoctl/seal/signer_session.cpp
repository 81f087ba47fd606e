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
      keystore_(zo::WideFromUtf8(paths.keystore)) {}

bool SignerSession::ReadKeyFile(int& exitCode) {
    std::string bytes;
    const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(paths_.keyFile).c_str(), bytes);
    if (read && !bytes.empty()) {
        blob_.assign(bytes.begin(), bytes.end());
        return true;
    }
    exitCode = out_.Refuse(kExitKey,
                           zo::Format("The key file {} {}", Quote(paths_.keyFile),
                                      read ? "is empty." : "cannot be read: " + zo::ErrorText(read.error)),
                           kKeyAdvice);
    return false;
}

void SignerSession::Log(void* session, std::uint32_t level, const wchar_t* message) {
    static_cast<SignerSession*>(session)->Take(level, zo::Utf8FromWide(message));
}

void SignerSession::Take(std::uint32_t level, const std::string& text) {
    if (auto finding = FindingOf(level, text)) {
        if (out_.Lines()) out_.Line(FindingJson(*finding));
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
                           kKeyAdvice, Facts());
    }
    if (!problem_.empty()) out_.Hint(EscapeControls(problem_));
    return out_.Fail(status, Subject::kSigner, verb + " " + Quote(paths_.root), Facts());
}

int SignerSession::Fail(const std::filesystem::filesystem_error& error, const std::string& verb) const {
    const std::string folder = zo::Utf8FromWide(error.path1().wstring());
    return out_.Refuse(
        verb == "verify" ? kExitUnreadable : kExitFailed,
        zo::Format("Could not {} {}: the folder {} cannot be used: {}", verb, Quote(paths_.root), Quote(folder),
                   zo::ErrorText(static_cast<std::uint32_t>(error.code().value()))),
        "See to it that whoever runs zoctl may use the folder, and that nobody else holds it; then try again.",
        Facts());
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

Json SignerSession::Facts() const {
    Json facts = Json::object();
    if (!out_.Lines()) {
        facts["findings"] = Json::array();
        for (const SignerFinding& finding : findings_)
            facts["findings"].push_back(FindingJson(finding));
    }
    if (!problem_.empty()) facts["problem"] = problem_;
    return facts;
}

Json HexJson(const std::uint8_t (&thumbprint)[32]) {
    return zo::ToHex(thumbprint);
}

}  // namespace zoctl
