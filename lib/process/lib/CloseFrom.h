// Makes sure that a child inherits nothing but what it is meant to have.
#pragma once

namespace quelm {

// Closes every open descriptor from `lowest` up; a negative number means from 0. Never fails and keeps errno.
// Call it qualified: the C library declares a function of this name too.
void closefrom(int lowest);

} // namespace quelm
