// What a rehearsal has found, for people at a terminal and for programs.
#pragma once

#include "ctl/output.h"
#include "ctl/rehearsal.h"
#include "ctl/streams.h"

namespace ctl {

// `folder` is where the copies are kept; empty: they are gone. In lines of at most 80 columns where names
// allow it.
void PrintRehearsal(const RehearsalPlace& place, const Rehearsal& rehearsal, const std::string& folder,
                    const Streams& streams);

// The document "updater-ctl.rehearse", which is described in docs/rehearsal.md.
[[nodiscard]] Json ToJson(const RehearsalPlace& place, const Rehearsal& rehearsal, const std::string& folder);

}  // namespace ctl
