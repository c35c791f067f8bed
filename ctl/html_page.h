// A rehearsal as a page that needs no other file: for a phone, a screen in the dark, and paper.
#pragma once

#include <string>

#include "ctl/output.h"

namespace ctl {

// How every page begins.
inline constexpr const char* kPageBegin = "<!DOCTYPE html>\n<html lang=\"en\">\n";

// The page for a document "updater-ctl.rehearse". It runs no script, and whatever comes from databases, paths
// or logs stands in it as text.
[[nodiscard]] std::string HtmlPageOf(const Json& document);

}  // namespace ctl
