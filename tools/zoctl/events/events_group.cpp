#include <algorithm>
#include <functional>
#include <memory>
#include <optional>

#include "channel.h"
#include "console.h"
#include "event_text.h"
#include "events_group.h"
#include "format.h"
#include "hex.h"
#include "vocabulary_option.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct EventOptions {
    bool follow = false;
    bool registry = false;
    bool both = false;
    bool bytes = false;
    bool failOnLoss = false;
    std::vector<std::string> where;
    VocabularyOption vocabularyFile;
    Vocabulary vocabulary;
    std::vector<Condition> conditions;
    std::optional<std::uint32_t> from;
    std::optional<std::uint32_t> registryFrom;
    std::uint32_t capacity = 256;
    std::optional<std::uint32_t> interval;
    std::optional<std::uint32_t> seconds;
};

constexpr std::uint32_t kInterval = 500;
// Without --follow the end is an empty ring, which a busy driver never shows. No more than this can have been waiting
// when the reading began, unless a driver has an unusually large ring.
constexpr std::uint64_t kMostAtOnce = 16384;

using DrainExport = std::int32_t (*)(std::uint32_t, void*, std::uint32_t, std::uint32_t*, std::uint32_t*,
                                     std::uint32_t*);

// One ring and how far it has been read.
struct Ring {
    const char* name;
    DrainExport drain;
    std::size_t recordSize;
    std::uint32_t position;
    const std::vector<EventField>* fields;  // of the vocabulary; none without one
    std::uint64_t received = 0;
    std::uint64_t lost = 0;

    [[nodiscard]] Json Total() const {
        return {{"type", "total"},
                {"ring", name},
                {"received", received},
                {"lost", lost},
                {"produced", received + lost},
                {"position", position}};
    }
};

// Where what is drained goes: to the reader at once, or into the one document.
class EventSink {
  public:
    EventSink(Output& out, const EventOptions& options) : out_(out), options_(options), records_(out, "records") {}

    void Lost(const Ring& ring, std::uint32_t count) {
        out_.Text(zo::Format("{}  LOST {}, overwritten before anyone read them\n", ring.name, Counted(count, "event")));
        records_.Add({{"type", "lost"}, {"ring", ring.name}, {"count", count}});
    }

    // False when it could not be written.
    bool Event(const Ring& ring, std::span<const std::uint8_t> record) {
        const auto holds = [&](const Condition& condition) { return Holds(condition, *ring.fields, record); };
        if (!std::all_of(options_.conditions.begin(), options_.conditions.end(), holds)) return out_.Writable();
        const std::vector<std::string> strings = FindStrings(record);
        if (out_.Machine()) {
            Json event = {{"type", "event"}, {"ring", ring.name}, {"strings", strings}, {"hex", zo::ToHex(record)}};
            for (const EventField& field : *ring.fields)
                event["fields"][field.name] = FieldJson(field, record);
            records_.Add(std::move(event));
            return out_.Writable();
        }
        if (!ring.fields->empty()) {
            Columns(ring, record);
            return out_.Writable();
        }
        // The driver's fields are unknown; the first bytes are where most drivers keep theirs.
        constexpr std::size_t kShown = 16;  // with a path beside them a line fits 100 columns
        std::string line = zo::Format("{}  {}", ring.name, zo::ToHex(options_.bytes ? record : record.first(kShown)));
        for (const std::string& text : strings)
            line += "  " + Quote(text);
        out_.Text(line + "\n");
        return out_.Writable();
    }

    void PutInto(Json& facts) { records_.PutInto(facts); }

  private:
    // A line of the ring's table, below its headings when another ring's came before.
    void Columns(const Ring& ring, std::span<const std::uint8_t> record) {
        std::string headings;
        std::string line;
        const auto add = [](std::string& text, const std::string& cell, std::size_t width) {
            text += zo::Format("{:<{}}  ", cell, width);
        };
        for (const EventField& field : *ring.fields) {
            if (!field.column) continue;
            add(headings, field.name, FieldWidth(field));
            add(line, FieldText(field, record), FieldWidth(field));
        }
        if (options_.bytes) line += zo::ToHex(record);
        for (std::string* text : {&headings, &line})
            text->erase(text->find_last_not_of(' ') + 1);
        if (headed_ != ring.name) out_.Text(zo::Format("{} events\n{}\n", ring.name, headings));
        headed_ = ring.name;
        out_.Text(line + "\n");
    }

    Output& out_;
    const EventOptions& options_;
    Records records_;
    std::string headed_;  // the ring whose headings were the last
};

// One poll. An event counts as received once it could be written; the position stays before the first that could not.
std::int32_t Poll(Ring& ring, std::uint32_t capacity, EventSink& sink, bool& mayHaveMore) {
    std::vector<std::uint8_t> records(ring.recordSize * capacity);
    std::uint32_t count = 0;
    std::uint32_t dropped = 0;
    std::uint32_t position = 0;
    const std::int32_t status = ring.drain(ring.position, records.data(), capacity, &count, &dropped, &position);
    if (status < 0) return status;
    mayHaveMore = count == capacity;
    // A reply without a header answers zeros; the position then stays where it was.
    if (count || dropped || position) ring.position = position - count;
    ring.lost += dropped;
    if (dropped) sink.Lost(ring, dropped);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!sink.Event(ring, {records.data() + ring.recordSize * i, ring.recordSize})) break;
        ++ring.received;
        ++ring.position;
    }
    return ZOP_OK;
}

// Polls the rings in turn, so that a busy one does not keep the other waiting, until none has more.
std::int32_t Drain(std::vector<Ring>& rings, const EventOptions& options, EventSink& sink,
                   const std::function<bool()>& stop) {
    bool more = true;
    while (more) {
        more = false;
        for (Ring& ring : rings) {
            if (!options.follow && ring.received + ring.lost >= kMostAtOnce) continue;
            bool mayHaveMore = false;
            if (const std::int32_t status = Poll(ring, options.capacity, sink, mayHaveMore); status < 0) return status;
            more = more || mayHaveMore;
        }
        more = more && !stop();
    }
    return ZOP_OK;
}

std::vector<Ring> RingsOf(const EventOptions& options) {
    std::vector<Ring> rings;
    if (!options.registry || options.both) {
        rings.push_back({"main", ZoProtector_DrainEvents, sizeof(ZopEventRecord), options.from.value_or(0),
                         &options.vocabulary.Fields(EventRing::kMain)});
    }
    if (options.registry || options.both) {
        rings.push_back({"registry", ZoProtector_DrainRegistryEvents, sizeof(ZopRegistryEventRecord),
                         options.registryFrom.value_or(0), &options.vocabulary.Fields(EventRing::kRegistry)});
    }
    return rings;
}

// How the reading ended.
struct End {
    std::int32_t status = ZOP_OK;
    bool cancelled = false;
    bool failOnLoss = false;
};

int TellTotals(Output& out, const std::vector<Ring>& rings, const End& end, EventSink& sink) {
    std::uint64_t lost = 0;
    Json totals = Json::array();
    for (const Ring& ring : rings) {
        const std::string text =
            zo::Format("{}: {} received + {} lost = {} produced; continue with --{} {}", ring.name, ring.received,
                       ring.lost, ring.received + ring.lost,
                       ring.recordSize == sizeof(ZopEventRecord) ? "from" : "registry-from", ring.position);
        out.Text(text + "\n");
        if (!out.Writable()) out.Hint(text);  // standard output is closed, but the user may still be there
        if (out.Lines()) out.Line(ring.Total());
        totals.push_back(ring.Total());
        lost += ring.lost;
    }
    Json facts = {{"totals", totals}};
    sink.PutInto(facts);
    if (end.status < 0) return out.Fail(end.status, Subject::kAny, "read the events", facts);
    if (end.failOnLoss && lost > 0) {
        return out.Found(kExitEventsLost, Counted(lost, "event") + (lost == 1 ? " was lost." : " were lost."),
                         out.Lines() ? Json::object() : facts, "Poll more often: see docs/events.md.");
    }
    if (out.Lines()) return out.End(end.cancelled ? kExitCancelled : kExitDone);
    return end.cancelled ? out.Found(kExitCancelled, "Cancelled.", facts, "Continue from the positions in the totals.")
                         : out.Done("", facts);
}

int Events(Output& out, const EventOptions& options) {
    std::vector<Ring> rings = RingsOf(options);
    EventSink sink(out, options);
    const Cancellation cancellation;
    const ULONGLONG end = options.seconds ? GetTickCount64() + *options.seconds * 1000ull : ~0ull;
    const auto stop = [&] { return cancellation.Requested() || GetTickCount64() >= end || !out.Writable(); };
    std::int32_t status = ZOP_OK;
    do {
        status = Drain(rings, options, sink, stop);
    } while (status >= 0 && options.follow && !stop() && !cancellation.Wait(options.interval.value_or(kInterval)));
    return TellTotals(out, rings, {status, cancellation.Requested(), options.failOnLoss}, sink);
}

// Reads the vocabulary and the conditions on its fields, each of which must be able to hold for a ring that is read.
Ended PrepareFields(Output& out, EventOptions& options) {
    if (const Ended ended = options.vocabularyFile.Load(out, options.vocabulary)) return ended;
    for (const std::string& text : options.where) {
        const std::optional<Condition> condition = ParseCondition(text);
        if (!condition || !options.vocabularyFile.Given()) {
            return out.Refuse(kExitUsage, "--where needs --vocabulary, and has the form FIELD=VALUE.",
                              "\"zoctl events --help\" shows an example.");
        }
        std::string objection;
        for (const Ring& ring : RingsOf(options)) {
            objection = Objection(*condition, *ring.fields);
            if (objection.empty()) break;
        }
        if (!objection.empty()) return out.Refuse(kExitUsage, objection, "Look the field up in the vocabulary.");
        options.conditions.push_back(*condition);
    }
    return std::nullopt;
}

// Options that exclude each other; null when all fit together.
const char* Contradiction(const Output& out, const EventOptions& options) {
    if (options.follow && out.Machine() && !out.Lines()) {
        return "--follow has no end, and --json is one document: use --jsonl, one object for each event.";
    }
    if (!options.follow && (options.interval || options.seconds)) return "--interval and --for need --follow.";
    if (options.from && options.registry && !options.both) return "--from applies to the main ring: add --both.";
    if (options.registryFrom && !options.registry && !options.both) {
        return "--registry-from needs --registry or --both.";
    }
    return nullptr;
}

}  // namespace

void RegisterEvents(CLI::App& root, Tool& tool) {
    const auto options = std::make_shared<EventOptions>();
    CLI::App& command = tool.AddCommand(
        root,
        {"events", "Show the driver's events: their bytes, the text in them, how many were lost, and a total",
         "events\nevents --follow --both --jsonl\nevents --registry --registry-from 4711\n"
         "events --vocabulary C:\\Suite\\driver.json --where kind=process --where path=*\\agent.exe"},
        [options](Output& out) {
            if (const char* contradiction = Contradiction(out, *options)) {
                return out.Refuse(kExitUsage, contradiction,
                                  "\"zoctl events --help\" shows which options go together.");
            }
            if (const Ended ended = PrepareFields(out, *options)) return *ended;
            return WithDriver([&](Output& channelOut) { return Events(channelOut, *options); })(out);
        });
    tool.AllowJsonLines(command);
    command.add_flag("--follow", options->follow, "Continue until Ctrl-C");
    command.add_flag("--registry", options->registry, "The registry ring instead of the main one");
    command.add_flag("--both", options->both, "Both rings");
    command.add_flag("--bytes", options->bytes, "Show all bytes of each event, not only the first 16");
    command.add_flag("--fail-on-loss", options->failOnLoss, "End with exit code 60 when events were lost");
    options->vocabularyFile.AddTo(command);
    command
        .add_option("--where", options->where,
                    "FIELD=VALUE: show only events whose field has this value; repeatable, and all must hold")
        ->allow_extra_args(false);
    command.add_option("--from", options->from, "Position in the main ring to continue from; 0 is the beginning");
    command.add_option("--registry-from", options->registryFrom, "The same for the registry ring");
    command.add_option("--capacity", options->capacity, "Events per poll")
        ->check(CLI::Range(1u, 65536u))
        ->capture_default_str();
    command.add_option("--interval", options->interval, "Milliseconds between polls with --follow; 500 if left out")
        ->check(CLI::Range(1u, 3600000u));
    command.add_option("--for", options->seconds, "With --follow, end after this many seconds")
        ->check(CLI::Range(1u, 86400u));
}

}  // namespace zoctl
