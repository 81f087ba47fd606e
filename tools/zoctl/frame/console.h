#pragma once

// The process's surroundings: its arguments as UTF-8, its standard streams as UTF-8 bytes or console text, and Ctrl-C.

#include <windows.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "owned_handles.h"

namespace zoctl {

enum class Stream { kOut, kError };

// Without the program's own name.
[[nodiscard]] std::vector<std::string> CommandLineArguments();

// To a console as UTF-16, elsewhere as UTF-8. False when it could not be written (a closed pipe, a full disk).
bool Write(Stream stream, std::string_view utf8);
// What Ctrl-C writes to standard output when it ends the process at once; "" for nothing.
void SetLastWords(std::string text);
// Writes to standard output; Ctrl-C then writes nothing more.
bool WriteOnlyDocument(std::string_view utf8);
[[nodiscard]] bool IsTerminal(Stream stream);
[[nodiscard]] bool InputIsTerminal();
// One line from standard input, without its end.
[[nodiscard]] std::string ReadLine();

// While one of these lives, Ctrl-C calls the hook (on a thread of the system) and lets the command come to its own end,
// which then returns kExitCancelled. At all other times Ctrl-C ends the process with that code. A second Ctrl-C always
// does.
class Cancellation {
  public:
    explicit Cancellation(std::function<void()> hook = {});
    ~Cancellation();
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

    [[nodiscard]] bool Requested() const;
    // Sleeps, but not beyond Ctrl-C. True when it was pressed.
    bool Wait(unsigned milliseconds) const;

  private:
    std::function<void()> hook_;
    zo::OwnedKernelObject event_;
};

void InstallCtrlC();

}  // namespace zoctl
