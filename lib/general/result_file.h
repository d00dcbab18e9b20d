// lib/general/result_file.h
// A result under construction: written beside its final name, given that name by one call when it is whole,
// removed when it is given up.
// Here:     the types that every output of the program is written through: as text, as bytes, or by a writer of its
//           own.
// Not here: the streams themselves (txtfile.h, binfile.h).
#pragma once
#include <string>
#include <vector>

#include "lib/general/binfile.h"
#include "lib/general/txtfile.h"

namespace veld {
// An older file of the final name stays as it is until commit() replaces it.
class ResultFile {
 public:
  ResultFile() : ResultFile(true) {}
  // reports: failures are ERROR lines.
  explicit ResultFile(bool reports) : reports_(reports), text_(reports), fs(text_.fs) {}
  ~ResultFile();
  ResultFile(const ResultFile&) = delete;
  ResultFile& operator=(const ResultFile&) = delete;

  // Opens part() for text. The stream is fixed with 3 decimals. False after an ERROR line.
  [[nodiscard]] bool open(const std::string& name);
  // Takes the name; the caller writes part() in its own way and closes it before commit().
  void begin(const std::string& name);
  // The same with a part that only this process writes, for files that several runs may make at a time.
  void begin_own(const std::string& name);
  const std::string& part() const { return part_; }  // empty before begin() or open(), and behind the end
  static std::string part_of(const std::string& name) { return name + ".part"; }
  bool is_open() const { return !part_.empty(); }

  // Closes the text before commit(), for files that get their names together. False after an ERROR line.
  [[nodiscard]] bool close() { return text_.close(); }
  // Closes the text and gives the file its name. False after an ERROR line, errno holds the reason; nothing is
  // left then.
  [[nodiscard]] bool commit();
  void give_up();  // removes what has been written
  void forget();   // leaves part() alone: it could not be created, and what stands there is another's

 private:
  void begin_part(const std::string& name, const std::string& part);
  bool reports_;
  bool own_ = false;  // begun by begin_own()
  std::string name_, part_;
  TxtFileOut text_;

 public:
  std::ofstream& fs;  // between open() and commit()
};

// The same for bytes.
class BinResultFile {
 public:
  BinResultFile() : BinResultFile(BULK_BUFFER) {}
  // buffer: its size in bytes, 0 for none. Failures are ERROR lines unless reports is off.
  explicit BinResultFile(uint64_t buffer, bool reports = true) : result_(reports), file_(buffer, reports) {}

  [[nodiscard]] bool open(const std::string& name);
  [[nodiscard]] bool write(const void* from, uint64_t n) { return file_.write(from, n); }
  [[nodiscard]] bool close() { return file_.close(); }
  [[nodiscard]] bool commit() { return file_.close() && result_.commit(); }
  // The same once the content is on the disk: for files that cost hours. False after an ERROR line.
  [[nodiscard]] bool commit_synced();
  bool is_open() const { return result_.is_open(); }

 private:
  ResultFile result_;
  BufBinFileOut file_;
};

// The results that this process has finished, in order; files begun by begin_own() are not among them.
std::vector<std::string> committed_results();

// Removes the unfinished results of the whole process: for its end by a signal. Waits a second at most for a
// thread that begins or ends one; threads that begin or end one afterwards stop there.
void remove_unfinished_results();
}  // namespace veld
