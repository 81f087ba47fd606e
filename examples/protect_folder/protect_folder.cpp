// protect_folder FOLDER: asks the driver to shield the programs in FOLDER from tampering, shows what the driver then
// holds, and takes the rule back. Without a running driver it says so and ends with 2.

#include <zoprotector.h>

#include <cstdio>

namespace {

// The driver channel is open as long as this object lives.
class Channel {
  public:
    Channel() : status_(ZoProtector_Initialize()) {}
    ~Channel() {
        if (status_ >= 0) ZoProtector_Uninitialize();
    }
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    int32_t Status() const { return status_; }

  private:
    int32_t status_;
};

int Fail(const char* step, int32_t status) {
    std::printf("%s failed with status 0x%08X\n", step, static_cast<unsigned>(status));
    return 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 2) {
        std::printf("usage: protect_folder FOLDER\n");
        return 1;
    }

    const Channel channel;
    if (channel.Status() == ZOP_E_DRIVER_NOT_FOUND) {
        std::printf("the driver is not running\n");
        return 2;
    }
    if (channel.Status() < 0) return Fail("opening the driver", channel.Status());

    if (const int32_t status = ZoProtector_AddFileProtectByFolder(argv[1], 1, L"*.exe"); status < 0) {
        return Fail("adding the rule", status);
    }

    uint32_t held = 0;
    uint32_t total = 0;
    const int32_t listed = ZoProtector_ListFileProtectRules(nullptr, 0, &held, &total);
    const int32_t removed = ZoProtector_RemoveFileProtect(argv[1]);
    if (listed < 0) return Fail("listing the rules", listed);
    if (removed < 0) return Fail("removing the rule", removed);
    std::printf("the driver held %u file rule(s)\n", static_cast<unsigned>(total));
    return 0;
}
