// Columns of control point files: by a format string, by the names of a header line, by their number.
#include "prj/LiDAR/lidarspec/gcp_columns.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "lib/general/log.h"
#include "prj/LiDAR/lidarspec/lidarspec.h"

namespace veld {
namespace {
struct Alphabet {
  std::string letters;    // in the order of the alphabet
  std::string mandatory;  // those outside brackets
};

Alphabet read_alphabet(const std::string& ref) {
  Alphabet a;
  bool optional = false;
  for (const char c : ref) {
    if (c == '[' || c == ']') {
      optional = c == '[';
      continue;
    }
    a.letters += c;
    if (!optional) a.mandatory += c;
  }
  return a;
}

std::string lower(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

// Names of columns, as lists of words between blanks. The unit behind a name ("x [m]", "x_m") is passed over.
struct ColumnName {
  char letter;
  const char* words;
};
constexpr ColumnName GCP_NAMES[] = {
    {'i', " id name point pointid point_id pt station label gcp nr no number "},
    {'x', " x e east easting rechtswert "},
    {'y', " y n north northing hochwert "},
    {'z', " z h height elev elevation hoehe alt altitude "},
    {'s', " s sigma sigma_z sz std stddev sd accuracy "},
    {'c', " c control ctrl use type class "},
    {'f', " f last last_return lastreturn "},
};
constexpr ColumnName XYZGCP_NAMES[] = {
    {'i', " id name point pointid point_id pt station label gcp nr no number "},
    {'f', " f swath file strip line flightline "},
    {'x', " x e east easting x_gcp "},
    {'y', " y n north northing y_gcp "},
    {'z', " z h height elev elevation z_gcp "},
    {'X', " x_lidar lidar_x x_las xl "},
    {'Y', " y_lidar lidar_y y_las yl "},
    {'Z', " z_lidar lidar_z z_las zl "},
    {'h', " sigma_xy sxy sh sigma_h "},
    {'v', " sigma_z sz sv sigma_v "},
    {'c', " c control ctrl use type "},
};

bool is_xyz_alphabet(const std::string& ref) { return ref.find('X') != std::string::npos; }

bool is_integer(const std::string& s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}
}  // namespace

char column_letter(const std::string& field, bool target) {
  std::string word = lower(field);
  word = word.substr(0, word.find_first_of(" [("));
  for (const char* unit : {"_m", "_ft", "_usft"}) {
    const std::string u = unit;
    if (word.size() > u.size() && word.compare(word.size() - u.size(), u.size(), u) == 0)
      word.erase(word.size() - u.size());
  }
  if (word.empty()) return ' ';
  const std::string key = " " + word + " ";
  if (target && field.size() == 1 && field[0] >= 'X' && field[0] <= 'Z')
    return field[0];  // case tells the two
  if (target) {
    for (const ColumnName& n : XYZGCP_NAMES)
      if (std::string(n.words).find(key) != std::string::npos) return n.letter;
    return ' ';
  }
  for (const ColumnName& n : GCP_NAMES)
    if (std::string(n.words).find(key) != std::string::npos) return n.letter;
  return ' ';
}

bool parse_colfmt(const std::string& fmt, const std::string& ref, std::vector<int>& columns) {
  LOG_ENTER("parse_colfmt fmt='" << fmt << "' ref='" << ref << "'");
  const Alphabet a = read_alphabet(ref);
  columns.assign(a.letters.size(), -1);
  bool ok = true;
  for (size_t i = 0; i < fmt.size(); i++) {
    const size_t at = a.letters.find(fmt[i]);
    ok = ok && at != std::string::npos && columns[at] < 0;
    if (ok) columns[at] = static_cast<int>(i);
  }
  for (const char c : a.mandatory) ok = ok && columns[a.letters.find(c)] >= 0;
  if (!ok) {
    ERROR_MSG("could not parse column format '" << fmt << "', expecting {" << ref << "}");
    return false;
  }
  std::string text;
  for (const int c : columns) text += ' ' + std::to_string(c);
  LOG_LINE("-> columns" << text);
  return true;
}

void split_fields(std::string_view line, std::vector<std::string>& fields) {
  fields.clear();
  char sep = 0;
  bool quoted = false;
  constexpr std::string_view order = ",\t;";  // the last one that is there separates
  for (const char c : line) {
    if (c == '"') quoted = !quoted;
    const size_t rank = quoted ? std::string_view::npos : order.find(c);
    if (rank != std::string_view::npos && (sep == 0 || rank > order.find(sep))) sep = c;
  }
  std::string field;
  const auto end_field = [&] {
    const size_t a = field.find_first_not_of(" \t"), b = field.find_last_not_of(" \t");
    fields.push_back(a == std::string::npos ? std::string() : field.substr(a, b - a + 1));
    field.clear();
  };
  quoted = false;
  for (const char c : line) {
    if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && sep != 0 && c == sep) {
      end_field();
    } else if (!quoted && sep == 0 && (c == ' ' || c == '\v' || c == '\f')) {
      if (!field.empty()) end_field();
    } else {
      field += c;
    }
  }
  if (sep != 0 || !field.empty()) end_field();
}

bool parse_coordinate(const std::string& text, double& value) {
  std::string t = text;
  const size_t comma = t.find(',');
  if (comma != std::string::npos && t.find('.') == std::string::npos) t[comma] = '.';
  if (t.empty() || t.find_first_not_of("+-.0123456789eE") != std::string::npos) return false;
  char* end = nullptr;
  value = std::strtod(t.c_str(), &end);
  return *end == 0 && end != t.c_str() && std::isfinite(value);
}

bool header_colfmt(const std::vector<std::string>& fields, const std::string& ref, std::string& letters) {
  letters.clear();
  for (const std::string& f : fields) {
    double number;
    if (parse_coordinate(f, number)) return false;
    const char c = column_letter(f, is_xyz_alphabet(ref));
    letters += letters.find(c) == std::string::npos ? c : ' ';
  }
  const Alphabet a = read_alphabet(ref);
  return fields.size() <= 100 && std::all_of(a.mandatory.begin(), a.mandatory.end(),
                                             [&](char c) { return letters.find(c) != std::string::npos; });
}

std::string plain_colfmt(const std::vector<std::string>& fields, const std::string& ref) {
  const Alphabet a = read_alphabet(ref);
  size_t i = 0;
  double number;
  const bool target = is_xyz_alphabet(ref);
  const bool named = !fields.empty() && (!parse_coordinate(fields[0], number) || is_integer(fields[0]));
  const bool has_name =
      target ? fields.size() > 7 && !parse_coordinate(fields[1], number) : named && fields.size() > 3;
  if (!has_name) i = 1;
  // Optional columns in their order, as far as the line has numbers.
  std::string letters;
  for (; i < a.letters.size() && letters.size() < std::max(fields.size(), a.mandatory.size() + 1); i++) {
    const bool optional = a.mandatory.find(a.letters[i]) == std::string::npos && a.letters[i] != 'i';
    if (optional && (letters.size() >= fields.size() || !parse_coordinate(fields[letters.size()], number)))
      break;
    letters += a.letters[i];
  }
  return letters;
}

std::vector<int> letter_columns(const std::string& letters, const std::string& ref) {
  const Alphabet a = read_alphabet(ref);
  std::vector<int> columns;
  for (const char c : a.letters) {
    const size_t at = letters.find(c);
    columns.push_back(at == std::string::npos ? -1 : static_cast<int>(at));
  }
  return columns;
}
}  // namespace veld
