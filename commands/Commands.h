// Every command. A command gets its own word as argument 0, followed by its options, and returns the exit
// status. It may throw; main turns the exception into a message and a status.
#pragma once

namespace quelm {

class CommandOptions;

using CommandHandler = int (*)(int argc, char** argv);

int addCommand(int argc, char** argv);
int listCommand(int argc, char** argv);
int listJsonCommand(int argc, char** argv);
int removeCommand(int argc, char** argv);
int rereadCommand(int argc, char** argv);
int updateCommand(int argc, char** argv);

// The options of each command that has any, in the order in which they are printed.
CommandOptions addOptions();
CommandOptions removeOptions();
CommandOptions rereadOptions();
CommandOptions updateOptions();

} // namespace quelm
