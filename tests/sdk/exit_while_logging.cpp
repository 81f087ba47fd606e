// A program that ends while four of its threads are inside the library. Exit code 7 means that it came to its end.
//
//   exit           return from main
//   uninitialize   return while a fifth thread opens and closes the channel

#include <string>

#include "loaded_sdk.h"

namespace {

const sdktest::LoadedSdk* sdk = nullptr;

DWORD WINAPI WriteForEver(void*) {
    for (;;) {
        sdk->SetMasterEnabled(1);
        sdk->WriteLines();
    }
}

DWORD WINAPI OpenAndClose(void*) {
    for (;;) {
        sdk->Uninitialize();
        sdk->Initialize();
    }
}

}  // namespace

int main(int count, char** arguments) {
    const std::string way = count > 1 ? arguments[1] : "exit";
    static const sdktest::LoadedSdk loaded;  // unloaded by the end of the process only
    sdk = &loaded;
    loaded.Initialize();
    zo::OwnedKernelObject threads[4];
    for (auto& thread : threads)
        thread = zo::OwnedKernelObject(CreateThread(nullptr, 0, WriteForEver, nullptr, 0, nullptr));
    if (way == "uninitialize")
        zo::OwnedKernelObject(CreateThread(nullptr, 0, OpenAndClose, nullptr, 0, nullptr)).Reset();
    Sleep(300);
    ExitProcess(7);
}
