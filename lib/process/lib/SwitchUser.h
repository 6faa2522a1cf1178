// Gives up the utility's own user for another one, for good.
#pragma once

namespace quelm {

// Bits of p_setuid's `flags`.
inline constexpr unsigned setuidChdirHome = 1;  // change to the user's home directory
inline constexpr unsigned setuidAllowRoot = 2;  // uid 0 is permitted
inline constexpr unsigned setuidChrootHome = 4; // change the root to the user's home directory

// Makes the process run as `user` with that user's groups. Returns 0; every failure ends the process with
// status 1 after a message of fatal_message, so it belongs into a forked child. A user that does not exist
// prints the line of findUser first.
int p_setuid(const char* user, unsigned flags);

} // namespace quelm
