#include "ctl/command_line.h"

#include <algorithm>
#include <array>
#include <exception>
#include <string>
#include <string_view>

#include "ctl/commands.h"
#include "package/layout.h"

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

// The package's version has its digits apart: 4150 is 4.1.50.
std::string VersionText() {
  constexpr int kVersion = package::kCurrentVersion;
  return "updater-ctl " + std::to_string(kVersion / 1000) + "." + std::to_string(kVersion / 100 % 10) + "." +
         std::to_string(kVersion % 100) + ", upgrades to " + std::to_string(kVersion);
}

int RefuseArguments(const Streams& streams, const std::string& reason) {
  return TellReason(streams, reason + "\nRun with --help for more information.", kRefused);
}

// CLI11 would only say that the word was not expected.
bool IsUnknownCommand(int argc, const char* const* argv) {
  if (argc < 2 || argv[1][0] == '-') return false;
  return std::none_of(kCommands.begin(), kCommands.end(),
                      [&](const Command& command) { return argv[1] == std::string_view(command.name); });
}

int ParseAndRun(int argc, const char* const* argv, const Streams& streams) {
  CLI::App app("Tries the database upgrade out in an ordinary folder: no root, no mounted volume.",
               "updater-ctl");
  app.set_version_flag("--version", VersionText());
  app.require_subcommand(0, 1);  // none is refused below: CLI11 would do so before it looks at the options
  std::array<Action, kCommands.size()> actions;
  std::array<CLI::App*, kCommands.size()> subcommands = {};
  for (std::size_t i = 0; i < kCommands.size(); ++i) {
    subcommands[i] = app.add_subcommand(kCommands[i].name, kCommands[i].help);
    actions[i] = kCommands[i].define(*subcommands[i], streams);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // What ends the parsing without a failure is a question for the help or the version.
    if (error.get_exit_code() == 0) return app.exit(error, streams.out, streams.err);
    return RefuseArguments(streams, error.what());
  }
  for (std::size_t i = 0; i < kCommands.size(); ++i) {
    if (subcommands[i]->parsed()) return actions[i]();
  }
  return RefuseArguments(streams, "a command is required");
}

}  // namespace

int RunCommandLine(int argc, const char* const* argv, const Streams& streams) {
  if (IsUnknownCommand(argc, argv)) {
    return RefuseArguments(streams, std::string("unknown command '") + argv[1] + "'");
  }
  try {
    return ParseAndRun(argc, argv, streams);
  } catch (const std::exception& error) {  // most likely out of memory
    return TellReason(streams, std::string("unexpected failure: ") + error.what(), kFailed);
  }
}

}  // namespace ctl
