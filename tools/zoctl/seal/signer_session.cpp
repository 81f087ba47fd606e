#include "signer_session.h"

#include <windows.h>

#include <algorithm>
#include <charconv>

#include "error_text.h"
#include "errors.h"
#include "format.h"
#include "hex.h"
#include "message_beginnings.h"
#include "seal_paths.h"
#include "text.h"
#include "zosigner.h"

namespace zoctl {

namespace {

Json FindingJson(const SignerFinding& finding) {
    return {{"kind", finding.kind}, {"detail", finding.detail}, {"path", finding.path}};
}

KeySource SourceOf(const SealPaths& paths, SealVerb verb) {
    if (!paths.keyFile.empty()) return KeyOption(paths.keyFile);
    if (verb == SealVerb::kSign && !paths.keystore.empty()) return PrivateKeyOf(paths.keystore);
    return {};
}

}  // namespace

SignerSession::SignerSession(Output& out, const SealPaths& paths, SealVerb verb)
    : out_(out),
      paths_(paths),
      verb_(verb),
      source_(SourceOf(paths, verb)),
      root_(zo::WideFromUtf8(paths.root)),
      manifest_(zo::WideFromUtf8(paths.manifest)),
      keystore_(zo::WideFromUtf8(paths.keystore)),
      findingRecords_(out, "findings") {}

Ended SignerSession::CheckPaths() const {
    if (const Ended ended = CheckFolder(out_, paths_.root)) return ended;
    return CheckManifestName(out_, paths_.manifest);
}

Ended SignerSession::ReadKeyBytes() {
    return source_.file.empty() ? std::nullopt : ReadKey(out_, source_, key_);
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
    if (const std::uint64_t files = fileCount_; files != 0) counts = Counted(files, "file");
    if (const std::uint64_t findings = findingCount_; findings != 0) {
        counts += (counts.empty() ? "" : ", ") + Counted(findings, "finding");
    }
    return counts;
}

int SignerSession::Fail(std::int32_t status) const {
    // A key of the wrong kind, a cut one and any other file fail with a status of the platform's cryptography each.
    if (problem_.starts_with(zosigner::kKeyImportFailed)) {
        return out_.Refuse(
            kExitKey,
            zo::Format("{} does not hold a {} key.", source_.name, verb_ == SealVerb::kSign ? "private" : "public"),
            source_.advice, AddedTo(Json::object()));
    }
    return verb_ == SealVerb::kSign ? FailToSign(status) : FailToVerify(status);
}

std::uint32_t SignerSession::ErrorAfter(std::string_view beginning) const {
    std::uint32_t error = 0;
    if (!problem_.starts_with(beginning)) return error;
    std::from_chars(problem_.data() + beginning.size(), problem_.data() + problem_.size(), error);
    return error;
}

int SignerSession::FailToSign(std::int32_t status) const {
    const Json facts = AddedTo(Json::object());
    for (const std::string_view beginning : {zosigner::kManifestNotCreated, zosigner::kManifestNotWritten}) {
        if (const std::uint32_t error = ErrorAfter(beginning)) {
            return RefuseUnwritable(out_, paths_.manifest, error, facts);
        }
    }
    if (problem_.starts_with(zosigner::kRootNotListed)) {
        const std::string denied = zo::ErrorText(ERROR_ACCESS_DENIED);
        const std::size_t text = problem_.rfind(zosigner::kBeforeErrorText) + zosigner::kBeforeErrorText.size();
        return out_.Refuse(
            problem_.ends_with(denied) ? kExitAccess : kExitFailed,
            zo::Format("The folder {} cannot be listed: {}", Quote(paths_.root), EscapeControls(problem_.substr(text))),
            "Check that you have access to the folder and that no other program uses it.", facts);
    }
    return out_.Fail(status, Subject::kSigner, "sign " + Quote(paths_.root), facts);
}

int SignerSession::FailToVerify(std::int32_t status) const {
    const Json facts = AddedTo(Json::object());
    // But for a wrong argument, the library returns no other Win32 error before it has begun to check the folder.
    if (status != zo::kInvalidArgument && (zo::Bits(status) & 0xFFFF0000u) == 0x80070000u) {
        return RefuseUnreadable(out_, paths_.manifest, zo::Bits(status) & 0xFFFFu, facts);
    }
    if (status == ZOSIG_E_BAD_MANIFEST) {
        return out_.Refuse(
            kExitTampered, zo::Format("{} is not a manifest: {}.", Quote(paths_.manifest), EscapeControls(problem_)),
            "Name the file that \"zoctl sign\" wrote; if you did, get it again from where it was signed.", facts);
    }
    if (status == ZOSIG_E_NO_KEY) {
        return out_.Refuse(kExitKey, zo::Format("No key could be loaded from the keystore {}.", Quote(paths_.keystore)),
                           "Check the path of the keystore, and that its public.rsakey is unchanged.", facts);
    }
    return out_.Fail(status, Subject::kSigner, "verify " + Quote(paths_.root), facts);
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
