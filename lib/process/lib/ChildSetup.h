// The moments around fork: what the parent does just before it, and what a child does before its exec.
#pragma once

namespace quelm {

// Call it right before every fork. Flushes the standard streams, so that no child can print the parent's
// pending text again, and puts SIGCHLD to its default, because under an ignored SIGCHLD a child cannot be
// waited for; that disposition stays. Keeps errno.
void prepareFork();

// Call it first in the child: fatal_message now leaves with _exit, SIGPIPE and SIGCHLD are at their defaults
// and no signal is blocked, as an ordinary program expects.
void enterChild();

// Puts a descriptor on `slot` (0, 1 or 2). One that stands there already is left alone; -1 means /dev/null,
// open for reading and writing; any other is copied and then closed, so each can be given only once. False
// with the reason in errno.
bool placeDescriptor(int descriptor, int slot);

// The end of a child that will not exec: flushes stdout and stderr and leaves without running the
// destructors and exit handlers of the parent's copy.
[[noreturn]] void leaveChild(int status);

} // namespace quelm
