#pragma once

#include <string>
#include <vector>

namespace gvx {

// Those of the words that may be meant by a misspelt one, the nearest first, at most three. Upper and lower case count
// as the same. A word is near when at most a third of the misspelt one, two letters at least, would have to change.
// Empty for a text of more than 128 bytes. Any thread.
std::vector<std::string> NearWords(const std::string& misspelt, const std::vector<std::string>& words);

}  // namespace gvx
