// What a command can be told. The library that parses it is known to two source files alone, as its headers
// take longer to compile than any command.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace ctl {

// What is said of one argument besides its name and its help. It lives as long as its command.
class Argument {
 public:
  explicit Argument(CLI::Option& option) : option_(&option) {}

  Argument& Require();
  Argument& RequireFolder();                 // that is there
  Argument& ShowDefault();                   // in the help
  Argument& Exclude(const Argument& other);  // the two are refused together

 private:
  CLI::Option* option_;
};

// The arguments of one command. A name that begins with dashes is an option, another one a position; each has
// a variable that parsing fills and that has to be there until then.
class Arguments {
 public:
  explicit Arguments(CLI::App& command) : command_(&command) {}

  Argument AddFlag(const char* name, bool& value, const char* help);
  // A path, which is refused where it is empty.
  Argument AddPath(const char* name, std::string& value, const char* help);
  Argument AddPath(const char* name, std::optional<std::string>& value, const char* help);  // none: not given
  Argument AddNumber(const char* name, int& value, int least, int most, const char* help);
  Argument AddChoice(const char* name, int& value, const std::vector<int>& choices, const char* help);
  Argument AddJsonFlag(bool& value);

  // What the help ends with: examples.
  void SetFooter(const char* text);

 private:
  CLI::App* command_;
};

}  // namespace ctl
