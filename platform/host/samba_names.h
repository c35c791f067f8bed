// How the file server compares names. No locale of the machine takes part.
#pragma once

#include <string>
#include <string_view>

namespace platform::host {

// A share's name in the form in which names are compared: in lower case, as far as the file server knows
// cases. Blanks count. Bytes that are no UTF-8 stay as they are.
[[nodiscard]] std::string FoldShareName(std::string_view name);

// A parameter's name, or a value that is one of a few words: there blanks do not count.
[[nodiscard]] std::string FoldSambaWord(std::string_view word);

// A yes-or-no parameter that says yes.
[[nodiscard]] bool IsSambaYes(std::string_view value);

}  // namespace platform::host
