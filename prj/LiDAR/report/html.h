// prj/LiDAR/report/html.h
// Pieces of a page that needs nothing beside it: text, tables, pictures as data.
#pragma once
#include <ostream>
#include <string>
#include <vector>

namespace veld {
std::string html_text(const std::string& text);  // with its special characters escaped; no control characters

// A table; cells are text, those of the first column head their rows. right: columns of numbers, from this one on.
void put_table(std::ostream& os, const std::string& caption, const std::vector<std::string>& head,
               const std::vector<std::vector<std::string>>& rows, size_t right);

// The picture in a JPEG file, as a figure with its caption. False, and nothing is put, without the file or when it
// has more than max_bytes. small: drawn at a width of its own, pixels enlarged.
bool put_picture(std::ostream& os, const std::string& path, const std::string& caption, uint64_t max_bytes,
                 bool small = false);

std::string base64(const std::string& bytes);
// The head of the page with its style, and its end.
void put_page_begin(std::ostream& os, const std::string& title);
void put_page_end(std::ostream& os);
}  // namespace veld
