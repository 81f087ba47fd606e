#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <vector>

#include "cng.h"
#include "error_text.h"
#include "errors.h"
#include "files.h"
#include "format.h"
#include "hex.h"
#include "import_hook.h"
#include "long_path.h"
#include "owned_handles.h"
#include "text.h"

namespace zo {
namespace {

TEST(Text, InvalidUnitsBecomeReplacementCharacters) {
    EXPECT_EQ(Utf8FromWide({L"\xD800", 1}), "\xEF\xBF\xBD");
    EXPECT_EQ(WideFromUtf8("\xFF"), L"\uFFFD");
    EXPECT_EQ(AnsiFromWide(L"caf\u00E9 \u4E2D"), "caf\xE9 ?");
}

// The platform ends its texts with a line end.
TEST(ErrorText, IsTheWholeTextOfTheSystemWithoutItsLineEnd) {
    for (const DWORD error : {DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_INSUFFICIENT_BUFFER}}) {
        wchar_t text[512] = {};
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text, 512,
                       nullptr);
        EXPECT_EQ(WideFromUtf8(ErrorText(error)) + L"\r\n", text);
    }
}

TEST(ErrorText, IsTheNumberWhenTheSystemHasNone) {
    EXPECT_EQ(ErrorText(0x0FFFFFFF), "error 268435455");
}

TEST(Hresult, OfWin32Errors) {
    const struct {
        std::uint32_t error, hresult;
    } rows[] = {{0, 0}, {1, 0x80070001}, {0x12345, 0x80072345}, {0x80090005, 0x80090005}};
    for (const auto& row : rows)
        EXPECT_EQ(Bits(HresultFromWin32(row.error)), row.hresult);
}

TEST(Hasher, ServesManyMessages) {
    Hasher hasher(BCRYPT_SHA256_ALGORITHM);
    Sha256Digest digest{};
    EXPECT_GE(hasher.Update("started, discarded", 18), 0);
    hasher.Discard();
    for (int round = 0; round < 2; ++round) {
        EXPECT_GE(hasher.Update("a", 1) | hasher.Update("bc", 2) | hasher.Finish(digest), 0);
        EXPECT_EQ(ToHex(digest), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    }
}

TEST(Hasher, JoinsThePiecesOfALongMessage) {
    Sha256Digest digest{};
    std::vector<std::uint8_t> longer(0x100000, 'a');
    longer.push_back('b');
    EXPECT_GE(HashOnce(BCRYPT_SHA256_ALGORITHM, longer, digest), 0);
    EXPECT_EQ(ToHex(digest), "371264331be3a89bb42c4fea3770469e9094f6ce8c8244b9ac2beb9ffd80e621");
}

TEST(LongPath, OfAShareHasAPrefixOfItsOwn) {
    EXPECT_EQ(WithLongPrefix(LR"(\\server\share)"), LR"(\\?\UNC\server\share)");
}

TEST(ReadWholeFile, GivesNoBytesWhenItFails) {
    std::string bytes = "old";
    EXPECT_FALSE(ReadWholeFile(L"Q:\\x", bytes));
    EXPECT_EQ(bytes, "");
    const zotest::ImportHook hook(GetModuleHandleW(nullptr), "ReadFile", zotest::FailWith<ERROR_CRC>);
    EXPECT_FALSE(ReadWholeFile(L"C:\\windows\\explorer.exe", bytes));
    EXPECT_EQ(bytes, "");
}

TEST(CreateDirectories, MakesAllMissingFolders) {
    const std::filesystem::path first =
        std::filesystem::temp_directory_path() / Format("zotest_base_{}", GetCurrentProcessId());
    EXPECT_EQ(TryCreateDirectories(first / L"second\\third\\fourth\\"), 0u);
    EXPECT_EQ(std::filesystem::remove_all(first), 4u);
}

TEST(CreateDirectories, ReportsFoldersThatCannotBeMade) {
    const std::filesystem::path root = std::filesystem::temp_directory_path().root_path();
    CreateDirectories(root);
    EXPECT_THROW(CreateDirectories(root / L"windows\\explorer.exe"), std::filesystem::filesystem_error);
    EXPECT_EQ(TryCreateDirectories(root / L"windows\\explorer.exe\\x"), std::uint32_t{ERROR_DIRECTORY});
    EXPECT_NE(TryCreateDirectories(L"Q:\\no such\\drive\\"), 0u);
}

// A resource that notes what is closed and changes the last error, as a real one may. 0 is a valid handle here.
struct WatchedKind {
    using Handle = int;
    static Handle None() noexcept { return -1; }
    static void Close(Handle handle) noexcept {
        closed.push_back(handle);
        SetLastError(ERROR_INVALID_HANDLE);
    }
    static inline std::vector<int> closed;
};

TEST(OwnedHandle, ClosesWhatItHoldsOnceAndOnlyThen) {
    SetLastError(ERROR_ACCESS_DENIED);
    {
        Owned<WatchedKind> first(0), second(2), third(3), released(5);
        auto& same = third;
        third = std::move(same);
        EXPECT_EQ(third.Get(), 3);
        third = std::move(second);
        EXPECT_EQ(WatchedKind::closed, std::vector{3}) << "a move into a live owner";
        EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move): an emptied owner is defined
        *third.Out() = 4;
        EXPECT_EQ(WatchedKind::closed, (std::vector{3, 2})) << "filling anew";
        EXPECT_EQ(released.Release(), 5);
    }
    EXPECT_EQ(WatchedKind::closed, (std::vector{3, 2, 4, 0}));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED}) << "closing keeps the error of the call before";
}

}  // namespace
}  // namespace zo
