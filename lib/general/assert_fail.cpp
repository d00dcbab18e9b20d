#include "lib/general/assert_fail.h"

#include <cxxabi.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/general/crash.h"
#include "lib/general/log.h"
#include "lib/general/log_internal.h"

namespace veld {
namespace {
const char* file_of(const char* path) {
  const char* const slash = std::strrchr(path, '/');
  return slash ? slash + 1 : path;
}

// The condition as the log has it, whatever the layout of the source: no blanks around comparisons.
std::string condition_text(const char* cond) {
  std::string text = cond;
  for (const char* const op : {"==", "!=", "<=", ">=", "<", ">"})
    for (size_t at; (at = text.find(std::string(" ") + op + " ")) != std::string::npos;)
      text.replace(at, std::strlen(op) + 2, op);
  return text;
}

std::string build_time() { return std::string(" [") + __DATE__ + " " + __TIME__ + "]"; }

std::string type_name(const char* mangled) {
  int status = 0;
  char* const name = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  const std::string text = status == 0 ? name : mangled;
  std::free(name);
  return text;
}

[[noreturn]] void report_and_abort(const std::string& text) {
  {
    const LogLock lock;
    log_depth_add(1);
    if (log_files_open) log_stream() << log_prefix() << "/ > @ " << text << '\n';
    console_text(text + '\n', true);
  }
  std::abort();
}
}  // namespace

void assert_failed(const char* cond, const char* func, int line, const char* file) {
  report_and_abort("ERROR: ASSERT (" + condition_text(cond) + ") in " + func + ", line " +
                   std::to_string(line) + " of " + file_of(file) + build_time());
}

void assert_failed_index(const char* cond, const char* name, int64_t value, const char* func,
                         const char* type, int line, const char* file) {
  report_and_abort(std::string("ERROR: ASSERT (") + cond + ") " + name + "=" + std::to_string(value) +
                   " in " + func + " <" + type_name(type) + ">, line " + std::to_string(line) + " of " +
                   file_of(file) + build_time());
}

void alloc_failed(const char* tag, uint64_t n, uint64_t bytes) {
  end_in_error(std::string("ERROR: ") + tag + " allocation failed, size " + std::to_string(n) + " x " +
               std::to_string(bytes));
}

void alloc_failed(const char* tag, uint64_t xsize, uint64_t ysize, uint64_t bytes) {
  end_in_error(std::string("ERROR: ") + tag + " allocation failed, size " + std::to_string(xsize) + " x " +
               std::to_string(ysize) + " x " + std::to_string(bytes));
}
}  // namespace veld
