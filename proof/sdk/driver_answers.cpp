// Every command against every answer that a driver can give: the errors that the library maps, three that it does not
// map, and replies that are empty, short or longer than asked for. Prints the statuses as a table.

#include <cstdio>

#include "sdk_fixture.h"

namespace sdktest {
namespace {

constexpr std::uint32_t kListHeader = 16;  // bytes in front of the entries

// Errors of the driver, and the one rule of what becomes of them, whatever the command.
const struct {
    std::uint32_t ntStatus, win32;
    std::int32_t status;
} kErrors[] = {
    {0xC0000034, 2, ZOP_E_DRIVER_NOT_FOUND},  {0xC0000022, 5, ZOP_E_ACCESS_DENIED},
    {0xC00000BD, 52, ZOP_E_ALREADY_EXISTS},   {0xC00000C0, 55, ZOP_E_DRIVER_NOT_FOUND},
    {0xC000000D, 87, ZOP_E_INVALID_ARG},      {0xC0000023, 122, ZOP_E_FAILED},
    {0xC0000035, 183, ZOP_E_ALREADY_EXISTS},  {0xC0000225, 1168, ZOP_E_NOT_FOUND},
    {0xC0000044, 1816, ZOP_E_QUOTA_EXCEEDED}, {0xC0000001, 31, ZOP_E_FAILED},
    {0xC00000BB, 50, ZOP_E_FAILED},           {0xC0000120, 995, ZOP_E_FAILED},
};

// The byte counts that a command claims to have returned.
// A claim far beyond the buffer cannot be tried: under Wine it kills the process that hosts the driver.
enum class Reply { kEmpty, kThreeBytes, kOneShort, kOneMore };
constexpr Reply kReplies[] = {Reply::kEmpty, Reply::kThreeBytes, Reply::kOneShort, Reply::kOneMore};

std::uint32_t Bytes32(Reply reply, std::uint32_t whole) {
    switch (reply) {
        case Reply::kEmpty:
            return 0;
        case Reply::kThreeBytes:
            return 3;
        case Reply::kOneShort:
            return whole - 1;
        case Reply::kOneMore:
            break;
    }
    return whole + 1;
}

bool IsList(std::uint32_t code) {
    return code == ZOP_IOCTL_LIST_PROCESS_RULES || code == ZOP_IOCTL_LIST_FILE_RULES ||
           code == ZOP_IOCTL_LIST_REGISTRY_RULES || code == ZOP_IOCTL_LIST_DLL_WHITELIST;
}

// What is missing reads as zero, except that a list needs its header, that the handshake and the one counter that old
// drivers do not have need a version.
std::int32_t Expected(const Request& row, std::uint32_t returned) {
    if (IsList(row.code)) return returned < kListHeader ? ZOP_E_FAILED : ZOP_OK;
    const bool needsVersion = row.code == ZOP_IOCTL_GET_VERSION && std::string(row.call.text) == "Initialize()";
    const bool needsLayout = std::string(row.call.text).starts_with("GetUnsignedBypassAttempts");
    if (needsVersion || needsLayout) return returned == 0 ? ZOP_E_VERSION_MISMATCH : ZOP_OK;
    return ZOP_OK;
}

// The requests of all exports, and the two commands that need more than one call.
std::vector<Request> Rows() {
    std::vector<Request> rows = AllRequests();
    const auto initialize = [] {
        ZoProtector_Uninitialize();
        return ZoProtector_Initialize();
    };
    rows.push_back({{"Initialize()", initialize}, ZOP_IOCTL_GET_VERSION, {}, nullptr, 12});
    rows.push_back({ZOP_CALL(CopyDirectory(L"C:\\none", L"C:\\none2", 0, 0, nullptr, nullptr, nullptr)),
                    ZOP_IOCTL_COPY_DIRECTORY,
                    {}});
    return rows;
}

class DriverAnswers : public SdkTest {
  protected:
    // One cell: makes the call and prints the end of its status.
    void Try(const Request& row, std::int32_t expected, const std::string& answer) {
        const std::int32_t status = row.call.make();
        std::printf(" %4X", static_cast<unsigned>(zo::Bits(status) & 0xFFFF));
        EXPECT_EQ(zo::Bits(status), zo::Bits(expected)) << row.call.text << ": " << answer;
        ++cells_;
        EXPECT_EQ(ZoProtector_Initialize(), ZOP_OK);
    }

    void TryAll(const Request& row) {
        for (const auto& error : kErrors) {
            Simulator().FailNext(row.code, error.ntStatus);
            Try(row, error.status, zo::Format("error {}", error.win32));
            Simulator().ClearFaults();
        }
        for (const Reply reply : kReplies) {
            if (row.outLength == 0) {
                std::printf("    -");
                continue;
            }
            const std::uint32_t returned = Bytes32(reply, row.outLength);
            Simulator().ReturnBytes(row.code, returned);
            Try(row, Expected(row, returned), zo::Format("{} bytes", returned));
            Simulator().ClearFaults();
        }
    }

    unsigned cells_ = 0;
};

TEST_F(DriverAnswers, GiveTheStatusOfTheOneRuleForEveryCommand) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // when a call hangs, the table ends with it
    Simulator().SetPidSignature({0x01020304, 1, 1, 1, 1, 0});
    std::printf("%-58s", "last four digits of the status, for Win32 error");
    for (const auto& error : kErrors)
        std::printf(" %4u", static_cast<unsigned>(error.win32));
    std::printf("  and a reply of 0, 3, one byte too few, one too many\n");
    const std::vector<Request> rows = Rows();
    for (const Request& row : rows) {
        std::printf("%08X %-48.48s ", static_cast<unsigned>(row.code), row.call.text);
        TryAll(row);
        std::printf("\n");
        const bool copies = row.code == ZOP_IOCTL_COPY_DIRECTORY;  // of a folder that does not exist
        EXPECT_EQ(row.call.make() == ZOP_OK, !copies) << row.call.text << ": without a fault";
    }
    EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, nullptr));
    std::printf("figure: %u calls against %u errors and %u wrong replies: %u cells, all as expected: %s\n",
                static_cast<unsigned>(rows.size()), static_cast<unsigned>(std::size(kErrors)),
                static_cast<unsigned>(std::size(kReplies)), cells_, HasFailure() ? "no" : "yes");
}

}  // namespace
}  // namespace sdktest
