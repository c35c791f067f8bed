#include "ctl/command_line.h"

#include <array>
#include <ostream>

#include "ctl/commands.h"

namespace ctl {
namespace {

struct Command {
  const char* name;
  const char* help;
  Definition define;
};

// Another command is another row.
constexpr std::array kCommands = {
    Command{"sample", "Make a sample volume with real databases in a folder", DefineSample},
    Command{"run", "Upgrade the databases in a folder and show what happened", DefineRun},
};

}  // namespace

int RunCommandLine(int argc, const char* const* argv, const Streams& streams) {
  CLI::App app("Tries the database upgrade out in an ordinary folder: no root, no mounted volume.",
               "updater-ctl");
  app.require_subcommand(1);
  std::array<Action, kCommands.size()> actions;
  std::array<CLI::App*, kCommands.size()> subcommands = {};
  for (std::size_t i = 0; i < kCommands.size(); ++i) {
    subcommands[i] = app.add_subcommand(kCommands[i].name, kCommands[i].help);
    actions[i] = kCommands[i].define(*subcommands[i], streams);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, streams.out, streams.err);
  }
  for (std::size_t i = 0; i < kCommands.size(); ++i) {
    if (subcommands[i]->parsed()) return actions[i]();
  }
  return 1;  // not reached: one command is required
}

}  // namespace ctl
