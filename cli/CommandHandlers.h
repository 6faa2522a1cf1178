// The contract that every command comes to: called with its own word as argument 0 and its options behind it,
// it returns the exit status. It may throw; the entry point turns the exception into a message and a status.
#pragma once

namespace quelm {

using CommandHandler = int (*)(int argc, char** argv);

int addCommand(int argc, char** argv);
int removeCommand(int argc, char** argv);
int updateCommand(int argc, char** argv);
int listJsonCommand(int argc, char** argv);
int listCommand(int argc, char** argv);
int rereadCommand(int argc, char** argv);

} // namespace quelm
