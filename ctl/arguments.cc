#include "ctl/arguments.h"

#include <CLI/CLI.hpp>

namespace ctl {
namespace {

// What a script gives whose variable is not set.
std::string RefuseEmpty(const std::string& text) { return text.empty() ? "'' is no path" : ""; }

}  // namespace

Argument& Argument::Require() {
  option_->required();
  return *this;
}

Argument& Argument::ShowDefault() {
  option_->capture_default_str();
  return *this;
}

Argument& Argument::RequireFolder() {
  option_->check(CLI::ExistingDirectory);
  return *this;
}

Argument& Argument::Exclude(const Argument& other) {
  option_->excludes(other.option_);
  return *this;
}

Argument Arguments::AddFlag(const char* name, bool& value, const char* help) {
  return Argument(*command_->add_flag(name, value, help));
}

Argument Arguments::AddPath(const char* name, std::string& value, const char* help) {
  return Argument(*command_->add_option(name, value, help)->check(RefuseEmpty));
}

Argument Arguments::AddPath(const char* name, std::optional<std::string>& value, const char* help) {
  return Argument(*command_->add_option(name, value, help)->check(RefuseEmpty));
}

Argument Arguments::AddNumber(const char* name, int& value, int least, int most, const char* help) {
  return Argument(*command_->add_option(name, value, help)->check(CLI::Range(least, most)));
}

Argument Arguments::AddChoice(const char* name, int& value, const std::vector<int>& choices,
                              const char* help) {
  return Argument(
      *command_->add_option(name, value, help)
           ->check(CLI::TypeValidator<int>(""))  // the next one has no reason where it is no number
           ->check(CLI::IsMember(choices)));
}

Argument Arguments::AddJsonFlag(bool& value) {
  return AddFlag("--json", value, "Write one JSON document instead of text");
}

void Arguments::SetFooter(const char* text) { command_->footer(text); }

}  // namespace ctl
