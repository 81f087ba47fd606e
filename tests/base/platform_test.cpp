#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <string>

#include "cng.h"
#include "error_text.h"
#include "errors.h"
#include "files.h"
#include "format.h"
#include "hex.h"
#include "text.h"

namespace zo {
namespace {

TEST(Text, ConvertsBeyondAsciiAndSurvivesIllFormedInput) {
    EXPECT_EQ(Utf8FromWide(L"gr\u00FC\u00DFe \U0001F511"),
              "gr\xC3\xBC\xC3\x9F"
              "e \xF0\x9F\x94\x91");
    EXPECT_EQ(WideFromUtf8("\xE2\x82\xAC"), L"\u20AC");
    EXPECT_EQ(Utf8FromWide({}), "");
    EXPECT_EQ(WideFromUtf8({}), L"");
    EXPECT_EQ(Utf8FromWide(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
    EXPECT_EQ(WideFromUtf8("\xFF"), L"\uFFFD");
    EXPECT_EQ(AnsiFromWide(L"caf\u00E9 \u4E2D"), "caf\xE9 ?");
}

TEST(Text, KeepsZerosInsideTheText) {
    const std::wstring wide(L"a\0b", 3);
    EXPECT_EQ(Utf8FromWide(wide), std::string("a\0b", 3));
    EXPECT_EQ(WideFromUtf8(std::string("a\0b", 3)), wide);
}

TEST(ErrorText, IsOneLineAndNeverEmpty) {
    EXPECT_EQ(ErrorText(ERROR_ACCESS_DENIED).find_first_of("\r\n"), std::string::npos);
    EXPECT_GT(ErrorText(ERROR_ACCESS_DENIED).size(), 5u);
    EXPECT_EQ(ErrorText(0x0FFFFFFF), "error 268435455");
}

TEST(Hresults, KeepSuccessAndNegativeValues) {
    EXPECT_EQ(HresultFromWin32(0), 0);
    EXPECT_EQ(Bits(HresultFromWin32(5)), 0x80070005u);
    EXPECT_EQ(Bits(HresultFromWin32(0x12345)), 0x80072345u);
    EXPECT_EQ(Bits(HresultFromWin32(0x80090005)), 0x80090005u);
    EXPECT_EQ(Bits(HresultFromNtStatus(static_cast<std::int32_t>(0xC00000BB))), 0xD00000BBu);
}

TEST(Hashing, OneHasherServesManyMessages) {
    Hasher hasher(BCRYPT_SHA256_ALGORITHM);
    for (int round = 0; round < 2; ++round) {
        Sha256Digest digest{};
        ASSERT_GE(hasher.Update("a", 1), 0);
        ASSERT_GE(hasher.Update("bc", 2), 0);
        ASSERT_GE(hasher.Finish(digest), 0);
        EXPECT_EQ(ToHex(digest), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    }
    Sha256Digest digest{};
    ASSERT_GE(hasher.Update("begun and dropped", 17), 0);
    hasher.Discard();
    ASSERT_GE(hasher.Finish(digest), 0);
    EXPECT_EQ(ToHex(digest), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");

    Md5Digest md5{};
    ASSERT_GE(HashOnce(BCRYPT_MD5_ALGORITHM, {}, md5), 0);
    EXPECT_EQ(ToHex(md5), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Files, AWholeReadTellsWhichStepFailed) {
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / L"zo_base_test" / L"a" / L"b";
    CreateDirectories(folder);
    CreateDirectories(folder);  // existing folders are no error
    CreateDirectories(folder.root_path());
    EXPECT_NE(TryCreateDirectories(L"Q:\\no such\\drive\\"), 0u);
    const std::filesystem::path path = folder / L"file.bin";
    {
        const OwnedFile file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
        DWORD written = 0;
        ASSERT_TRUE(WriteFile(file.Get(), "\0\r\n", 3, &written, nullptr));
    }
    std::string bytes = "stale";
    EXPECT_TRUE(ReadWholeFile(path.c_str(), bytes));
    EXPECT_EQ(bytes, std::string("\0\r\n", 3));

    const FileReadResult absent = ReadWholeFile((folder / L"absent").c_str(), bytes);
    EXPECT_EQ(absent.failedAt, FileReadResult::Step::kOpen);
    EXPECT_EQ(absent.error, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(bytes.empty());

    try {
        CreateDirectories(path / L"below a file");
        FAIL() << "a folder below a file cannot be made";
    } catch (const std::filesystem::filesystem_error& error) {
        EXPECT_NE(std::string(error.what()).find("create_directories"), std::string::npos);
    }
    std::filesystem::remove_all(folder.parent_path().parent_path());
}

}  // namespace
}  // namespace zo
