// Text files of points: one line a point, columns by a parse string.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

#include "las/las_sources.h"
#include "lib/general/log.h"

namespace veld {
namespace {
constexpr uint64_t READ_BLOCK = 1 << 18;  // bytes; also the longest line
constexpr uint64_t POINT_BLOCK = 8192;
constexpr double STEP = 0.001, STEP_DEGREES = 1e-7;  // steps of coordinates, projected and geodetic
constexpr double MAX_STORED = 2e9;                   // keeps integers away from the end of their range
constexpr double TWO_WEEKS = 1209600;                // s; later times can't be week seconds
constexpr int MAX_COLUMNS = 64;
constexpr char COLUMNS[] = "xyztiarncupdeRGB";

struct TextPoint {  // the values of one line, by their place in COLUMNS
  double v[sizeof COLUMNS - 1];
};
enum Column { CX, CY, CZ, CT, CI, CA, CR, CN, CC, CU, CP, CD, CE, CRED };

int column_of(char c) {
  const char* found = std::strchr(COLUMNS, c);
  return c != '\0' && found ? static_cast<int>(found - COLUMNS) : -1;
}

bool is_separator(char c) { return c == ' ' || c == '\t' || c == ',' || c == ';' || c == '\r'; }

// Reads the columns of a line; false when one is missing or not a finite number.
bool parse_line(const char* at, const char* end, const std::string& parse, TextPoint& point) {
  for (const char c : parse) {
    while (at < end && is_separator(*at)) at++;
    if (at == end) return false;
    const int column = column_of(c);
    if (column < 0) {
      while (at < end && !is_separator(*at)) at++;
      continue;
    }
    if (*at == '+') at++;
    double value = 0;
    const auto [next, problem] = std::from_chars(at, end, value);
    if (problem != std::errc{} || !std::isfinite(value) || (next < end && !is_separator(*next))) return false;
    point.v[column] = value;
    at = next;
  }
  return true;
}

// Lines of a file, one after the other.
class LineReader {
 public:
  explicit LineReader(const LasInFile& file) : file_(file), buffer_(READ_BLOCK) {}
  void rewind() { pos_ = 0, begin_ = end_ = 0, line_ = 0, at_end_ = false; }
  uint64_t line() const { return line_; }
  // False at the end and on failure; then `error` says why.
  bool next(const char*& from, const char*& to, std::string& error) {
    for (;;) {
      const char* start = buffer_.data() + begin_;
      const void* newline = std::memchr(start, '\n', end_ - begin_);
      if (newline || (at_end_ && begin_ < end_)) {
        from = start;
        to = newline ? static_cast<const char*>(newline) : buffer_.data() + end_;
        begin_ = static_cast<uint64_t>(to - buffer_.data()) + (newline ? 1 : 0);
        line_++;
        return true;
      }
      if (at_end_ || !refill(error)) return false;
    }
  }

 private:
  bool refill(std::string& error) {
    if (begin_ == 0 && end_ == buffer_.size()) {
      error = "line " + std::to_string(line_ + 1) + " is too long for a text file of points";
      return false;
    }
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    const int64_t got = file_.read_some(pos_, buffer_.data() + end_, buffer_.size() - end_);
    if (got < 0) {
      error = "read error";
      return false;
    }
    at_end_ = got == 0;
    pos_ += static_cast<uint64_t>(got);
    end_ += static_cast<uint64_t>(got);
    return true;
  }
  const LasInFile& file_;
  std::vector<char> buffer_;
  uint64_t pos_ = 0, begin_ = 0, end_ = 0, line_ = 0;
  bool at_end_ = false;
};

// Limits a value to the range of an integer field.
template <typename T>
T field(double v) {
  return static_cast<T>(std::clamp(std::round(v), double{std::numeric_limits<T>::lowest()},
                                   double{std::numeric_limits<T>::max()}));
}

void encode(const TextPoint& from, const LASheader& header, LASpoint& to) {
  const double scale[3] = {header.x_scale_factor, header.y_scale_factor, header.z_scale_factor};
  const double offset[3] = {header.x_offset, header.y_offset, header.z_offset};
  int32_t stored[3];
  for (int axis = 0; axis < 3; axis++)
    stored[axis] = field<int32_t>((from.v[axis] - offset[axis]) / scale[axis]);
  to.set_X(stored[0]);
  to.set_Y(stored[1]);
  to.set_Z(stored[2]);
  to.set_intensity(field<uint16_t>(from.v[CI]));
  to.set_returns(field<uint8_t>(from.v[CR]), field<uint8_t>(from.v[CN]));
  to.set_classification(field<uint8_t>(from.v[CC]));
  to.set_scan_angle(field<int8_t>(from.v[CA]));
  to.set_user_data(field<uint8_t>(from.v[CU]));
  to.set_point_source_id(field<uint16_t>(from.v[CP]));
  to.set_scan_direction(from.v[CD] != 0);
  to.set_edge(from.v[CE] != 0);
  to.set_gps_time(from.v[CT]);
  for (int i = 0; to.has_rgb() && i < 3; i++) to.set_rgb(i, field<uint16_t>(from.v[CRED + i]));
}

class TextSource : public PointSource {
 public:
  TextSource(std::shared_ptr<LasInFile> file, const std::string& parse)
      : file_(std::move(file)), parse_(parse), lines_(*file_) {}

  // First pass: fills the header.
  bool scan(LASheader& header, std::string& error) {
    const auto has = [this](char c) { return parse_.find(c) != std::string::npos; };
    if (parse_.size() > MAX_COLUMNS || !has('x') || !has('y') || !has('z')) {
      error = "parse string '" + parse_ + "' does not name the columns x, y and z";
      return false;
    }
    header.point_format = has('t') ? (has('R') ? 3 : 1) : (has('R') ? 2 : 0);
    header.point_reclen = static_cast<uint16_t>(las_base_length(header.point_format));
    uint64_t n = 0;
    double lo[3] = {2e307, 2e307, 2e307}, hi[3] = {-2e307, -2e307, -2e307}, t_min = 2e307;
    TextPoint p = blank();
    while (next_point(p, error)) {
      for (int axis = 0; axis < 3; axis++) {
        lo[axis] = std::min(lo[axis], p.v[axis]);
        hi[axis] = std::max(hi[axis], p.v[axis]);
      }
      t_min = std::min(t_min, p.v[CT]);
      n++;
    }
    if (!error.empty()) return false;
    if (nbad_ > 0)
      WARNING_MSG("skipped " << nbad_ << " lines that don't match the columns '" << parse_
                             << "', first is line " << first_bad_ << ", file '" << file_->name() << "'");
    header.npoints = n;
    if (n > 0 && t_min > TWO_WEEKS) header.global_encoding |= 1;
    set_text_software(header);
    choose_las_scale(header, lo, hi);
    lines_.rewind();
    header_ = header;
    return true;
  }

  bool next(uint8_t*& block, uint64_t& n) override {
    LASpoint to = header_.point();
    const uint64_t reclen = header_.point_reclen;
    block_.assign(POINT_BLOCK * reclen, 0);
    block = block_.data();
    TextPoint p = blank();
    std::string error;
    for (n = 0; n < POINT_BLOCK && next_point(p, error); n++) {
      to.rec = block + n * reclen;
      encode(p, header_, to);
    }
    if (error.empty()) return true;
    ERROR_MSG(error << ", file '" << file_->name() << "'");
    n = 0;
    return false;
  }

  bool seek(uint64_t index) override {
    lines_.rewind();
    TextPoint p = blank();
    std::string error;
    for (uint64_t i = 0; i < index; i++)
      if (!next_point(p, error)) return false;
    return true;
  }

 private:
  static TextPoint blank() {
    TextPoint p{};
    p.v[CR] = p.v[CN] = 1;
    return p;
  }
  // The next line that holds a point; empty lines and those that begin with # are passed over.
  bool next_point(TextPoint& p, std::string& error) {
    const char* from = nullptr;
    const char* to = nullptr;
    while (lines_.next(from, to, error)) {
      while (from < to && is_separator(*from)) from++;
      if (from == to || *from == '#') continue;
      if (parse_line(from, to, parse_, p)) return true;
      if (nbad_++ == 0) first_bad_ = lines_.line();
    }
    return false;
  }
  static void set_text_software(LASheader& header) {
    set_las_text(header.system_identifier, "FORMAT CONVERSION");
  }

  std::shared_ptr<LasInFile> file_;
  std::string parse_;
  LineReader lines_;
  LASheader header_;
  std::vector<uint8_t> block_;
  uint64_t nbad_ = 0, first_bad_ = 0;
};

class TextSink : public PointSink {
 public:
  TextSink(LasOutFile& file, const LASheader& header, const std::string& parse)
      : file_(file), parse_(parse), point_(header.point()) {
    const double scale[3] = {header.x_scale_factor, header.y_scale_factor, header.z_scale_factor};
    for (int axis = 0; axis < 3; axis++)  // digits that show each step of the scale
      digits_[axis] = scale[axis] > 0
                          ? std::clamp(static_cast<int>(std::ceil(-std::log10(scale[axis]) - 1e-9)), 0, 12)
                          : 3;
  }

  bool write(const uint8_t* records, uint64_t n) override {
    lines_.clear();
    for (uint64_t i = 0; i < n; i++) {
      point_.rec = const_cast<uint8_t*>(records) + i * static_cast<uint64_t>(point_.lay.reclen);
      for (size_t c = 0; c < parse_.size(); c++) {
        if (c > 0) lines_ += ' ';
        put_column(parse_[c]);
      }
      lines_ += '\n';
    }
    return file_.append(lines_.data(), lines_.size());
  }
  bool finish() override { return true; }

 private:
  void put(double v, int digits) {
    char text[400];
    const auto end = std::to_chars(text, text + sizeof text, v, std::chars_format::fixed, digits).ptr;
    lines_.append(text, end);
  }
  void put_column(char c) {
    switch (column_of(c)) {
      case CX:
        return put(point_.x(), digits_[0]);
      case CY:
        return put(point_.y(), digits_[1]);
      case CZ:
        return put(point_.z(), digits_[2]);
      case CT:
        return put(point_.gps_time(), 6);
      case CI:
        return put_int(point_.intensity());
      case CA:
        return point_.lay.extended ? put(point_.scan_angle_deg(), 3) : put_int(point_.scan_angle());
      case CR:
        return put_int(point_.return_number());
      case CN:
        return put_int(point_.number_of_returns());
      case CC:
        return put_int(point_.classification());
      case CU:
        return put_int(point_.user_data());
      case CP:
        return put_int(point_.point_source_id());
      case CD:
        return put_int(point_.scan_direction());
      case CE:
        return put_int(point_.edge());
      case CRED:
      case CRED + 1:
      case CRED + 2:
        return put_int(point_.has_rgb() ? point_.rgb(column_of(c) - CRED) : 0);
      default:
        return put_int(0);
    }
  }
  void put_int(int v) { lines_ += std::to_string(v); }

  LasOutFile& file_;
  std::string parse_;
  LASpoint point_;
  int digits_[3];
  std::string lines_;
};
}  // namespace

void choose_las_scale(LASheader& header, const double lo[3], const double hi[3]) {
  const bool any = lo[0] <= hi[0];
  const bool degrees = any && lo[0] >= -360 && hi[0] <= 360 && lo[1] >= -90 && hi[1] <= 90;
  double* scale[3] = {&header.x_scale_factor, &header.y_scale_factor, &header.z_scale_factor};
  double* offset[3] = {&header.x_offset, &header.y_offset, &header.z_offset};
  double* low[3] = {&header.min_x, &header.min_y, &header.min_z};
  double* high[3] = {&header.max_x, &header.max_y, &header.max_z};
  for (int axis = 0; axis < 3; axis++) {
    const double mid = any ? std::floor(lo[axis] / 2 + hi[axis] / 2) : 0;
    const double reach = any ? std::max(hi[axis] - mid, mid - lo[axis]) : 0;
    double step = degrees && axis < 2 ? STEP_DEGREES : STEP;
    while (reach / step > MAX_STORED) step *= 10;
    *scale[axis] = step;
    *offset[axis] = mid;
    *low[axis] = any ? lo[axis] : 0;
    *high[axis] = any ? hi[axis] : 0;
  }
}

std::unique_ptr<PointSource> make_text_source(const std::shared_ptr<LasInFile>& file,
                                              const std::string& parse, LASheader& header,
                                              std::string& error) {
  auto source = std::make_unique<TextSource>(file, parse);
  if (!source->scan(header, error)) return nullptr;
  return source;
}

std::unique_ptr<PointSink> make_text_sink(LasOutFile& file, const LASheader& header, const std::string& parse,
                                          std::string& error) {
  if (parse.size() > MAX_COLUMNS) {
    error = "parse string '" + parse + "' has too many columns";
    return nullptr;
  }
  return std::make_unique<TextSink>(file, header, parse);
}
}  // namespace veld
