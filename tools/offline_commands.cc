#include "tools/offline_commands.h"

#include "tools/attrs_command.h"
#include "tools/completion_command.h"
#include "tools/config_command.h"
#include "tools/decode_command.h"
#include "tools/id_command.h"
#include "tools/key_command.h"
#include "tools/nodes_command.h"

namespace vt::tools {

void AddOfflineCommands(CLI::App& app, Action& chosen) {
  AddNodesCommand(app, chosen);
  AddAttrsCommand(app, chosen);
  AddDecodeCommand(app, chosen);
  AddKeyCommand(app, chosen);
  AddIdCommand(app, chosen);
  AddConfigCommand(app, chosen);
  AddCompletionCommand(app, chosen);
}

}  // namespace vt::tools
