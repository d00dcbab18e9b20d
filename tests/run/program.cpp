#include "tests/run/program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace veld {
Program::Program() { std::filesystem::copy_file(VELDRUNNER_PATH, base); }

pid_t Program::start(const Args& args, const std::function<void()>& before) const {
  std::vector<char*> argv{const_cast<char*>(base.c_str())};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  const std::string out = home.path + "/out.txt", err = home.path + "/err.txt";
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  if (chdir(work.path.c_str()) == 0 && dup2(open(out.c_str(), flags, 0600), 1) == 1 &&
      dup2(open(err.c_str(), flags, 0600), 2) == 2) {
    if (before) before();
    execv(argv[0], argv.data());
  }
  _exit(127);
}

RunOutput Program::finish(pid_t pid) const {
  RunOutput result;
  int status = 0;
  if (waitpid(pid, &status, 0) == pid && WIFEXITED(status)) result.code = WEXITSTATUS(status);
  result.out = read_text(home.path + "/out.txt");
  result.err = read_text(home.path + "/err.txt");
  return result;
}

RunOutput Program::run(const Args& args, const std::function<void()>& before) const {
  return finish(start(args, before));
}

bool simulate(const std::string& dir, const std::string& options) {
  std::filesystem::create_directories(dir);
  const std::string command =
      std::string(VELDSIM_PATH) + " -odir " + dir + " " + options + " > /dev/null 2>&1";
  return std::system(command.c_str()) == 0;
}

bool simulate(const std::string& dir) {
  static const TempDir once;  // for all tests of the process
  static const bool good = simulate(once.path, "-preset tiny");
  std::error_code failed;
  std::filesystem::copy(once.path, dir, std::filesystem::copy_options::recursive, failed);
  return good && !failed;
}

bool wait_for(const std::string& path) {
  for (int i = 0; i < 1000 && !exists(path); i++) usleep(10000);
  return exists(path);
}
}  // namespace veld
