// lib/optparser/opttags.h
// Tagged option files: option lines like those of the persistent file, and a tree of tags.
#pragma once
#include <string>
#include <utility>
#include <vector>

#include "lib/optparser/optparser.h"

namespace veld {
struct TagLine {
  std::string name;
  bool closing = false;
  std::vector<std::pair<std::string, std::string>> attr;  // names as given, values without quotes
  // The value of an attribute (name compared without case), or null.
  const std::string* find(const std::string& attribute) const;
};

// Reads a tagged file: option tokens into tokens, tags and values into p.taglist. False after an ERROR line.
[[nodiscard]] bool AddFileOpt(OptParser& p, const std::string& path,
                              const std::vector<std::string>& list_tags, std::vector<std::string>& tokens);

// Takes a tag of the tag list, "<name attribute="value" ...>", apart. False after ERROR lines.
[[nodiscard]] bool ParseTagLine(const std::string& line, TagLine& tag);

bool is_tag(const std::string& text);  // an entry of the tag list that is a tag, not a value
bool equal_nocase(const std::string& a, const std::string& b);

// Splits an option line at blanks outside quotes, "=" counting as a blank; quotes are removed. False when a
// quote stays open.
[[nodiscard]] bool split_option_line(const std::string& line, std::vector<std::string>& tokens);
}  // namespace veld
