// The options of each changing command, in the order in which they are printed. Each is defined beside its
// command.
#pragma once

#include "commands/CommandOptions.h"

namespace quelm {

CommandOptions addOptions();
CommandOptions removeOptions();
CommandOptions updateOptions();
CommandOptions rereadOptions();

} // namespace quelm
