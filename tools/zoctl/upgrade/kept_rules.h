#pragma once

// The rules of a running driver, kept while it is restarted and put back into the new one.

#include <string>
#include <vector>

#include "output.h"
#include "rule_file.h"
#include "system_names.h"

namespace zoctl {

class KeptRules {
  public:
    // Reads the driver's rules as a rule file. What no driver can be asked for (ignore lists, overrides, the switches
    // of the file and the DLL filter) comes from rulesFile, unless that is empty. The command ends when a rule file
    // cannot express a rule of the driver.
    [[nodiscard]] Ended Capture(Output& out, const std::string& rulesFile);
    // Writes them to a file in the temporary folder, so that they outlive this process.
    [[nodiscard]] Ended Save(Output& out);
    // Applies them as "rules apply" does, and ends the command.
    int PutBack(Output& out) const;
    void RemoveFile();

    [[nodiscard]] bool Captured() const { return !text_.empty(); }
    // Empty while there is no file.
    [[nodiscard]] const std::string& File() const { return file_; }
    // Parts of a rule file, as "file.ignore", whose contents in the driver are not known.
    [[nodiscard]] const std::vector<std::string>& NotKept() const { return notKept_; }

  private:
    SystemNames names_;
    RuleFile rules_;
    std::string text_;
    std::string file_;
    std::vector<std::string> notKept_;
};

}  // namespace zoctl
