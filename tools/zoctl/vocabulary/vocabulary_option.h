#pragma once

// "--vocabulary FILE" of the commands that show what is the driver's own, and "zoctl vocabulary check".

#include <functional>
#include <memory>
#include <string>

#include "command.h"
#include "vocabulary.h"

namespace zoctl {

class VocabularyOption {
  public:
    void AddTo(CLI::App& command);
    // Empty, and not an end, without the option.
    [[nodiscard]] Ended Load(Output& out, Vocabulary& vocabulary) const;
    // An action with the channel open and the vocabulary loaded.
    [[nodiscard]] Action WithNames(std::function<int(Output&, const Vocabulary&)> action) const;
    [[nodiscard]] bool Given() const { return !path_->empty(); }

  private:
    std::shared_ptr<std::string> path_ = std::make_shared<std::string>();
};

void RegisterVocabulary(CLI::App& root, Tool& tool);

}  // namespace zoctl
