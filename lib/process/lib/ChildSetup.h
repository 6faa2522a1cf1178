// Around fork: what the parent does just before it, and what a child does before its exec.
#pragma once

namespace quelm {

// Call it right before every fork. Flushes the standard streams, so that no child can print the parent's
// pending text again, and resets SIGCHLD to its default for good, because under an ignored SIGCHLD a child
// cannot be waited for. Preserves errno.
void prepareFork();

// Call it first in the child: fatal_message now leaves with _exit, SIGPIPE and SIGCHLD are at their defaults,
// SIGXFSZ is as the caller left it and no signal is blocked, as an ordinary program expects.
void enterChild();

// Puts a descriptor on `slot` (0, 1 or 2). One that is already in its slot is unchanged; -1 means /dev/null,
// open for reading and writing; any other is copied and then closed, so each can be given only once. False
// with the reason in errno.
bool placeDescriptor(int descriptor, int slot);

// What a child gets as standard input, output and error; -1 means /dev/null.
struct ChildDescriptors {
    int input;
    int output;
    int error;
};

// Puts the descriptors on 0, 1 and 2; the same one may be given more than once, in any order. What was open
// on 0, 1 and 2 is lost, and so are the originals beyond 2. False with the reason in errno.
bool placeDescriptors(const ChildDescriptors& descriptors);

// Closes every open descriptor from `lowest` up; a negative number means from 0. Never fails and preserves
// errno. Call it qualified: the C library declares a function of this name too.
void closefrom(int lowest);

// Ends a child that will not exec: flushes stdout and stderr and leaves without running the destructors and
// exit handlers of the parent's copy.
[[noreturn]] void leaveChild(int status);

} // namespace quelm
