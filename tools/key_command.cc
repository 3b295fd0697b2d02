#include "tools/key_command.h"

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "vtapi.hpp"

#include "tools/identities.h"
#include "tools/key_material.h"
#include "tools/printable.h"
#include "tools/secret_file.h"

namespace vt::tools {
namespace {

constexpr const char* kKeyExamples =
    R"(Examples:
  voltaris key generate new.key
  voltaris key derive --passphrase-file office.phrase --id-file office.id my.key
  voltaris key check office.key

Files are made with mode 600, and never overwritten. Files with secrets are
refused when group or others may open them. No flag takes a key: every user of
the machine can read the command lines of all.
)";

constexpr const char* kDeriveHelp =
    R"(Who knows passphrase and identity derives the same key: HMAC-SHA1 of the 32
bytes of the identity under the passphrase. That is quick, for who tries
passphrases as well: take one of six random words or more. A line end behind the
passphrase does not count.
)";

struct DeriveArguments {
  std::string passphrase_file;
  std::string id;
  std::string id_file;
  std::string file;
};

void AddGenerate(CLI::App& key, Action& chosen) {
  const auto file = std::make_shared<std::string>();
  CLI::App* generate = key.add_subcommand("generate", "Makes a file with a new random key.");
  generate->footer(
      "Examples:\n  voltaris key generate new.key\n  voltaris key generate ~/voltaris.key\n");
  generate->add_option("file", *file, "file to make")->required()->type_name("FILE");
  generate->callback([file, &chosen] {
    chosen = [file](const Streams& /*streams*/) {
      WriteSecretFile(*file, RandomKey().text());
      return kExitOk;
    };
  });
}

voltaris::DeviceId IdentityOf(const DeriveArguments& arguments) {
  if (arguments.id.empty() == arguments.id_file.empty()) {
    throw Failure(kExitUsage, "key derive needs one of --id and --id-file");
  }
  if (!arguments.id.empty()) return ParseIdentity(arguments.id);
  return DeviceOf(ReadIdentityFile(arguments.id_file));
}

ExitCode Derive(const DeriveArguments& arguments) {
  const voltaris::DeviceId identity = IdentityOf(arguments);
  const Secret passphrase = ReadSecretFile(arguments.passphrase_file, kLongestPassphrase);
  WriteSecretFile(arguments.file, DerivedKey(passphrase.text(), identity).text());
  return kExitOk;
}

void AddDerive(CLI::App& key, Action& chosen) {
  const auto arguments = std::make_shared<DeriveArguments>();
  CLI::App* derive =
      key.add_subcommand("derive", "Makes a file with the key of a passphrase and an identity.");
  derive->footer(
      "Examples:\n"
      "  voltaris key derive --passphrase-file office.phrase --id-file office.id my.key\n"
      "  voltaris key derive --passphrase-file office.phrase \\\n"
      "      --id 0123456789abcdef0123456789abcdef my.key\n\n" +
      std::string(kDeriveHelp));
  derive->add_option("--passphrase-file", arguments->passphrase_file, "file with the passphrase")
      ->required()
      ->type_name("FILE");
  derive->add_option("--id", arguments->id, "identity, 32 characters or 64 hexadecimal digits")
      ->type_name("ID");
  derive->add_option("--id-file", arguments->id_file, "file with the identity")->type_name("FILE");
  derive->add_option("file", arguments->file, "file to make")->required()->type_name("FILE");
  derive->callback([arguments, &chosen] {
    chosen = [arguments](const Streams& /*streams*/) { return Derive(*arguments); };
  });
}

ExitCode Check(const std::vector<std::string>& files, const Streams& streams) {
  bool all_right = true;
  for (const std::string& file : files) {
    try {
      (void)ReadKeyFile(file);
      streams.out << Printable(file) << ": holds a key\n";
    } catch (const Failure& failure) {
      streams.complain(failure.what());
      all_right = false;
    }
  }
  return all_right ? kExitOk : kExitUsage;
}

void AddCheck(CLI::App& key, Action& chosen) {
  const auto files = std::make_shared<std::vector<std::string>>();
  CLI::App* check = key.add_subcommand("check", "Tells whether files hold keys and are safe.");
  check->footer(
      "Examples:\n  voltaris key check office.key\n"
      "  voltaris key check *.key\n\n"
      "Exit codes: 0 all can be used; 2 at least one cannot.\n");
  check->add_option("file", *files, "files to check")->required()->type_name("FILE");
  check->callback([files, &chosen] {
    chosen = [files](const Streams& streams) { return Check(*files, streams); };
  });
}

}  // namespace

void AddKeyCommand(CLI::App& app, Action& chosen) {
  CLI::App* key = app.add_subcommand("key", "Makes, derives and checks files with keys.");
  key->footer(kKeyExamples);
  key->require_subcommand(1);
  AddGenerate(*key, chosen);
  AddDerive(*key, chosen);
  AddCheck(*key, chosen);
}

}  // namespace vt::tools
