// Preloaded into the program under test: lets one call of the C library fail, the nth of its kind.
// VELD_FAULT=kind:n:how    kind: open read write sync rename link unlink close alloc thread
//                          how:  fail, from (and all later ones), or for read and write short (half of it) and eintr
//                          (interrupted once)
// VELD_FAULT_COUNT=file    writes the number of calls of each kind there at the end instead.
// Counted are calls on files below the current directory or a temporary one, from the program's first thread start
// on: what the loader and the C library do for themselves is not the program's.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
void* __libc_malloc(size_t n);
void* __libc_calloc(size_t n, size_t size);
void* __libc_realloc(void* block, size_t n);
void* __libc_memalign(size_t align, size_t n);
}

namespace {
enum Kind { OPEN, READ, WRITE, SYNC, RENAME, LINK, UNLINK, CLOSE, ALLOC, THREAD, KINDS };
const char* const NAMES[KINDS] = {"open", "read",   "write", "sync",  "rename",
                                  "link", "unlink", "close", "alloc", "thread"};
enum How { FAIL, FROM, SHORT, EINTR_ONCE };

std::atomic<long> calls[KINDS];
int kind = -1;
long nth = 0;
How how = FAIL;
const char* count_file = nullptr;
std::atomic<bool> started{false};
constexpr int MAX_FD = 4096;
std::atomic<bool> ours[MAX_FD];  // descriptors of counted files

template <typename F>
F next(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}
#define NEXT(name) static const auto real = next<decltype(&name)>(#name)

[[gnu::constructor]] void read_order() {
  count_file = std::getenv("VELD_FAULT_COUNT");
  const char* const order = std::getenv("VELD_FAULT");
  if (!order) return;
  char word[16] = "", mode[16] = "";
  if (std::sscanf(order, "%15[^:]:%ld:%15s", word, &nth, mode) != 3) return;
  for (int k = 0; k < KINDS; k++)
    if (std::strcmp(word, NAMES[k]) == 0) kind = k;
  how = std::strcmp(mode, "short") == 0   ? SHORT
        : std::strcmp(mode, "eintr") == 0 ? EINTR_ONCE
        : std::strcmp(mode, "from") == 0  ? FROM
                                          : FAIL;
}

[[gnu::destructor]] void write_counts() {
  if (!count_file) return;
  started = false;
  std::FILE* const out = std::fopen(count_file, "w");
  for (int k = 0; out && k < KINDS; k++) std::fprintf(out, "%s %ld\n", NAMES[k], calls[k].load());
  if (out) std::fclose(out);
}

// True for the call that is to fail.
bool strikes(Kind k) {
  if (!started) return false;
  const long n = ++calls[k];
  return k == kind && (how == FROM ? n >= nth : n == nth);
}

bool is_ours(const char* path) {
  for (const char* const system : {"/proc/", "/sys/", "/etc/", "/usr/", "/dev/", "/lib"})
    if (std::strncmp(path, system, std::strlen(system)) == 0) return false;
  return true;
}
void mark(int fd, bool value) {
  if (fd >= 0 && fd < MAX_FD) ours[fd] = value;
}
bool counted(int fd) { return fd >= 0 && fd < MAX_FD && ours[fd]; }

template <typename T>
T failed(int reason, T value) {
  errno = reason;
  return value;
}

template <typename Call>
int open_any(const char* path, Call call) {
  if (!is_ours(path)) return call();
  if (strikes(OPEN)) return failed(EMFILE, -1);
  const int fd = call();
  mark(fd, true);
  return fd;
}

mode_t mode_of(int flags, va_list list) { return flags & O_CREAT ? va_arg(list, mode_t) : 0; }
}  // namespace

extern "C" {
#define OPEN_BODY(name)                     \
  va_list list;                             \
  va_start(list, flags);                    \
  const mode_t mode = mode_of(flags, list); \
  va_end(list);                             \
  NEXT(name)
int open(const char* path, int flags, ...) {
  OPEN_BODY(open);
  return open_any(path, [&] { return real(path, flags, mode); });
}
int open64(const char* path, int flags, ...) {
  OPEN_BODY(open64);
  return open_any(path, [&] { return real(path, flags, mode); });
}
int openat(int dir, const char* path, int flags, ...) {
  OPEN_BODY(openat);
  return open_any(path, [&] { return real(dir, path, flags, mode); });
}

#define FOPEN(name)                                                \
  std::FILE* name(const char* path, const char* mode) {            \
    NEXT(name);                                                    \
    if (!is_ours(path)) return real(path, mode);                   \
    if (strikes(OPEN)) return failed<std::FILE*>(EMFILE, nullptr); \
    std::FILE* const file = real(path, mode);                      \
    if (file) mark(fileno(file), true);                            \
    return file;                                                   \
  }
FOPEN(fopen)
FOPEN(fopen64)

ssize_t read(int fd, void* to, size_t n) {
  NEXT(read);
  if (!counted(fd) || !strikes(READ)) return real(fd, to, n);
  if (how == SHORT) return real(fd, to, n > 1 ? n / 2 : n);
  return failed<ssize_t>(how == EINTR_ONCE ? EINTR : EIO, -1);
}
#define PREAD(name, offset_type)                                    \
  ssize_t name(int fd, void* to, size_t n, offset_type at) {        \
    NEXT(name);                                                     \
    if (!counted(fd) || !strikes(READ)) return real(fd, to, n, at); \
    if (how == SHORT) return real(fd, to, n > 1 ? n / 2 : n, at);   \
    return failed<ssize_t>(how == EINTR_ONCE ? EINTR : EIO, -1);    \
  }
PREAD(pread, off_t)
PREAD(pread64, off64_t)
size_t fread(void* to, size_t size, size_t n, std::FILE* file) {
  NEXT(fread);
  if (!counted(fileno(file)) || !strikes(READ) || how > FROM) return real(to, size, n, file);
  return failed<size_t>(EIO, 0);
}

ssize_t write(int fd, const void* from, size_t n) {
  NEXT(write);
  if (!counted(fd) || !strikes(WRITE)) return real(fd, from, n);
  if (how == SHORT) return real(fd, from, n > 1 ? n / 2 : n);
  return failed<ssize_t>(how == EINTR_ONCE ? EINTR : ENOSPC, -1);
}
ssize_t writev(int fd, const struct iovec* parts, int n) {
  NEXT(writev);
  if (!counted(fd) || !strikes(WRITE)) return real(fd, parts, n);
  if (how == SHORT && n > 1) return real(fd, parts, 1);
  return failed<ssize_t>(how == EINTR_ONCE ? EINTR : ENOSPC, -1);
}
#define PWRITE(name, offset_type)                                      \
  ssize_t name(int fd, const void* from, size_t n, offset_type at) {   \
    NEXT(name);                                                        \
    if (!counted(fd) || !strikes(WRITE)) return real(fd, from, n, at); \
    if (how == SHORT) return real(fd, from, n > 1 ? n / 2 : n, at);    \
    return failed<ssize_t>(how == EINTR_ONCE ? EINTR : ENOSPC, -1);    \
  }
PWRITE(pwrite, off_t)
PWRITE(pwrite64, off64_t)
int fsync(int fd) {
  NEXT(fsync);
  if (!counted(fd) || !strikes(SYNC)) return real(fd);
  return failed(how == EINTR_ONCE ? EINTR : EIO, -1);
}
size_t fwrite(const void* from, size_t size, size_t n, std::FILE* file) {
  NEXT(fwrite);
  if (!counted(fileno(file)) || !strikes(WRITE) || how > FROM) return real(from, size, n, file);
  return failed<size_t>(ENOSPC, 0);
}

int rename(const char* from, const char* to) {
  NEXT(rename);
  return strikes(RENAME) ? failed(EACCES, -1) : real(from, to);
}
int link(const char* from, const char* to) {
  NEXT(link);
  return strikes(LINK) ? failed(EIO, -1) : real(from, to);
}
int unlink(const char* path) {
  NEXT(unlink);
  return strikes(UNLINK) ? failed(EACCES, -1) : real(path);
}

int close(int fd) {
  NEXT(close);
  const bool fails = counted(fd) && strikes(CLOSE);
  mark(fd, false);
  const int result = real(fd);
  return fails ? failed(ENOSPC, -1) : result;
}
int fclose(std::FILE* file) {
  NEXT(fclose);
  const int fd = fileno(file);
  const bool fails = counted(fd) && strikes(CLOSE);
  mark(fd, false);
  const int result = real(file);
  return fails ? failed(ENOSPC, EOF) : result;
}

void* malloc(size_t n) { return strikes(ALLOC) ? failed<void*>(ENOMEM, nullptr) : __libc_malloc(n); }
void* calloc(size_t n, size_t size) {
  return strikes(ALLOC) ? failed<void*>(ENOMEM, nullptr) : __libc_calloc(n, size);
}
void* realloc(void* block, size_t n) {
  return strikes(ALLOC) ? failed<void*>(ENOMEM, nullptr) : __libc_realloc(block, n);
}
int posix_memalign(void** block, size_t align, size_t n) {
  if (strikes(ALLOC)) return ENOMEM;
  *block = __libc_memalign(align, n);
  return *block ? 0 : ENOMEM;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) {
  NEXT(pthread_create);
  started = true;
  return strikes(THREAD) ? EAGAIN : real(thread, attributes, body, argument);
}
}
