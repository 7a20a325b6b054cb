#include "childRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <charconv>
#include <cstdio>

extern char** environ;

namespace bench {

ChildRun runChild(const std::vector<std::string>& argv, const std::string& dir,
                  const std::string& outPath) {
  const std::string timing = dir + "/timing.txt";
  std::vector<std::string> full = {"/usr/bin/time", "-f", "%e %M", "-o", timing};
  full.insert(full.end(), argv.begin(), argv.end());
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, outPath.empty() ? "/dev/null" : outPath.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<char*> args;
  for (const std::string& arg : full) {
    args.push_back(const_cast<char*>(arg.c_str()));
  }
  args.push_back(nullptr);
  ChildRun run;
  pid_t pid = 0;
  if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) != 0) {
    std::perror(args[0]);
    posix_spawn_file_actions_destroy(&actions);
    return run;
  }
  int status = 0;
  waitpid(pid, &status, 0);
  posix_spawn_file_actions_destroy(&actions);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
  double kilobytes = 0.0;
  if (std::FILE* file = std::fopen(timing.c_str(), "r")) {
    if (std::fscanf(file, "%lf %lf", &run.seconds, &kilobytes) != 2) {
      run.status = 127;
    }
    std::fclose(file);
  }
  run.peakMB = kilobytes / 1024.0;
  return run;
}

void appendShortest(std::string& out, double value) {
  char text[64];
  out.append(text, std::to_chars(text, text + sizeof text, value).ptr);
}

}  // namespace bench
