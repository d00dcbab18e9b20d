// Readers of control point files.
#include <algorithm>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "prj/LiDAR/POio/txt_rows.h"
#include "prj/LiDAR/lidarspec/gcp_columns.h"
#include "prj/LiDAR/lidarspec/gcp_geojson.h"
#include "prj/LiDAR/lidarspec/lidarspec.h"

namespace veld {
namespace {
// Fields of a line by letter of the alphabet; an empty text where there is no column.
class Row {
 public:
  Row(const std::vector<std::string>& fields, const std::vector<int>& columns, const std::string& letters)
      : fields_(fields), columns_(columns), letters_(letters) {}
  const std::string& text(char letter) const {
    static const std::string none;
    const int c = columns_[letters_.find(letter)];
    return c < 0 || static_cast<size_t>(c) >= fields_.size() ? none : fields_[static_cast<size_t>(c)];
  }
  bool number(char letter, double& v) const { return parse_coordinate(text(letter), v); }
  bool position(const char* three, dxyz& p) const {
    return number(three[0], p.x) && number(three[1], p.y) && number(three[2], p.z);
  }
  // Leaves v as it is when the field is empty. False when there is something else in it.
  bool sigma(char letter, double& v) const {
    if (text(letter).empty()) return true;
    double s;
    if (!number(letter, s) || s < 0) return false;
    v = s;
    return true;
  }
  bool flag(char letter, bool& v) const {
    std::string t = text(letter);
    if (t.empty()) return true;
    double n;
    if (number(letter, n)) {
      v = n != 0;
      return true;
    }
    for (char& c : t)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    const bool yes = t == "control" || t == "ctrl" || t == "c" || t == "true" || t == "yes" || t == "last";
    const bool no = t == "check" || t == "chk" || t == "false" || t == "no" || t == "all";
    if (yes || no) v = yes;
    return yes || no;
  }

 private:
  const std::vector<std::string>& fields_;
  const std::vector<int>& columns_;
  const std::string letters_;
};

std::string letters_of(const std::string& ref) {
  std::string s = ref;
  std::erase_if(s, [](char c) { return c == '[' || c == ']'; });
  return s;
}

bool is_number(const std::vector<std::string>& f, int column) {
  double v;
  return column >= 0 && static_cast<size_t>(column) < f.size() &&
         parse_coordinate(f[static_cast<size_t>(column)], v);
}

bool is_title(const std::vector<std::string>& fields) {
  double v;
  return std::none_of(fields.begin(), fields.end(),
                      [&](const std::string& f) { return parse_coordinate(f, v); });
}

// The lines of a file as rows. point: takes a row, false when it is no point. Returns false after an ERROR line.
template <typename Point>
bool read_rows(const std::string& file, const std::string& fmt, const std::string& ref, const char* kind,
               std::string& used, Point point) {
  std::vector<int> columns;
  used = fmt;
  if (!fmt.empty() && !parse_colfmt(fmt, ref, columns)) return false;
  const std::string letters = letters_of(ref);
  LineReader in;
  if (!in.open(file)) return false;
  std::string_view line;
  std::vector<std::string> fields;
  uint64_t npoint = 0, nline = 0, nskip = 0, nbad = 0, first_bad = 0;
  while (in.next(line)) {
    if (nline++ == 0 && line.substr(0, 3) == "\xEF\xBB\xBF") line.remove_prefix(3);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    split_fields(line, fields);
    const bool comment = !fields.empty() && !fields[0].empty() && fields[0][0] == '#';
    const bool blank =
        std::all_of(fields.begin(), fields.end(), [](const std::string& f) { return f.empty(); });
    if (comment || blank) {
      nskip++;
      continue;
    }
    if (columns.empty()) {
      const bool header = header_colfmt(fields, ref, used);
      if (header) columns = letter_columns(used, ref);
      if (header || is_title(fields)) {
        nskip++;
        continue;
      }
      used = plain_colfmt(fields, ref);
      columns = letter_columns(used, ref);
    }
    const auto [cmin, cmax] = std::minmax_element(columns.begin(), columns.end());
    const int c_min = std::max(*cmin, 0), c_max = *cmax;
    ASSERT(c_min >= 0 && c_max < 100);
    if (fields.size() > static_cast<size_t>(c_max) && point(Row(fields, columns, letters))) {
      npoint++;
      continue;
    }
    nskip++;
    // A line without any number where the position should stand is a header or a title.
    if (!is_number(fields, columns[letters.find('x')]) && !is_number(fields, columns[letters.find('y')]))
      continue;
    if (nbad++ == 0) first_bad = nline;
  }
  if (in.failed()) {
    ERROR_MSG("read error, file " << file);
    return false;
  }
  if (npoint == 0) {
    ERROR_MSG("no valid " << kind << " found in file " << file);
    return false;
  }
  LOG_LINE("points read: " << npoint << ", lines skipped: " << nskip);
  if (nbad > 0)
    WARNING_MSG(nbad << " lines of " << file << " are no " << kind << " by the format " << used
                     << ", the first is line " << first_bad);
  return true;
}
// The features of a GeoJSON file as rows. Returns false after an ERROR line.
template <typename Point>
bool read_features(const std::string& file, const std::string& fmt, const std::string& ref, const char* kind,
                   const GeoRefParam& georef, std::string& used, Point point) {
  if (!fmt.empty()) {
    ERROR_MSG("a column format is for text files, GeoJSON names its properties, file " << file);
    return false;
  }
  used = "GeoJSON";
  std::vector<int> columns;
  const std::string letters = letters_of(ref);
  for (size_t i = 0; i < letters.size(); i++) columns.push_back(static_cast<int>(i));
  uint64_t nfeature = 0, nskip = 0;
  if (!read_geojson_rows(
          file, ref, georef,
          [&](const std::vector<std::string>& fields) { return point(Row(fields, columns, letters)); },
          nfeature, nskip))
    return false;
  if (nskip == nfeature) {
    ERROR_MSG("no valid " << kind << " found in file " << file);
    return false;
  }
  LOG_LINE("points read: " << nfeature - nskip << ", features skipped: " << nskip);
  if (nskip > 0) WARNING_MSG(nskip << " features of " << file << " are no " << kind);
  return true;
}

// Adds the point of a row; false when it is none.
bool add_GCP(const Row& row, const GCPdefaults& def, std::vector<GCP>& result) {
  GCP p;
  p.control = def.C0;
  p.last = def.F0;
  p.sigma = def.S0;
  if (!row.position("xyz", p.pos) || !row.sigma('s', p.sigma) || !row.flag('c', p.control) ||
      !row.flag('f', p.last))
    return false;
  p.name = row.text('i').empty() ? "GCP_" + std::to_string(result.size() + 1) : row.text('i');
  result.push_back(p);
  return true;
}

bool add_XYZGCP(const Row& row, const XYZGCPdefaults& def, std::vector<XYZGCP>& result) {
  XYZGCP p;
  p.control = def.C0;
  p.sigma_xy = def.SH0;
  p.sigma_z = def.SV0;
  p.match = row.text('f');
  if (p.match.empty() || !row.position("xyz", p.pos) || !row.position("XYZ", p.lidar) ||
      !row.sigma('h', p.sigma_xy) || !row.sigma('v', p.sigma_z) || !row.flag('c', p.control))
    return false;
  p.name = row.text('i').empty() ? "XYZ_GCP_" + std::to_string(result.size() + 1) : row.text('i');
  result.push_back(p);
  return true;
}
}  // namespace

bool read_txt_GCP(const std::string& file, const std::string& fmt, const GCPdefaults& def,
                  std::vector<GCP>& result, std::string& used) {
  const auto has = [&](char c) { return fmt.find(c) != std::string::npos; };
  LOG_ENTER("read_txt_GCP[ext] col.size()=" << fmt.size() << " FI=" << has('i') << " FS=" << has('s')
                                            << " FC=" << has('c') << " FF=" << has('f') << " C0=" << def.C0
                                            << " F0=" << def.F0 << " S0=" << def.S0);
  result.clear();
  return read_rows(file, fmt, GCP_ALPHABET, "GCP", used,
                   [&](const Row& row) { return add_GCP(row, def, result); });
}

bool read_txt_XYZGCP(const std::string& file, const std::string& fmt, const XYZGCPdefaults& def,
                     std::vector<XYZGCP>& result, std::string& used) {
  const auto has = [&](char c) { return fmt.find(c) != std::string::npos; };
  LOG_ENTER("read_txt_XYZGCP[ext] col.size()=" << fmt.size() << " FI=" << has('i') << " FH=" << has('h')
                                               << " FV=" << has('v') << " FC=" << has('c') << " C0=" << def.C0
                                               << " SH0=" << def.SH0 << " SV0=" << def.SV0);
  result.clear();
  return read_rows(file, fmt, XYZGCP_ALPHABET, "XYZ GCP", used,
                   [&](const Row& row) { return add_XYZGCP(row, def, result); });
}

bool read_GCP(const std::string& file, const std::string& fmt, const GeoRefParam& georef,
              const GCPdefaults& def, std::vector<GCP>& result, std::string& used) {
  if (!is_geojson(file)) return read_txt_GCP(file, fmt, def, result, used);
  result.clear();
  return read_features(file, fmt, GCP_ALPHABET, "GCP", georef, used,
                       [&](const Row& row) { return add_GCP(row, def, result); });
}

bool read_XYZGCP(const std::string& file, const std::string& fmt, const GeoRefParam& georef,
                 const XYZGCPdefaults& def, std::vector<XYZGCP>& result, std::string& used) {
  if (!is_geojson(file)) return read_txt_XYZGCP(file, fmt, def, result, used);
  result.clear();
  return read_features(file, fmt, XYZGCP_ALPHABET, "XYZ GCP", georef, used,
                       [&](const Row& row) { return add_XYZGCP(row, def, result); });
}
}  // namespace veld
