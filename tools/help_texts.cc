#include "tools/help_texts.h"

#include <initializer_list>
#include <string_view>

#include "recording/attribute_lines.h"
#include "tools/attributes.h"

namespace vt::tools {
namespace {

// All texts keep to lines of 80 columns.
constexpr std::size_t kLineWidth = 80;

constexpr std::string_view kExitCodes = R"(
Exit codes: 0 all answers arrived and were verified; 1 some did; 2 wrong usage,
a key file that others may open, or a query that does not fit; 3 no connection;
4 connected, but no answer in time; 5 nothing but answers of another key;
6 answers that cannot be decoded, or that broke off; 7 all devices refused;
8 answered, but no device was concerned; 9 no memory, or the output cannot be
written; 128+n ended by signal n. Of several nodes none of which answered, the
one that tells most counts: in the order 5, 6, 7, 8, 4, 3.
)";

constexpr std::string_view kEnvironment = R"(
What --NAME sets can come from the environment, VOLTARIS_NAME, and from
configuration files as well; see voltaris config --help. NO_COLOR switches
colours off.
)";

constexpr std::string_view kSelection = R"(
Without --name, --role, --keyword and --id every device of the domain is meant.
Options of different kinds must all hold, of the same kind one. Names and roles
may end in a star. Devices obey queries whose priority is not below their
importance.
)";

constexpr std::string_view kGeneral = R"(Examples:
  voltaris collect -d office
  voltaris set -d office --role lamp level=3 --yes
  voltaris sum -d office --role lamp
  voltaris record -d office -o office.recording
  voltaris -N examples/targets.toml -n here collect -o csv
  voltaris nodes -n 'pdu[01-40].lab'

They can be tried with: voltaris-node --config examples/office.toml
)";

constexpr std::string_view kCollect = R"(Examples:
  voltaris collect -d office
  voltaris collect -d office name role keywords --keyword floor2
  voltaris collect -d office -a usage,usage-vector --name 'lamp*' -o json
  voltaris collect -d office --columns name,usage --sort usage:desc

Attributes:
)";

constexpr std::string_view kSet = R"(Examples:
  voltaris set -d office --role lamp level=3 --dry-run
  voltaris set -d office --role lamp level=3 --max-devices 10 --yes
  voltaris set -d office --name printer-2 name=printer-west importance=40 --yes

Attributes that can be set: name, role, keywords, level, importance.

First it collects with the same qualifiers, to see which devices are concerned.
Then it asks whether to set them, where standard input and standard error are a
terminal, and needs --yes elsewhere. A set is never sent twice, and not to nodes
that did not tell all of their devices. What was set is told on standard error,
each refusal as well.
)";

constexpr std::string_view kSum = R"(Examples:
  voltaris sum -d office --role lamp
  voltaris sum -d office -a usage,delta-vector -o json

Attributes: usage (the default), delta-vector.
)";

constexpr std::string_view kRecord = R"(Examples:
  voltaris record -d office -o office.recording
  voltaris record -d office name usage level --role lamp -o lamps.recording
  voltaris record -d office --anonymize -o for-the-bug-report.recording

voltaris-node --replay office.recording answers as the recorded devices did.

A recording is text, one value a line. It is written when the answer is
complete, or not at all. Without --output it goes to standard output.

--anonymize replaces identities by digests under a key that is made for this one
recording and forgotten, and the domain, names, roles, keywords, labels, other
texts and addresses by counted stand-ins; equal ones stay equal. Numbers stay.

Attributes:
)";

constexpr std::string_view kCheck = R"(Examples:
  voltaris check -d office -w 500 -c 600
  voltaris check -d office --role lamp -c entities=3: -w largest=60

It writes one line for a monitoring system, with performance data behind the
bar, and lines with details. Metrics: total (power of all entities in watts; the
one that is meant without a name), largest and smallest (power of one entity),
entities (how many answered), unreachable (nodes without a connection or without
an answer in time).

Ranges, outside of which is the alert: 20 (from 0 to 20), 10: (10 and above),
~:5 (5 and below), 10:20. With @ in front it is inside: @10:20.

Exit codes: 0 ok; 1 warning; 2 critical; 3 unknown, which is also wrong usage,
and a node that failed, unless --on-failure says otherwise. What is critical
whatever such nodes would have told stays critical. Nodes without a connection
or an answer do not count as failed where unreachable has a range, nor does a
lack of devices where entities has one.
)";

constexpr std::string_view kPing = R"(Examples:
  voltaris ping -d office
  voltaris ping -d office -n 127.0.0.1,localhost -c 3 -i 0.2 -o json

Each round trip is a connection, a signed query, and the first message of the
answer that is verified; a refusal is an answer, too. Phases are in
milliseconds: name (once), connect, send, first byte, verify. --timeout counts
for each round trip.
)";

constexpr std::string_view kWatch = R"(Examples:
  voltaris watch -d office
  voltaris watch -d office --sort usage:desc --role lamp -i 10
  voltaris watch -d office --count 3 -i 0.5 | cat

On a terminal it fills the screen; the last line tells the keys. Elsewhere it
writes the rows of each round as lines, an empty one behind them. Changes are
since the first round. Nodes that fail are told of and asked again in the next
round. --timeout counts for each round. With --count the exit code is that of
the last round.
)";

std::string Joined(std::initializer_list<std::string_view> texts) {
  std::string joined;
  for (const std::string_view text : texts) joined += text;
  return joined;
}

}  // namespace

std::string GeneralHelp() { return Joined({kGeneral, kExitCodes, kEnvironment}); }

std::string CollectHelp() {
  return Joined({kCollect, AttributeHelp(), kSelection, kExitCodes, kEnvironment});
}

std::string SetHelp() { return Joined({kSet, kSelection, kExitCodes, kEnvironment}); }

std::string SumHelp() { return Joined({kSum, kSelection, kExitCodes, kEnvironment}); }

std::string RecordHelp() {
  return Joined({kRecord, RecordableWords(), kSelection, kExitCodes, kEnvironment});
}

// It has exit codes of its own.
std::string CheckHelp() { return Joined({kCheck, kSelection, kEnvironment}); }

std::string PingHelp() { return Joined({kPing, kSelection, kExitCodes, kEnvironment}); }

std::string WatchHelp() { return Joined({kWatch, kSelection, kExitCodes, kEnvironment}); }

std::string RecordableWords() {
  std::string words;
  std::string line(1, ' ');
  for (const recording::AttributeLines& row : recording::RecordableAttributes()) {
    if (line.size() + row.word().size() + 2 > kLineWidth) {
      words += line + '\n';
      line.resize(1);
    }
    line += ' ' + std::string(row.word()) + ',';
  }
  line.back() = '\n';
  return words + line;
}

}  // namespace vt::tools
