// tests/support/args.h
#pragma once
#include <sstream>
#include <string>
#include <vector>

namespace veld {
// Arguments of a command line: the words of a text, or a list where a word holds blanks.
struct Args : std::vector<std::string> {
  Args() = default;
  Args(const char* text) {
    std::istringstream words(text);
    for (std::string word; words >> word;) push_back(word);
  }
  Args(std::initializer_list<std::string> list) : vector(list) {}
  Args(std::vector<std::string> list) : vector(std::move(list)) {}
  friend Args operator+(Args a, const Args& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  }
};
}  // namespace veld
