#include "vocabulary_option.h"

#include "channel.h"
#include "format.h"
#include "input_file.h"

namespace zoctl {

namespace {

Ended LoadVocabulary(Output& out, const std::string& path, Vocabulary& vocabulary) {
    std::string text;
    if (const Ended ended = ReadInputFile(out, path, text)) return ended;
    std::vector<Mistake> mistakes;
    vocabulary = ReadVocabulary(text, mistakes);
    return ReportMistakes(out, path, mistakes, "Fix what is listed; docs/vocabulary.md describes the file.");
}

int Check(Output& out, const std::string& path) {
    Vocabulary vocabulary;
    if (const Ended ended = LoadVocabulary(out, path, vocabulary)) return *ended;
    const std::size_t main = vocabulary.Fields(EventRing::kMain).size();
    const std::size_t registry = vocabulary.Fields(EventRing::kRegistry).size();
    return out.Done(
        zo::Format("{} has no mistakes: {} of main events and {} of registry events, {}, {}, {}, {}.", Quote(path),
                   Counted(main, "field"), registry, Counted(vocabulary.counters.size(), "counter"),
                   Counted(vocabulary.status.size(), "status pair"), Counted(vocabulary.modes.size(), "mode"),
                   Counted(vocabulary.minLevels.size(), "level")),
        {{"file", path}, {"mistakes", Json::array()}});
}

}  // namespace

void VocabularyOption::AddTo(CLI::App& command) {
    command.add_option("--vocabulary", *path_, "A file with the driver's names for what it shows");
}

Ended VocabularyOption::Load(Output& out, Vocabulary& vocabulary) const {
    if (!Given()) return std::nullopt;
    return LoadVocabulary(out, *path_, vocabulary);
}

Action VocabularyOption::WithNames(std::function<int(Output&, const Vocabulary&)> action) const {
    return [option = *this, action = std::move(action)](Output& out) -> int {
        Vocabulary vocabulary;
        if (const Ended ended = option.Load(out, vocabulary)) return *ended;
        return WithDriver([&](Output& channelOut) { return action(channelOut, vocabulary); })(out);
    };
}

void RegisterVocabulary(CLI::App& root, Tool& tool) {
    CLI::App& group = tool.AddGroup(root, "vocabulary", "A driver's own names for its events, counters and values");
    const auto path = std::make_shared<std::string>();
    tool.AddCommand(
            group,
            {"check", "Find every mistake in a vocabulary; needs no driver", "vocabulary check C:\\Suite\\driver.json"},
            [path](Output& out) { return Check(out, *path); })
        .add_option("file", *path)
        ->required();
}

}  // namespace zoctl
