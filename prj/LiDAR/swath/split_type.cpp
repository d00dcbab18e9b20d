#include "prj/LiDAR/swath/split_type.h"

#include <iterator>

namespace veld {
namespace {
// In the order of the types.
const char* const WORDS[] = {"sd", "ch", "sa", "ud", "id", "cl", "bi"};
}  // namespace

const char* split_word(SplitType type) { return WORDS[static_cast<size_t>(type)]; }

bool parse_split_type(const std::string& word, SplitType& type) {
  for (size_t i = 0; i < std::size(WORDS); i++)
    if (word == WORDS[i]) {
      type = static_cast<SplitType>(i);
      return true;
    }
  return false;
}
}  // namespace veld
