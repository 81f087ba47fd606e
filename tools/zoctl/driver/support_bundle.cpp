#include "support_bundle.h"

#include <windows.h>

#include <filesystem>
#include <iterator>

#include "console.h"
#include "diagnostic_log.h"
#include "error_text.h"
#include "files.h"
#include "finding.h"
#include "format.h"
#include "long_path.h"
#include "owned_handles.h"
#include "private_text.h"
#include "text.h"
#include "zip_file.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

constexpr std::size_t kLogBytes = 4u << 20;  // of each day, the last

std::string Environment(const wchar_t* name) {
    std::wstring value(0x8000, L'\0');  // no variable is longer
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return zo::Utf8FromWide(value);
}

std::string ShortForm(const std::string& path) {
    wchar_t units[MAX_PATH] = {};
    const DWORD size = GetShortPathNameW(zo::WideFromUtf8(path).c_str(), units, MAX_PATH);
    return size > 0 && size < MAX_PATH ? zo::Utf8FromWide(units) : std::string();
}

PrivateNames NamesOfUser() {
    PrivateNames names;
    const std::string profile = Environment(L"USERPROFILE");
    names.profiles = {profile, ShortForm(profile)};
    wchar_t user[257] = {};
    DWORD units = static_cast<DWORD>(std::size(user));
    if (GetUserNameW(user, &units)) names.users.push_back(zo::Utf8FromWide(user));
    for (const std::string& path : names.profiles)
        names.users.push_back(zo::Utf8FromWide(std::filesystem::path(zo::WideFromUtf8(path)).filename().wstring()));
    std::erase_if(names.users, IsSystemAccount);
    return names;
}

// The files of the last days, which is how long the library keeps them. A log behind a link is not the library's.
void AddLogs(std::vector<ZipEntry>& entries, const PrivateNames& names) {
    const zop::ZopLogTrial today = zop::ZopTryLog();
    if (today.error == kErrorReparsePointEncountered) return;
    const std::filesystem::path folder = std::filesystem::path(today.path).parent_path();
    WIN32_FIND_DATAW found{};
    const zo::OwnedFind search(FindFirstFileW((folder / L"ZoProtector_*.log").c_str(), &found));
    for (bool more = static_cast<bool>(search); more; more = FindNextFileW(search.Get(), &found) != FALSE) {
        std::string text;
        const zo::FileReadResult read =
            zo::ReadWholeFile((folder / found.cFileName).c_str(), text, zo::Sharing::kReadWriteDelete);
        if (!read) text = "The file could not be read: " + zo::ErrorText(read.error);
        if (text.size() > kLogBytes) text.erase(0, text.find('\n', text.size() - kLogBytes) + 1);
        entries.push_back({"log/" + zo::Utf8FromWide(found.cFileName), WithoutNames(std::move(text), names)});
    }
}

void AddAnswers(std::vector<ZipEntry>& entries, const std::vector<BundleAnswer>& answers, const PrivateNames& names) {
    for (const BundleAnswer& answer : answers) {
        Json document = Json::parse(answer.document);
        RemoveNames(document, names);
        entries.push_back({answer.name + ".json", document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"});
    }
}

ZipTime Now() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

void ShowList(Output& out, const BundleOptions& options, const std::vector<ZipEntry>& entries) {
    TextTable table({"FILE", "BYTES"});
    for (const ZipEntry& entry : entries)
        table.Add({entry.name, zo::Format("{}", entry.bytes.size())});
    out.Text(zo::Format("{} gets these files:\n", Quote(options.file)));
    out.Table(table);
    out.Text(
        "Your user name and the path of your profile folder are replaced. Keys, dumps and the contents of protected\n"
        "files are not in it; the names of protected files and keys are.\n");
}

// Ends the command when the user does not want it.
Ended Ask(Output& out, const BundleOptions& options) {
    if (options.yes) return std::nullopt;
    static_cast<void>(Write(Stream::kError, "Type \"yes\" to write it: "));
    if (ReadLine() == "yes") return std::nullopt;
    return out.Refuse(kExitCancelled, "Nothing was written.", "Type \"yes\" to write the bundle.");
}

int RefuseExisting(Output& out, const std::string& file) {
    return out.Refuse(kExitExists, Quote(file) + " already exists.", "Name another file.");
}

// 0 or the Win32 error. A file that could not be written whole is removed.
DWORD WriteNewFile(const std::string& path, std::string_view bytes) {
    const std::wstring name = zo::LongForm(zo::WideFromUtf8(path).c_str());
    zo::OwnedFile file(
        CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return GetLastError();
    const DWORD error = zo::WriteWhole(file.Get(), bytes);
    file.Reset();
    if (error) DeleteFileW(name.c_str());  // half a bundle helps nobody
    return error;
}

}  // namespace

int WriteSupportBundle(Output& out, const BundleOptions& options,
                       const std::function<std::vector<BundleAnswer>()>& collect) {
    const std::wstring name = zo::LongForm(zo::WideFromUtf8(options.file).c_str());
    if (GetFileAttributesW(name.c_str()) != INVALID_FILE_ATTRIBUTES) return RefuseExisting(out, options.file);
    if (!options.yes && (out.Machine() || !InputIsTerminal())) {
        return out.Refuse(kExitUsage, "There is no terminal on which to ask whether the bundle may be written.",
                          "Add --yes to write it without being asked.");
    }
    const PrivateNames names = NamesOfUser();
    std::vector<ZipEntry> entries;
    AddAnswers(entries, collect(), names);
    AddLogs(entries, names);
    ShowList(out, options, entries);
    if (const Ended ended = Ask(out, options)) return *ended;
    const DWORD error = WriteNewFile(options.file, ZipOf(entries, Now()));
    if (error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS) return RefuseExisting(out, options.file);
    if (error) return out.Fail(ZOP_STATUS_FROM_WIN32(error), Subject::kAny, "write " + Quote(options.file));
    Json files = Json::array();
    for (const ZipEntry& entry : entries)
        files.push_back({{"name", entry.name}, {"size", entry.bytes.size()}});
    return out.Done("The bundle was written.", {{"bundle", options.file}, {"files", files}});
}

}  // namespace zoctl
