#include "image/jpeg_out.h"

#include <jpeglib.h>

#include <csetjmp>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/result_file.h"

namespace veld {
namespace {
// The library reports failures through a call that must not return.
struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf back;
};

[[noreturn]] void leave(j_common_ptr info) {
  char text[JMSG_LENGTH_MAX];
  info->err->format_message(info, text);
  log_line(std::string("<!> libjpeg: ") + text);
  std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->back, 1);
}

void keep_quiet(j_common_ptr) {}
}  // namespace

struct JpegOut::State {
  jpeg_compress_struct info{};
  ErrorManager error{};
  std::FILE* stream = nullptr;
  ResultFile file;
  std::string name;
  int row_bytes = 0;
  bool created = false;
  ~State() {
    if (created) jpeg_destroy_compress(&info);
    if (stream) std::fclose(stream);
  }
};

JpegOut::JpegOut() = default;
JpegOut::~JpegOut() = default;

bool JpegOut::open(const std::string& name, int xsize, int ysize, int samples, int quality) {
  LOG_LINE("save_JPEG " << name << " quality=" << quality << " color=" << samples << " dimx=" << xsize
                        << " dimy=" << ysize);
  if (xsize <= 0 || ysize <= 0 || xsize > JPEG_MAX_SIDE || ysize > JPEG_MAX_SIDE) {
    ERROR_MSG("save_JPEG: size " << xsize << "x" << ysize << ", file " << name);
    return false;
  }
  s_ = std::make_unique<State>();
  State& s = *s_;
  s.name = name;
  s.row_bytes = xsize * samples;
  s.file.begin(name);
  s.stream = std::fopen(s.file.part().c_str(), "wb");
  if (!s.stream) {
    ERROR_MSG("save_JPEG: open failed, file " << name);
    return false;
  }
  s.info.err = jpeg_std_error(&s.error.base);
  s.error.base.error_exit = leave;
  s.error.base.output_message = keep_quiet;
  if (setjmp(s.error.back)) {
    ERROR_MSG("save_JPEG: failed, file " << s_->name);
    return false;
  }
  jpeg_create_compress(&s.info);
  s.created = true;
  jpeg_stdio_dest(&s.info, s.stream);
  s.info.image_width = static_cast<JDIMENSION>(xsize);
  s.info.image_height = static_cast<JDIMENSION>(ysize);
  s.info.input_components = samples;
  s.info.in_color_space = samples == 3 ? JCS_RGB : JCS_GRAYSCALE;
  jpeg_set_defaults(&s.info);
  jpeg_set_quality(&s.info, quality, TRUE);
  jpeg_start_compress(&s.info, TRUE);
  return true;
}

bool JpegOut::put_rows(const uint8_t* rows, int n) {
  State& s = *s_;
  if (setjmp(s.error.back)) {
    ERROR_MSG("save_JPEG: write failed, file " << s_->name);
    return false;
  }
  for (int i = 0; i < n; i++) {
    JSAMPROW row = const_cast<JSAMPROW>(rows + static_cast<size_t>(i) * static_cast<size_t>(s.row_bytes));
    jpeg_write_scanlines(&s.info, &row, 1);
  }
  return true;
}

bool JpegOut::close() {
  State& s = *s_;
  if (setjmp(s.error.back)) {
    ERROR_MSG("save_JPEG: write failed, file " << s_->name);
    return false;
  }
  jpeg_finish_compress(&s.info);
  const bool ok = std::fclose(s.stream) == 0;
  s.stream = nullptr;
  if (!ok) ERROR_MSG("save_JPEG: write failed, file " << s.name);
  const bool done = ok && s.file.commit();
  s_.reset();
  return done;
}
}  // namespace veld
