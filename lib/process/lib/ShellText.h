// Argument vectors as a person would type them.
#pragma once

#include <string>
#include <vector>

namespace quelm {

// The arguments up to the null pointer, joined by single spaces. An empty argument reads ''; a newline stands
// between apostrophes; TAB, space and "#$&'()*;<>?[\`|~ get a backslash; every other byte is kept. Kept for
// the hook log and its readers: other bytes that a shell would treat (such as '!' or '{') stay bare.
std::string shellText(const std::vector<char*>& arguments);

} // namespace quelm
