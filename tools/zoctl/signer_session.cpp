#include "signer_session.h"

#include <algorithm>

#include "error_text.h"
#include "files.h"
#include "format.h"
#include "hex.h"
#include "text.h"
#include "zosigner.h"

namespace zoctl {

namespace {

Json FindingJson(const SignerFinding& finding) {
    return {{"kind", finding.kind}, {"detail", finding.detail}, {"path", finding.path}};
}

}  // namespace

void SignerSession::Log(void* session, std::uint32_t level, const wchar_t* message) {
    SignerSession& self = *static_cast<SignerSession*>(session);
    const std::string text = zo::Utf8FromWide(message);
    if (auto finding = FindingOf(level, text)) {
        if (self.out_.Lines()) self.out_.Line(FindingJson(*finding));
        self.findings_.push_back(std::move(*finding));
    } else if (level == ZOSIG_LOG_ERROR) {
        self.problem_ += (self.problem_.empty() ? "" : "; ") + text;
    }
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

bool ReadKeyFile(Output& out, const std::string& path, std::vector<std::uint8_t>& blob, int& exitCode) {
    std::string bytes;
    const zo::FileReadResult read = zo::ReadWholeFile(zo::WideFromUtf8(path).c_str(), bytes);
    if (read && !bytes.empty()) {
        blob.assign(bytes.begin(), bytes.end());
        return true;
    }
    exitCode = out.Refuse(kExitKey,
                          zo::Format("The key file {} {}", Quote(path),
                                     read ? "is empty." : "cannot be read: " + zo::ErrorText(read.error)),
                          "Name a key file that \"zoctl keys generate\" made.");
    return false;
}

}  // namespace zoctl
