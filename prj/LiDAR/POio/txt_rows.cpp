#include "prj/LiDAR/POio/txt_rows.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "lib/general/path.h"

namespace veld {
bool LineReader::open(const std::string& path, uint64_t pos) {
  const int64_t size = file_size(path);
  if (size < 0 || !file_.open(path)) return false;
  size_ = static_cast<uint64_t>(size);
  pos_ = std::min(pos, size_);
  begin_ = end_ = 0;
  failed_ = false;
  return file_.seek(pos_);
}

bool LineReader::fill() {
  if (begin_ > 0) {
    std::memmove(buf_.data(), buf_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  const uint64_t n = std::min<uint64_t>(buf_.size() - end_, size_ - pos_);
  if (n == 0) return false;
  if (!file_.read(buf_.data() + end_, n)) {
    failed_ = true;
    return false;
  }
  pos_ += n;
  end_ += n;
  return true;
}

bool LineReader::next(std::string_view& line) {
  bool skipping = false;  // inside a line that didn't fit
  uint64_t seen = 0;      // of the unread part: no line end in it
  for (;;) {
    const char* start = buf_.data() + begin_;
    const void* hit = end_ > begin_ + seen ? std::memchr(start + seen, '\n', end_ - begin_ - seen) : nullptr;
    uint64_t n = 0;
    if (hit) {
      n = static_cast<uint64_t>(static_cast<const char*>(hit) - start);
      begin_ += n + 1;
    } else {
      seen = end_ - begin_;
      if (seen == buf_.size()) {  // no room for the rest of it
        begin_ = end_ = seen = 0;
        skipping = true;
      }
      if (fill()) continue;
      if (failed_ || begin_ == end_) return false;
      start = buf_.data() + begin_;
      n = end_ - begin_;
      begin_ = end_;
    }
    if (skipping) {
      skipping = false;
      seen = 0;
      continue;
    }
    line = std::string_view(start, n);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return true;
  }
}

bool parse_PO_columns(const std::string& letters, POcolumns& col) {
  const std::string use = letters.empty() ? "txyzwpk" : letters;
  struct Row {
    char letter;
    int POcolumns::*column;
  };
  static constexpr Row rows[] = {{'t', &POcolumns::t}, {'x', &POcolumns::x}, {'y', &POcolumns::y},
                                 {'z', &POcolumns::z}, {'w', &POcolumns::w}, {'p', &POcolumns::p},
                                 {'k', &POcolumns::k}};
  col = POcolumns();
  bool ok = use.size() <= 100;
  for (size_t i = 0; i < use.size() && ok; i++) {
    ok = use[i] >= 'a' && use[i] <= 'z';
    for (const Row& row : rows) {
      if (row.letter != use[i]) continue;
      ok = ok && col.*row.column < 0;
      col.*row.column = static_cast<int>(i);
      col.cmax = static_cast<int>(i);
    }
  }
  const bool attitude = col.k >= 0 || (col.w < 0 && col.p < 0);
  if (!ok || col.t < 0 || col.x < 0 || col.y < 0 || col.z < 0 || !attitude) {
    ERROR_MSG("invalid PO columns '" << use
                                     << "', t x y z required, w and p only with k (check option -po_parse)");
    return false;
  }
  return true;
}

int split_fields(std::string_view line, const FieldStyle& style, std::string_view (&field)[MAX_PO_FIELDS]) {
  const auto blank = [&](char c) { return c == ' ' || (c == '\t' && style.soft_tabs); };
  const auto separator = [&](char c) {
    return c == ';' || (c == ',' && !style.decimal_comma) || (c == '\t' && !style.soft_tabs);
  };
  int n = 0;
  size_t i = 0;
  while (i < line.size() && blank(line[i])) i++;
  while (i < line.size() && n < MAX_PO_FIELDS) {
    const size_t start = i;
    while (i < line.size() && !blank(line[i]) && !separator(line[i])) i++;
    field[n++] = line.substr(start, i - start);
    while (i < line.size() && blank(line[i])) i++;
    if (i == line.size() || !separator(line[i])) continue;
    i++;
    while (i < line.size() && blank(line[i])) i++;
    // A separator at the end of a line ends its last field.
  }
  return n;
}

bool parse_field(std::string_view text, const FieldStyle& style, double& value) {
  if (!text.empty() && text[0] == '+') text.remove_prefix(1);
  char copy[64];
  if (style.decimal_comma && text.size() < sizeof copy) {
    std::replace_copy(text.begin(), text.end(), copy, ',', '.');
    text = std::string_view(copy, text.size());
  }
  const std::from_chars_result r = std::from_chars(text.data(), text.data() + text.size(), value);
  return r.ec == std::errc() && r.ptr == text.data() + text.size() && std::isfinite(value);
}

bool parse_hms(std::string_view text, const FieldStyle& style, double& value) {
  const size_t a = text.find(':');
  const size_t b = a == std::string_view::npos ? a : text.find(':', a + 1);
  double h = 0, m = 0, s = 0;
  if (b == std::string_view::npos || !parse_field(text.substr(0, a), style, h) ||
      !parse_field(text.substr(a + 1, b - a - 1), style, m) || !parse_field(text.substr(b + 1), style, s))
    return false;
  value = h * 3600 + m * 60 + s;
  return h >= 0 && m >= 0 && m < 60 && s >= 0 && s < 61;
}

bool parse_PO_row(std::string_view line, const POrowStyle& style, POrow& row) {
  const POcolumns& col = style.col;
  ASSERT(col.cmax >= 0 && col.cmax < MAX_PO_FIELDS);
  std::string_view field[MAX_PO_FIELDS];
  const int n = split_fields(line, style.field, field);
  if (n <= col.cmax || n < style.nfields) return false;
  const auto number = [&](int column, double& value) {
    value = 0;
    return column < 0 || parse_field(field[column], style.field, value);
  };
  return (style.hms ? parse_hms(field[col.t], style.field, row.t) : number(col.t, row.t)) &&
         number(col.x, row.x) && number(col.y, row.y) && number(col.z, row.z) && number(col.w, row.w) &&
         number(col.p, row.p) && number(col.k, row.k) && number(col.week, row.week);
}
}  // namespace veld
