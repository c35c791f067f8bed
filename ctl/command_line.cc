#include "ctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "ctl/commands.h"
#include "ctl/program_version.h"
#include "logger/recording_sink.h"
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
    Command{"status", "Show what is on a volume: versions, logs, copies, a pending commit", DefineStatus},
    Command{"check", "Look before an upgrade what it would do and what would go wrong", DefineCheck},
    Command{"plan", "Show the version graph and the chain of updaters from a version", DefinePlan},
    Command{"rehearse", "Try the upgrade on copies: will it succeed, how long, what changes", DefineRehearse},
    Command{"verify", "Look after an upgrade whether all databases are whole and new", DefineVerify},
    Command{"save", "Save all databases of a volume in one file, the way back", DefineSave},
    Command{"restore", "Put a save back, all of it or nothing", DefineRestore},
    Command{"diff", "Compare two volumes, saves or databases, table by table", DefineDiff},
    Command{"sample", "Make a sample volume with real databases in a folder", DefineSample},
    Command{"run", "Upgrade the databases in a folder and show what happened", DefineRun},
    Command{"report", "Read the log lines of a run: how it ended, why, and what to do", DefineReport},
};

// Breaks what is said of options and commands between words, so that it stays within 80 columns.
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_option_desc(const CLI::Option* option) const override {
    return Broken(CLI::Formatter::make_option_desc(option));
  }
  std::string make_subcommand(const CLI::App* command) const override {
    std::ostringstream out;
    CLI::detail::format_help(out, command->get_name(), Broken(command->get_description()),
                             get_column_width());
    return out.str();
  }

 private:
  [[nodiscard]] std::string Broken(std::string text) const {
    const std::size_t room = 80 - get_column_width();
    for (std::size_t begin = 0; text.size() - begin > room; ++begin) {
      const std::size_t blank = text.rfind(' ', begin + room);
      if (blank == std::string::npos || blank < begin) break;
      text[blank] = '\n';
      begin = blank;
    }
    return text;
  }
};

std::string VersionText() {
  return "updater-ctl " + ProgramVersion() + ", upgrades to " + std::to_string(package::kCurrentVersion);
}

int RefuseArguments(const Streams& streams, const std::string& reason) {
  const int status = TellReason(streams, reason, kRefused);
  streams.err << "Run with --help for more information.\n";
  return status;
}

// A report that is cut short must not look like a whole one.
int Finish(int status, const Streams& streams) {
  return streams.out.flush() ? status : TellReason(streams, "cannot write the report", kRefused);
}

// CLI11 would only say that the word was not expected.
bool IsUnknownCommand(int argc, const char* const* argv) {
  if (argc < 2 || argv[1][0] == '-') return false;
  return std::none_of(kCommands.begin(), kCommands.end(),
                      [&](const Command& command) { return argv[1] == std::string_view(command.name); });
}

int ParseAndRun(int argc, const char* const* argv, const Streams& streams) {
  CLI::App app("Looks at the databases of a volume before, while and after updater-svr\nupgrades them.",
               "updater-ctl");
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_version_flag("--version", VersionText());
  app.require_subcommand(0, 1);  // none is refused below: CLI11 would do so before it looks at the options
  std::array<Action, kCommands.size()> actions;
  std::array<CLI::App*, kCommands.size()> subcommands = {};
  for (std::size_t i = 0; i < kCommands.size(); ++i) {
    subcommands[i] = app.add_subcommand(kCommands[i].name, kCommands[i].help);
    Arguments arguments(*subcommands[i]);
    actions[i] = kCommands[i].define(arguments, streams);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // What ends the parsing without a failure is a question for the help or the version.
    if (error.get_exit_code() == 0) return app.exit(error, streams.out, streams.err);
    return RefuseArguments(streams, error.what());
  }
  for (std::size_t i = 0; i < kCommands.size(); ++i) {
    if (subcommands[i]->parsed()) return Finish(actions[i](), streams);
  }
  return RefuseArguments(streams, "a command is required");
}

}  // namespace

int RunCommandLine(int argc, const char* const* argv, const Streams& streams) {
  if (IsUnknownCommand(argc, argv)) {
    return RefuseArguments(streams, std::string("unknown command '") + argv[1] + "'");
  }
  // What looks must not write to the system log either; a run has a sink of its own.
  logger::RecordingSink unseen;
  const logger::ScopedSink scope(unseen);
  try {
    return ParseAndRun(argc, argv, streams);
  } catch (const std::exception& error) {  // most likely out of memory
    return TellReason(streams, std::string("unexpected failure: ") + error.what(), kFailed);
  }
}

}  // namespace ctl
