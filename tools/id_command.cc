#include "tools/id_command.h"

#include <array>
#include <memory>
#include <ostream>
#include <string>

#include "tools/identities.h"
#include "tools/secret_file.h"

namespace vt::tools {
namespace {

constexpr const char* kIdExamples =
    R"(Examples:
  voltaris id random
  voltaris id random --file new.id
  voltaris id mac 00:11:22:33:44:55
  voltaris id parts ACME-PDU-2000-0001 A01 00042 b12-r7

An identity is 32 characters. With --file it goes into a new file of mode 600
instead of to standard output: whoever asks without a key signs with the
identity, which is a secret then.
)";

// File is the path that --file names, empty without one.
using File = std::shared_ptr<std::string>;

ExitCode Deliver(const std::string& identity, const std::string& file, const Streams& streams) {
  if (file.empty()) {
    streams.out << identity << '\n';
  } else {
    WriteSecretFile(file, identity + '\n');
  }
  return kExitOk;
}

CLI::App* AddKind(CLI::App& id, const std::string& name, const std::string& meaning,
                  const std::string& examples, const File& file) {
  CLI::App* kind = id.add_subcommand(name, meaning);
  kind->footer("Examples:\n" + examples);
  kind->add_option("--file", *file, "file to make, instead of standard output")->type_name("FILE");
  return kind;
}

void AddRandom(CLI::App& id, Action& chosen) {
  const File file = std::make_shared<std::string>();
  CLI::App* random = AddKind(id, "random", "A fresh random identity.",
                             "  voltaris id random\n  voltaris id random --file new.id\n", file);
  random->callback([file, &chosen] {
    chosen = [file](const Streams& streams) { return Deliver(RandomIdentity(), *file, streams); };
  });
}

void AddMac(CLI::App& id, Action& chosen) {
  const File file = std::make_shared<std::string>();
  const auto mac = std::make_shared<std::string>();
  CLI::App* command =
      AddKind(id, "mac", "The identity that goes with a hardware address.",
              "  voltaris id mac 00:11:22:33:44:55\n  voltaris id mac 001122334455\n", file);
  command->add_option("mac", *mac, "hardware address")->required()->type_name("MAC");
  command->callback([file, mac, &chosen] {
    chosen = [file, mac](const Streams& streams) {
      return Deliver(IdentityOfMac(*mac), *file, streams);
    };
  });
}

void AddParts(CLI::App& id, Action& chosen) {
  const File file = std::make_shared<std::string>();
  const auto parts = std::make_shared<std::array<std::string, 4>>();
  CLI::App* command = AddKind(id, "parts", "An identity of four parts, one behind the other.",
                              "  voltaris id parts ACME-PDU-2000-0001 A01 00042 b12-r7\n"
                              "  voltaris id parts 000000000000000001 001 00001 000001\n",
                              file);
  for (std::size_t i = 0; i < parts->size(); ++i) {
    const std::string size = std::to_string(kIdentityPartSizes[i]);
    command->add_option("part" + std::to_string(i + 1), (*parts)[i], size + " characters")
        ->required()
        ->type_name("TEXT");
  }
  command->callback([file, parts, &chosen] {
    chosen = [file, parts](const Streams& streams) {
      return Deliver(IdentityOfParts(*parts), *file, streams);
    };
  });
}

}  // namespace

void AddIdCommand(CLI::App& app, Action& chosen) {
  CLI::App* id = app.add_subcommand("id", "Makes identities.");
  id->footer(kIdExamples);
  id->require_subcommand(1);
  AddRandom(*id, chosen);
  AddMac(*id, chosen);
  AddParts(*id, chosen);
}

}  // namespace vt::tools
