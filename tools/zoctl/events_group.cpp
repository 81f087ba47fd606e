#include <algorithm>
#include <functional>
#include <memory>

#include "channel.h"
#include "console.h"
#include "event_text.h"
#include "format.h"
#include "groups.h"
#include "hex.h"
#include "zoprotector.h"

namespace zoctl {

namespace {

struct EventOptions {
    bool follow = false;
    bool registry = false;
    bool both = false;
    bool bytes = false;
    std::uint32_t from = 0;
    std::uint32_t registryFrom = 0;
    std::uint32_t capacity = 256;
    std::uint32_t interval = 500;
    std::uint32_t seconds = 0;
};

using DrainExport = std::int32_t (*)(std::uint32_t, void*, std::uint32_t, std::uint32_t*, std::uint32_t*,
                                     std::uint32_t*);

// One ring and how far it has been read.
struct Ring {
    const char* name;
    DrainExport drain;
    std::size_t recordSize;
    std::uint32_t position;
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
    EventSink(Output& out, bool bytes) : out_(out), bytes_(bytes) {}

    void Lost(const Ring& ring, std::uint32_t count) {
        out_.Text(zo::Format("{}  LOST {} events, overwritten before they were read\n", ring.name, count));
        Put({{"type", "lost"}, {"ring", ring.name}, {"count", count}});
    }

    void Event(const Ring& ring, std::span<const std::uint8_t> record) {
        const std::vector<std::string> strings = FindStrings(record);
        if (out_.Machine()) {
            Put({{"type", "event"}, {"ring", ring.name}, {"strings", strings}, {"hex", zo::ToHex(record)}});
            return;
        }
        // The driver's fields are unknown; the first bytes are where most drivers keep theirs.
        constexpr std::size_t kShown = 40;
        std::string line = zo::Format("{}  {}", ring.name, zo::ToHex(bytes_ ? record : record.first(kShown)));
        for (const std::string& text : strings)
            line += "  " + Quote(text);
        out_.Text(line + "\n");
    }

    [[nodiscard]] Json TakeRecords() { return std::move(records_); }

  private:
    void Put(const Json& object) {
        if (out_.Lines()) {
            out_.Line(object);
        } else if (out_.Machine()) {
            records_.push_back(object);
        }
    }

    Output& out_;
    bool bytes_;
    Json records_ = Json::array();
};

// Reads the ring until it has nothing more.
std::int32_t DrainRing(Ring& ring, std::uint32_t capacity, EventSink& sink, const std::function<bool()>& stop) {
    std::vector<std::uint8_t> records(ring.recordSize * capacity);
    std::uint32_t count = 0;
    do {
        std::uint32_t dropped = 0;
        std::uint32_t position = 0;
        const std::int32_t status = ring.drain(ring.position, records.data(), capacity, &count, &dropped, &position);
        if (status < 0) return status;
        // A reply without a header answers zeros; the position then stays where it was.
        if (count || dropped || position) ring.position = position;
        ring.received += count;
        ring.lost += dropped;
        if (dropped) sink.Lost(ring, dropped);
        for (std::uint32_t i = 0; i < count; ++i) {
            sink.Event(ring, {records.data() + ring.recordSize * i, ring.recordSize});
        }
    } while (count == capacity && !stop());
    return ZOP_OK;
}

int Events(Output& out, const EventOptions& options) {
    std::vector<Ring> rings;
    if (!options.registry || options.both) {
        rings.push_back({"main", ZoProtector_DrainEvents, sizeof(ZopEventRecord), options.from});
    }
    if (options.registry || options.both) {
        rings.push_back(
            {"registry", ZoProtector_DrainRegistryEvents, sizeof(ZopRegistryEventRecord), options.registryFrom});
    }
    EventSink sink(out, options.bytes);
    const Cancellation cancellation;
    const ULONGLONG end = options.seconds ? GetTickCount64() + options.seconds * 1000ull : ~0ull;
    const auto stop = [&] { return cancellation.Requested() || GetTickCount64() >= end || !out.Writable(); };
    std::int32_t status = ZOP_OK;
    do {
        for (Ring& ring : rings) {
            if (status >= 0) status = DrainRing(ring, options.capacity, sink, stop);
        }
    } while (status >= 0 && options.follow && !stop() && !cancellation.Wait(options.interval));

    Json totals = Json::array();
    for (const Ring& ring : rings) {
        out.Text(zo::Format("{}: {} received + {} lost = {} produced; go on with --{} {}\n", ring.name, ring.received,
                            ring.lost, ring.received + ring.lost,
                            ring.recordSize == sizeof(ZopEventRecord) ? "from" : "registry-from", ring.position));
        if (out.Lines()) out.Line(ring.Total());
        totals.push_back(ring.Total());
    }
    Json facts = {{"totals", totals}};
    if (!out.Lines()) facts["records"] = sink.TakeRecords();
    if (status < 0) return out.Fail(status, Subject::kRule, "read the events", facts);
    if (out.Lines()) return cancellation.Requested() ? kExitCancelled : kExitDone;
    return cancellation.Requested() ? out.Found(kExitCancelled, "", facts) : out.Done("", facts);
}

}  // namespace

void RegisterEvents(CLI::App& root, Tool& tool) {
    const auto options = std::make_shared<EventOptions>();
    CLI::App& command = tool.AddCommand(
        root,
        {"events", "Read what the driver saw: bytes and the text found in them, with what was lost and a total",
         "events\nevents --follow --both --jsonl\nevents --registry --registry-from 4711"},
        [options](Output& out) {
            if (options->follow && out.Machine() && !out.Lines()) {
                return out.Refuse(kExitUsage, "--follow has no end, and --json is one document.",
                                  "Use --jsonl: one object for each event.");
            }
            return WithDriver(out, [&] { return Events(out, *options); });
        });
    tool.AllowJsonLines(command);
    command.add_flag("--follow", options->follow, "Go on until Ctrl-C");
    command.add_flag("--registry", options->registry, "The registry ring instead of the main one");
    command.add_flag("--both", options->both, "Both rings");
    command.add_flag("--bytes", options->bytes, "Show all bytes of each event, not only the first 40");
    command.add_option("--from", options->from, "Position in the main ring to go on from; 0 is the beginning");
    command.add_option("--registry-from", options->registryFrom, "The same for the registry ring");
    command.add_option("--capacity", options->capacity, "Events a poll")
        ->check(CLI::Range(1u, 65536u))
        ->capture_default_str();
    command.add_option("--interval", options->interval, "Milliseconds between polls with --follow")
        ->check(CLI::Range(1u, 3600000u))
        ->capture_default_str();
    command.add_option("--for", options->seconds, "With --follow, end after so many seconds")
        ->check(CLI::Range(1u, 86400u));
}

}  // namespace zoctl
