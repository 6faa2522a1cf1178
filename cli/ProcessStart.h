// What the program makes sure of before it does anything else.
#pragma once

namespace quelm {

// Opens /dev/null on each of the descriptors 0, 1 and 2 that is closed, so that no file or pipe of ours lands
// there, and puts SIGCHLD back to its default, so that children can be waited for under a caller that ignores
// it. Nothing else of the caller's state is touched.
void prepareProcess();

} // namespace quelm
