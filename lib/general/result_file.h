// lib/general/result_file.h
// A result under construction: written beside its final name, given that name by one call when it is whole,
// removed when it is given up.
// Here:     the type that every output of the program is written through, as text or by a writer of its own.
// Not here: the streams themselves (txtfile.h, binfile.h).
#pragma once
#include <string>

#include "lib/general/txtfile.h"

namespace veld {
// An older file of the final name stays as it is until commit() replaces it.
class ResultFile {
 public:
  // reports: failures are ERROR lines.
  explicit ResultFile(bool reports = true) : reports_(reports), text_(reports), fs(text_.fs) {}
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

  // Closes the text and gives the file its name. False after an ERROR line, errno tells the reason; nothing is
  // left then.
  [[nodiscard]] bool commit();
  void give_up();  // removes what has been written
  void forget();   // leaves part() alone: it could not be created, and what stands there is another's

 private:
  void begin_part(const std::string& name, const std::string& part);
  bool reports_;
  std::string name_, part_;
  TxtFileOut text_;

 public:
  std::ofstream& fs;  // between open() and commit()
};

// Removes the unfinished results of the whole process: for its end by a signal. Waits a second at most for a
// thread that begins or ends one; threads that begin or end one afterwards stop there.
void remove_unfinished_results();
}  // namespace veld
